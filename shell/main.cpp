// labshell: opens the data folder, loads the plug-in files, runs command
// lines (-c, a script, stdin or the prompt), stops the background runs and
// ends with the last foreground exit number.
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "../frame/host/System.h"
#include "../runtime/HostClock.h"
#include "../runtime/UsageStore.h"
#include "Shell.h"

namespace {

constexpr int UsageStatus = 2;       // the invocation itself is wrong
constexpr int StartFailureStatus = 1;  // data folder, store or plug-in unusable

struct Invocation {
    std::string dataDir;
    std::vector<std::string> plugins;
    std::string today;
    bool echo = false;
    std::vector<std::string> lines;
    std::string script;  // "-" is stdin
};

void Complain(std::string const& text) { Host::WriteErrorLine(WString::FromUtf8("labshell: " + text)); }

bool TryParseInvocation(int argc, char** argv, Invocation& invocation) {
    std::vector<std::string> args(argv + 1, argv + argc);
    for (size_t i = 0; i < args.size(); ++i) {
        std::string const& arg = args[i];
        bool hasValue = i + 1 < args.size();
        if (arg == "--echo") {
            invocation.echo = true;
        } else if (arg == "--data" || arg == "--plugin" || arg == "--today" || arg == "-c") {
            if (!hasValue) {
                Complain(arg + " needs a value");
                return false;
            }
            std::string const& value = args[++i];
            if (arg == "--data") invocation.dataDir = value;
            else if (arg == "--plugin") invocation.plugins.push_back(value);
            else if (arg == "--today") invocation.today = value;
            else invocation.lines.push_back(value);
        } else if (arg != "-" && arg.size() > 1 && arg[0] == '-') {
            Complain("unknown option " + arg);
            return false;
        } else if (!invocation.script.empty() || i + 1 != args.size()) {
            Complain("one script at most, and last");
            return false;
        } else {
            invocation.script = arg;
        }
    }
    return true;
}

std::string DefaultDataDir() {
    char const* fromEnvironment = std::getenv("LABSHELL_DATA");
    return fromEnvironment != nullptr && *fromEnvironment != '\0' ? fromEnvironment : "./labdata";
}

std::string DefaultPlugin() {
    std::error_code failure;
    std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", failure);
    return (failure ? std::filesystem::path(".") : self.parent_path()) / "UsageLog.dll";
}

// A bare file name is a file in the working folder, else one beside
// labshell; never a search of the library path.
std::string PluginPath(std::string const& given) {
    if (given.find('/') != std::string::npos) return given;
    std::error_code failure;
    if (std::filesystem::exists(given, failure)) return "./" + given;
    return (std::filesystem::path(DefaultPlugin()).parent_path() / given).string();
}

bool Start(Invocation const& invocation) {
    if (!invocation.today.empty()) {
        int date = 0;
        if (invocation.today.size() != 8 ||
            !WString::FromUtf8(invocation.today).TryGetInt(date, 10000101, 99991231, nullptr) ||
            !HostClock::SetToday(date)) {
            Complain("--today " + invocation.today + " is no valid date YYYYMMDD");
            return false;
        }
    }
    std::string error;
    std::string dataDir = invocation.dataDir.empty() ? DefaultDataDir() : invocation.dataDir;
    if (!Host::OpenDataFolder(WString::FromUtf8(dataDir), error)) {
        Complain(error);
        return false;
    }
    std::vector<std::string> plugins = invocation.plugins;
    if (plugins.empty()) plugins.push_back(DefaultPlugin());
    for (std::string const& plugin : plugins) {
        std::string warning;
        if (!Host::LoadPlugin(PluginPath(plugin), error, warning)) {
            Complain("cannot load " + plugin + ": " + error);
            return false;
        }
        if (!warning.empty()) Complain(warning);
    }
    return true;
}

void AddBuiltins() {
    Shell::AddHelpBuiltin();
    Shell::AddShellBuiltin();
    Shell::AddPsBuiltin();
    Shell::AddKillBuiltin();
    Shell::AddSleepBuiltin();
    Shell::AddStatusBuiltin();
    Shell::AddDateBuiltin();
    Shell::AddRunlogBuiltin();
    Shell::AddExternalBuiltin();
    Shell::AddAutotestBuiltin();
    Shell::AddExitBuiltin();
}

// Gives false when the script cannot be read.
bool RunInput(Invocation const& invocation, bool& interactive) {
    interactive = false;
    if (!invocation.lines.empty()) {
        for (std::string const& line : invocation.lines) {
            if (Shell::ExitRequested()) break;
            Shell::RunShellLine(WString::FromUtf8(line), invocation.echo);
        }
        return true;
    }
    if (!invocation.script.empty() && invocation.script != "-") {
        std::ifstream script(invocation.script);
        if (!script) {
            Complain("cannot read " + invocation.script);
            return false;
        }
        Shell::RunScript(script, invocation.echo);
        return true;
    }
    if (invocation.script.empty() && isatty(STDIN_FILENO)) {
        interactive = true;
        Shell::RunPrompt(invocation.echo);
        return true;
    }
    Shell::RunScript(std::cin, invocation.echo);
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    Invocation invocation;
    if (!TryParseInvocation(argc, argv, invocation)) return UsageStatus;
    if (!Start(invocation)) return StartFailureStatus;
    AddBuiltins();

    bool interactive = false;
    bool read = RunInput(invocation, interactive);
    Host::Shutdown();
    // Unsaved changes are lost on exit, as on the instrument.
    if (interactive) {
        unsigned int unsaved = System::usage.Store().UnsavedItemCount();
        if (unsaved != 0) Complain("usage changes left unsaved: " + std::to_string(unsaved));
    }
    if (!read) return StartFailureStatus;
    unsigned int last = Shell::LastExitNumber();
    return static_cast<int>(last > 255 ? 255 : last);
}
