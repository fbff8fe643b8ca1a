// exit [N]: ends the shell with N, or with the last exit number.
#include "../Shell.h"

namespace Shell {

void AddExitBuiltin() {
    Host::AddBuiltin(L"exit",
                     L"Usage: exit [<number>]\n"
                     L" Ends the shell, with that exit status or the last exit number.",
                     [](Host::BuiltinContext& context) {
                         unsigned int number = LastExitNumber();
                         if (context.words.size() > 1 ||
                             (context.words.size() == 1 && !context.words[0].TryGetUInt(number, 0, 255, nullptr))) {
                             return Misuse(L"exit", L"one exit number, 0 to 255, at most");
                         }
                         RequestExit();
                         return ExitCode(number);
                     });
}

}  // namespace Shell
