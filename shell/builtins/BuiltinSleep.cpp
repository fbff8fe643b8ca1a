// sleep MS: the line waits; background runs go on. Run by a command, the
// sleep ends early when that run is stopped.
#include "../../labhost/runs/Runs.h"
#include "../Shell.h"

namespace Shell {

void AddSleepBuiltin() {
    Host::AddBuiltin(L"sleep",
                     L"Usage: sleep <milliseconds>\n"
                     L" Waits that long (at most one day).",
                     [](Host::BuiltinContext& context) {
                         unsigned int milliseconds = 0;
                         if (context.words.size() != 1 ||
                             !context.words[0].TryGetUInt(milliseconds, 0, 86400000, nullptr)) {
                             return Misuse(L"sleep", L"one time in milliseconds, 0 to 86400000");
                         }
                         Runs::Sleep(milliseconds);
                         return ExitCode(0);
                     });
}

}  // namespace Shell
