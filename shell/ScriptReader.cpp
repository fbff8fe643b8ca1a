// The shell's line loop: the session's exit state, one line at a time with
// its echo, and scripts (blank lines and "#" comments are skipped).
#include <atomic>
#include <string>

#include "../runtime/TextLines.h"
#include "Shell.h"

namespace {
std::atomic<unsigned int> lastExitNumber{0};
std::atomic<bool> exitRequested{false};
}  // namespace

namespace Shell {

unsigned int LastExitNumber() { return lastExitNumber; }
void RequestExit() { exitRequested = true; }
bool ExitRequested() { return exitRequested; }

ExitCode Misuse(wchar_t const* builtin, WString const& message) {
    Host::WriteErrorLine(WString::Format(L"** %s: %s", builtin, message.c_str()));
    return ExitCode(1);
}

void RunShellLine(WString const& line, bool echo) {
    WString trimmed = line.Trim();
    if (trimmed.IsEmpty() || trimmed.StartsWith(L'#')) return;
    if (echo) Host::WriteOutputLine(WString(L"> " + trimmed.str));
    unsigned int number = Host::RunLine(trimmed, Pipe()).number;
    lastExitNumber = number;
    if (echo) Host::WriteOutputLine(WString::Format(L"= %u", number));
}

bool RunScript(std::istream& script, bool echo, std::string& error) {
    TextLines lines(script);
    std::string line;
    while (!ExitRequested()) {
        switch (lines.Next(line)) {
            case TextLines::Result::Line: RunShellLine(WString::FromUtf8(line), echo); break;
            case TextLines::Result::End: return true;
            case TextLines::Result::Failed: error = lines.FailureText(); return false;
        }
    }
    return true;
}

}  // namespace Shell
