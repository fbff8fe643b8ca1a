// The shell's line loop: the session's exit state, one line at a time with
// its echo, and scripts (blank lines and "#" comments are skipped, or
// written out as they stand when comments are echoed).
#include <atomic>
#include <string>

#include "../labhost/text/TextLines.h"
#include "Shell.h"

namespace {
std::atomic<unsigned int> lastExitNumber{0};
std::atomic<bool> exitRequested{false};
std::atomic<bool> commentsEchoed{false};
}  // namespace

namespace Shell {

unsigned int LastExitNumber() { return lastExitNumber; }
void RequestExit() { exitRequested = true; }
void WithdrawExit() { exitRequested = false; }
bool ExitRequested() { return exitRequested; }
void EchoComments(bool on) { commentsEchoed = on; }

ExitCode Misuse(wchar_t const* builtin, WString const& message) {
    Host::WriteErrorLine(WString::Format(L"** %s: %s", builtin, message.c_str()));
    return ExitCode(1);
}

ExitCode RunShellLine(WString const& line, bool echo) {
    WString trimmed = line.Trim();
    if (trimmed.IsEmpty() || trimmed.StartsWith(L'#')) {
        if (commentsEchoed) Host::WriteOutputLine(trimmed);
        return ExitCode(0);
    }
    if (echo) Host::WriteOutputLine(WString(L"> " + trimmed.str));
    ExitCode code = Host::RunLine(trimmed, Pipe());
    lastExitNumber = code.number;
    if (echo) Host::WriteOutputLine(WString::Format(L"= %u", static_cast<unsigned int>(code.number)));
    return code;
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
