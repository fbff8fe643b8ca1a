// The process's standard streams as the host writes them: every line whole,
// as UTF-8, under one process-wide lock that every Pipe line takes too, so
// that lines of runs writing at the same time never mix.
#pragma once

#include <cstdio>
#include <functional>
#include <string>

#include "WString.h"

namespace Host {

// One whole line, UTF-8, to stdout or stderr, under the lock that every
// Pipe line takes.
void WriteOutputLine(WString const& line);
void WriteErrorLine(WString const& line);

// For an interactive prompt, which must move the line being typed out of the
// way: the writer, when set, puts each whole line (with its line feed) on its
// stream in place of a plain write, under the output lock. WithOutputLock
// runs `work` under that same lock, so that no line comes between.
using LineWriter = std::function<void(std::FILE* stream, std::string const& text)>;
void SetLineWriter(LineWriter writer);
void WithOutputLock(std::function<void()> const& work);

// Also writes each line of the error log to stderr (interactive use).
void EchoErrorLog(bool on);

}  // namespace Host
