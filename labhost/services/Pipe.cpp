// Pipe and the process's standard streams: every line goes out whole under
// one process-wide lock, as UTF-8, flushed at once, so lines of runs that
// write at the same time never mix and readers see them as they come.
#include <cstdio>
#include <mutex>

#include "CommandBase.h"
#include "StandardStreams.h"

namespace {
// Recursive: a sink may itself write a line to the standard streams.
std::recursive_mutex& OutputMutex() {
    static std::recursive_mutex mutex;
    return mutex;
}

Host::LineWriter lineWriter;  // under OutputMutex()

void WriteWholeLine(std::FILE* stream, WString const& line) {
    std::string text = line.ToUtf8();
    text += '\n';
    std::lock_guard<std::recursive_mutex> lock(OutputMutex());
    if (lineWriter) {
        lineWriter(stream, text);
        return;
    }
    std::fwrite(text.data(), 1, text.size(), stream);
    std::fflush(stream);
}
}  // namespace

namespace Host {
void WriteOutputLine(WString const& line) { WriteWholeLine(stdout, line); }
void WriteErrorLine(WString const& line) { WriteWholeLine(stderr, line); }

void SetLineWriter(LineWriter writer) {
    std::lock_guard<std::recursive_mutex> lock(OutputMutex());
    lineWriter = std::move(writer);
}

void WithOutputLock(std::function<void()> const& work) {
    std::lock_guard<std::recursive_mutex> lock(OutputMutex());
    work();
}
}  // namespace Host

Pipe::Pipe() = default;

Pipe::Pipe(Sink sink) : sink_(std::make_shared<Sink>(std::move(sink))) {}

void Pipe::WriteLine(wchar_t const* format, ...) const {
    va_list args;
    va_start(args, format);
    WString line = WString::FormatV(format, args);
    va_end(args);
    DoWriteLine(std::move(line));
}

void Pipe::DoWriteLine(WString line) const {
    if (!sink_) {
        Host::WriteOutputLine(line);
        return;
    }
    // Sinks get one line at a time too: a capture shared by several runs
    // needs no lock of its own.
    std::lock_guard<std::recursive_mutex> lock(OutputMutex());
    (*sink_)(line);
}
