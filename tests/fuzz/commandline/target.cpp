// Command lines run as labshell runs a script's lines, through the host with
// the shell's builtins and UsageLog.dll's seven commands. Oracles: no crash,
// and every run, foreground or background, stops when it is told to (the
// foreground one when the input's budget is spent, all at the input's end).
#include <cstdint>
#include <sstream>
#include <string>

#include "../fuzz_host.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    fuzz::Input input;
    std::istringstream script(std::string(reinterpret_cast<char const*>(data), size));
    for (std::string line; !input.Spent() && std::getline(script, line);) {
        WString text = WString::FromUtf8(line);
        if (fuzz::IsBounded(text)) Shell::RunShellLine(text, false);
    }
    return 0;
}
