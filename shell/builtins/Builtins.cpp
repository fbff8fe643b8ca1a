// Every builtin of the shell, for labshell and for programs that run command
// lines as labshell does.
#include "../Shell.h"

namespace Shell {

void AddBuiltins() {
    AddHelpBuiltin();
    AddShellBuiltin();
    AddPsBuiltin();
    AddKillBuiltin();
    AddSleepBuiltin();
    AddWaitBuiltin();
    AddStatusBuiltin();
    AddDateBuiltin();
    AddRunlogBuiltin();
    AddExternalBuiltin();
    AddAutotestBuiltin();
    AddExitBuiltin();
    AddForecastBuiltin();
}

}  // namespace Shell
