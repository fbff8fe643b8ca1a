// The shell's line loop: the session's exit state, one line at a time with
// its echo, and scripts (blank lines and "#" comments are skipped).
#include <atomic>
#include <string>

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

void RunScript(std::istream& script, bool echo) {
    std::string line;
    while (!ExitRequested() && std::getline(script, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        RunShellLine(WString::FromUtf8(line), echo);
    }
}

}  // namespace Shell
