// ps: one line per live run, "ID NAME LINE", oldest first.
#include "../Shell.h"

namespace Shell {

void AddPsBuiltin() {
    Host::AddBuiltin(L"ps",
                     L"Usage: ps\n"
                     L" Lists the live runs: process id, command name, command line.",
                     [](Host::BuiltinContext& context) {
                         if (!context.words.empty()) return Misuse(L"ps", L"takes no arguments");
                         for (Host::RunInfo const& run : Host::LiveRuns()) {
                             context.pipe.WriteLine(L"%d %s %s", run.processId, run.name.c_str(), run.line.c_str());
                         }
                         return ExitCode(0);
                     });
}

}  // namespace Shell
