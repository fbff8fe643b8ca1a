// The interactive prompt: readline's line editing and an in-memory history.
#include <readline/history.h>
#include <readline/readline.h>

#include <cstdlib>

#include "Shell.h"

namespace Shell {

void RunPrompt(bool echo) {
    while (!ExitRequested()) {
        char* text = readline("labshell> ");
        if (text == nullptr) break;  // end of input
        WString line = WString::FromUtf8(text);
        if (!line.Trim().IsEmpty()) add_history(text);
        std::free(text);
        RunShellLine(line, echo);
    }
}

}  // namespace Shell
