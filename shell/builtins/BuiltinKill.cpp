// kill ID / kill NAME / kill -a: stops runs and waits until they ended.
#include "../Shell.h"

namespace Shell {

void AddKillBuiltin() {
    Host::AddBuiltin(
        L"kill",
        L"Usage: kill <process id> | <command name> | -a\n"
        L" Stops the run with that id, every run of that command, or with -a\n"
        L" every run that is not immune against a general kill.",
        [](Host::BuiltinContext& context) {
            if (context.words.size() != 1) return Misuse(L"kill", L"one process id, command name or -a");
            WString const& target = context.words[0];
            if (target.str == L"-a") {
                Host::StopAllRuns(false);
                return ExitCode(0);
            }
            unsigned int processId = 0;
            if (target.TryGetUInt(processId, 1, 2147483647u, nullptr)) {
                if (Host::StopRun(static_cast<int>(processId)) == 0) {
                    return Misuse(L"kill", WString(L"no run with process id " + target.str));
                }
                return ExitCode(0);
            }
            if (Host::StopRunsNamed(target) == 0) return Misuse(L"kill", WString(L"no run of " + target.str));
            return ExitCode(0);
        });
}

}  // namespace Shell
