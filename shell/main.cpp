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
#include "../labhost/services/HostClock.h"
#include "../labhost/store/UsageStore.h"
#include "Shell.h"

namespace {

constexpr int UsageStatus = 2;       // the invocation itself is wrong
constexpr int StartFailureStatus = 1;  // data folder, store, plug-in or script unusable

struct Invocation {
    std::string dataDir;
    std::vector<std::string> plugins;
    std::string today;
    bool echo = false;
    bool comments = false;
    bool help = false;
    bool version = false;
    std::vector<std::string> lines;
    std::string script;  // "-" is stdin
};

void Complain(std::string const& text) { Host::WriteErrorLine(WString::FromUtf8("labshell: " + text)); }

char const* const UsageText =
    "Usage: labshell [--data DIR] [--plugin FILE]... [--today YYYYMMDD] [--echo]\n"
    "                [--comments] [-c LINE]... [SCRIPT | -]\n"
    "       labshell --help | --version\n"
    "Loads the plug-in files and runs command lines: each -c LINE, a script, stdin,\n"
    "or at a prompt when stdin is a terminal.\n"
    "  --data DIR        the data folder (also --data=DIR); default $LABSHELL_DATA,\n"
    "                    else ./labdata. Created when missing.\n"
    "  --plugin FILE     a plug-in file to load, may be repeated; default UsageLog.dll\n"
    "                    beside labshell\n"
    "  --today YYYYMMDD  the host clock's date at start\n"
    "  --echo            write \"> LINE\" before and \"= N\" after each command line\n"
    "  --comments        also write a script's comments and blank lines as they stand\n"
    "  -c LINE           run this command line (may be repeated), then end\n"
    "  SCRIPT            a file of command lines, one a line; - reads stdin\n"
    "  -h, --help        show this text\n"
    "  --version         show the version\n"
    "The exit status is the exit number of the last command line. At the prompt,\n"
    "help lists the commands and NAME -? explains one.\n";

// Gives true when the invocation only asks about labshell itself; the
// answer is then on stdout.
bool AnswerInformationRequest(Invocation const& invocation) {
    if (invocation.help) std::cout << UsageText;
    else if (invocation.version) std::cout << "labshell " << LABSHELL_VERSION << "\n";
    return invocation.help || invocation.version;
}

// "--data=DIR" stands for "--data DIR", and so on for every option with a value.
std::vector<std::string> SplitAttachedValues(int argc, char** argv) {
    std::vector<std::string> args;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        std::string::size_type equals = arg.find('=');
        std::string name = arg.substr(0, equals);
        bool attached = equals != std::string::npos && (name == "--data" || name == "--plugin" || name == "--today");
        // A -c value is a command line, whatever it looks like.
        bool isValue = !args.empty() && args.back() == "-c";
        if (attached && !isValue) {
            args.push_back(name);
            args.push_back(arg.substr(equals + 1));
        } else {
            args.push_back(arg);
        }
    }
    return args;
}

bool TryParseInvocation(std::vector<std::string> const& args, Invocation& invocation) {
    for (size_t i = 0; i < args.size(); ++i) {
        std::string const& arg = args[i];
        bool hasValue = i + 1 < args.size();
        if (arg == "--echo") {
            invocation.echo = true;
        } else if (arg == "--comments") {
            invocation.comments = true;
        } else if (arg == "--help" || arg == "-h") {
            invocation.help = true;
        } else if (arg == "--version") {
            invocation.version = true;
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

// A data folder that nobody named is not made without a word.
void NoteNewDefaultDataDir(std::string const& dataDir) {
    std::error_code failure;
    if (std::filesystem::exists(dataDir, failure)) return;
    Complain("no --data given: creating the data folder " +
             std::filesystem::absolute(dataDir, failure).lexically_normal().string());
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
    if (invocation.dataDir.empty()) NoteNewDefaultDataDir(dataDir);
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
    if (invocation.script.empty() && isatty(STDIN_FILENO)) {
        interactive = true;
        Shell::RunPrompt(invocation.echo);
        return true;
    }
    bool fromFile = !invocation.script.empty() && invocation.script != "-";
    std::string name = fromFile ? invocation.script : "standard input";
    std::ifstream file;
    if (fromFile) {
        file.open(invocation.script);
        if (!file) {
            Complain("cannot read " + name);
            return false;
        }
    }
    std::string error;
    if (!Shell::RunScript(fromFile ? static_cast<std::istream&>(file) : std::cin, invocation.echo, error)) {
        Complain("cannot read " + name + ": " + error);
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    Invocation invocation;
    if (!TryParseInvocation(SplitAttachedValues(argc, argv), invocation)) return UsageStatus;
    if (AnswerInformationRequest(invocation)) return 0;
    if (!Start(invocation)) return StartFailureStatus;
    Shell::AddBuiltins();
    Shell::EchoComments(invocation.comments);

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
