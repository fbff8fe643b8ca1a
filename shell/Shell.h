// labshell's own parts: the session state that builtins and the line loop
// share, the line loop itself and the registration of the builtins.
#pragma once

#include <istream>

#include "../runtime/Host.h"

namespace Shell {

// The exit number of the last foreground line, 0 before any.
unsigned int LastExitNumber();
// Set by `exit`: the loop reads no further line.
void RequestExit();
bool ExitRequested();

// Runs one line in the foreground as the shell does: "> line" before and
// "= N" after it when echoing; notes its exit number.
void RunShellLine(WString const& line, bool echo);
// Runs the command lines of a script until its end or `exit`.
void RunScript(std::istream& script, bool echo);
// The interactive prompt with line editing and history.
void RunPrompt(bool echo);

// A builtin used the wrong way: "** NAME: MESSAGE" on stderr, exit number 1.
ExitCode Misuse(wchar_t const* builtin, WString const& message);

void AddHelpBuiltin();
void AddShellBuiltin();
void AddPsBuiltin();
void AddKillBuiltin();
void AddSleepBuiltin();
void AddStatusBuiltin();
void AddDateBuiltin();
void AddRunlogBuiltin();
void AddExternalBuiltin();
void AddAutotestBuiltin();
void AddExitBuiltin();
void AddForecastBuiltin();

}  // namespace Shell
