// wait ID|NAME [MS]: waits until the run with that process id, or every live
// run of that command, is past its start: it has given its go-ahead and now
// waits (sleeps, waits for an event, a resource or a run), or it has ended;
// at most MS milliseconds. A script starts a keeper, a monitor or a
// measuring run with SHELL -b, which returns at once, and goes on with
// `wait` only once the run has done what it does at its start.
#include "../Shell.h"

namespace Shell {

void AddWaitBuiltin() {
    Host::AddBuiltin(L"wait",
                     L"Usage: wait <process id> | <command name> [<milliseconds>]\n"
                     L" Waits until that run, or every run of that command, has given its\n"
                     L" go-ahead and waits, or has ended; at most the time given (default\n"
                     L" 60000).",
                     [](Host::BuiltinContext& context) {
                         unsigned int milliseconds = 60000;
                         if (context.words.empty() || context.words.size() > 2 ||
                             (context.words.size() == 2 &&
                              !context.words[1].TryGetUInt(milliseconds, 0, 86400000, nullptr))) {
                             return Misuse(L"wait", L"a process id or command name, then at most 86400000 ms");
                         }
                         int matched = 0;
                         if (Host::AwaitSettled(context.words[0], milliseconds, matched)) return ExitCode(0);
                         return Misuse(L"wait", WString(context.words[0].str + L" is not past its start after " +
                                                        std::to_wstring(milliseconds) + L" ms"));
                     });
}

}  // namespace Shell
