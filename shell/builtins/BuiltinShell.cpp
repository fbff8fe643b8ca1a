// SHELL LINE / SHELL -b LINE: a command line in the foreground, or as an
// orphan background run. "-b" returns at once; `wait` waits for the run's
// go-ahead where a script needs it past its start.
#include "../Shell.h"

namespace Shell {

void AddShellBuiltin() {
    Host::AddBuiltin(L"SHELL",
                     L"Usage: SHELL [-b] <command line>\n"
                     L" Runs the command line.\n"
                     L"Options:\n"
                     L"  -b   Run it in the background, as an orphan",
                     [](Host::BuiltinContext& context) {
                         if (context.words.empty()) return Misuse(L"SHELL", L"no command line");
                         if (context.words[0].str != L"-b") {
                             return Host::RunLine(context.restOfLine, context.pipe, context.caller, 0);
                         }
                         WString line = context.restOfLine.Substring(2, -1).Trim();
                         if (line.IsEmpty()) return Misuse(L"SHELL", L"no command line after -b");
                         ExitCode failure;
                         if (Host::StartBackground(line, context.pipe, failure) < 0) return failure;
                         return ExitCode(0);
                     },
                     Host::BuiltinWords::OptionsThenCommandLine);
}

}  // namespace Shell
