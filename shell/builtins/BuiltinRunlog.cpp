// runlog on / runlog off: whether the run log takes lines.
#include "../../frame/host/System.h"
#include "../Shell.h"

namespace Shell {

void AddRunlogBuiltin() {
    Host::AddBuiltin(L"runlog",
                     L"Usage: runlog on|off\n"
                     L" Turns the run log on or off.",
                     [](Host::BuiltinContext& context) {
                         if (context.words.size() != 1 ||
                             (context.words[0].str != L"on" && context.words[0].str != L"off")) {
                             return Misuse(L"runlog", L"on or off");
                         }
                         System::runLog.enabled = context.words[0].str == L"on";
                         return ExitCode(0);
                     });
}

}  // namespace Shell
