// labshell's own parts: the session state that builtins and the line loop
// share, the line loop itself and the registration of the builtins.
#pragma once

#include <istream>
#include <string>

#include "../labhost/Host.h"

namespace Shell {

// The exit number of the last foreground line, 0 before any.
unsigned int LastExitNumber();
// Set by `exit`: the loop reads no further line.
void RequestExit();
// The prompt's second chance: unsaved changes keep the shell open once.
void WithdrawExit();
bool ExitRequested();
// Blank lines and comments of scripts go to stdout as they stand, so that
// a script can explain itself (--comments).
void EchoComments(bool on);

// Runs one line in the foreground as the shell does: "> line" before and
// "= N" after it when echoing; notes its exit number and gives its code
// (0 for a skipped line).
ExitCode RunShellLine(WString const& line, bool echo);
// Runs the command lines of a script until its end or `exit`. False, with
// the reason in `error`, when the script could not be read to its end.
bool RunScript(std::istream& script, bool echo, std::string& error);
// The interactive prompt with line editing, completion and a history kept
// in the data folder. Ctrl-C clears the line being typed, or stops the
// foreground run as kill does; a non-zero exit number is explained on
// stderr, and so are the error log's lines.
void RunPrompt(bool echo);

// A builtin used the wrong way: "** NAME: MESSAGE" on stderr, exit number 1.
ExitCode Misuse(wchar_t const* builtin, WString const& message);

// All of the builtins below.
void AddBuiltins();
void AddHelpBuiltin();
void AddShellBuiltin();
void AddPsBuiltin();
void AddKillBuiltin();
void AddSleepBuiltin();
void AddWaitBuiltin();
void AddStatusBuiltin();
void AddDateBuiltin();
void AddRunlogBuiltin();
void AddExternalBuiltin();
void AddAutotestBuiltin();
void AddExitBuiltin();
void AddForecastBuiltin();

}  // namespace Shell
