// help [NAME]: every command's name, or one command's help.
#include "../Shell.h"

namespace Shell {

void AddHelpBuiltin() {
    Host::AddBuiltin(L"help",
                     L"Usage: help [<name>]\n"
                     L" Lists all commands, or shows the help of one.",
                     [](Host::BuiltinContext& context) {
                         if (context.words.size() > 1) return Misuse(L"help", L"one command name at most");
                         if (context.words.empty()) {
                             for (WString const& name : Host::CommandNames()) context.pipe.DoWriteLine(name);
                             return ExitCode(0);
                         }
                         if (Host::ShowHelp(context.words[0], context.pipe)) return ExitCode(0);
                         Host::WriteErrorLine(WString(L"** Unknown command: " + context.words[0].str));
                         return ExitCode(0, 1, HostExit::UnknownCommand);
                     });
}

}  // namespace Shell
