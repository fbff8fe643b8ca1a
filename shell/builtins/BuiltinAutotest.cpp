// autotest / autotest run [NAME]: the automatic tests of the loaded plug-in
// files. Each test runs as a run of its own; "PASS NAME" or "FAIL NAME"
// follows its output. Exit number 1 when a test failed.
#include "../../frame/host/AutomaticTestEntry.h"
#include "../../labhost/runs/Runs.h"
#include "../Shell.h"

namespace Shell {
namespace {

bool RunTest(AutomaticTestEntry const& test, Host::BuiltinContext& context) {
    Runs::Request request{test.name, WString(L"autotest run " + test.name.str), context.caller, 0, false};
    Pipe pipe = context.pipe;
    ExitCode code = Runs::Start(request, [&test, pipe](RunState&) {
        TestCommand command(pipe);
        test.function(command);
        return ExitCode(command.Failed() ? 1 : 0);
    });
    bool passed = code.number == 0;
    context.pipe.WriteLine(L"%s %s", passed ? L"PASS" : L"FAIL", test.name.c_str());
    return passed;
}

ExitCode Autotest(Host::BuiltinContext& context) {
    std::vector<AutomaticTestEntry> tests = Host::AutomaticTests();
    if (context.words.empty()) {
        for (AutomaticTestEntry const& test : tests) {
            context.pipe.WriteLine(L"%s - %s", test.name.c_str(), test.description.c_str());
        }
        return ExitCode(0);
    }
    if (context.words[0].str != L"run" || context.words.size() > 2) {
        return Misuse(L"autotest", L"no words, or run and one test name at most");
    }
    bool all = context.words.size() == 1, found = false, allPassed = true;
    for (AutomaticTestEntry const& test : tests) {
        if (!all && test.name.str != context.words[1].str) continue;
        found = true;
        if (!RunTest(test, context)) allPassed = false;
    }
    if (!all && !found) return Misuse(L"autotest", WString(L"no test " + context.words[1].str));
    return ExitCode(allPassed ? 0 : 1);
}

}  // namespace

void AddAutotestBuiltin() {
    Host::AddBuiltin(L"autotest",
                     L"Usage: autotest [run [<name>]]\n"
                     L" Lists the automatic tests of the loaded plug-in files, or runs them.",
                     Autotest);
}

}  // namespace Shell
