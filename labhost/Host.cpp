// The host: data folder, plug-in files, the command table and the running of
// command lines. Plug-in commands are runs (see Runs); builtins run on the
// thread that ran their line, as part of its run.
#include "Host.h"

#include <dlfcn.h>

#include <cstring>
#include <filesystem>
#include <map>
#include <mutex>

#include "AutomaticTestEntry.h"
#include "HostSandbox.h"
#include "System.h"
#include "runs/RunThreads.h"
#include "runs/Runs.h"
#include "store/DataFolderLock.h"
#include "store/UsageStore.h"

namespace {

struct CommandEntry {
    CommandFactory factory = nullptr;  // a plug-in command, or
    Host::Builtin builtin;             // a builtin
    WString usage;                     // builtins: help lines, "\n" between
    Host::BuiltinWords words = Host::BuiltinWords::AllOwn;
};

DataFolderLock dataFolderLock;  // the folder this process serves
std::mutex tableMutex;
std::map<std::wstring, CommandEntry> commandTable;
// Automatic tests by the file name that offered them, in load order.
std::vector<std::pair<std::string, std::vector<AutomaticTestEntry>>> testsByFile;

bool FindCommand(WString const& name, CommandEntry& entry) {
    std::lock_guard<std::mutex> lock(tableMutex);
    auto found = commandTable.find(name.str);
    if (found == commandTable.end()) return false;
    entry = found->second;
    return true;
}

// Under tableMutex.
void AddCommandLocked(CommandFactory factory) {
    std::unique_ptr<CommandBase> probe(factory());
    commandTable[probe->GetName().str] = CommandEntry{factory, nullptr, WString()};
}

// The text after the first word (quotes kept), trimmed.
WString RestAfterName(WString const& line) {
    bool quoted = false;
    size_t position = 0;
    for (; position < line.str.size(); ++position) {
        wchar_t c = line.str[position];
        if (c == L'"') quoted = !quoted;
        if (!quoted && (c == L' ' || c == L'\t')) break;
    }
    return WString(line.str.substr(position)).Trim();
}

bool AsksForHelp(CommandEntry const& entry, std::vector<WString> const& words) {
    for (WString const& word : words) {
        bool isOption = IsOptionWord(word.str);
        if (isOption && word.str[1] == L'?') return true;
        if (!isOption && entry.words == Host::BuiltinWords::OptionsThenCommandLine) return false;
    }
    return false;
}

ExitCode RunBuiltin(CommandEntry const& entry, WString const& name, WString const& line, Pipe const& pipe,
                     RunState* caller) {
    Host::BuiltinContext context{};
    std::vector<WString> words = SplitCommandWords(line);
    context.words.assign(words.begin() + 1, words.end());
    context.restOfLine = RestAfterName(line);
    context.pipe = pipe;
    context.caller = caller;
    if (AsksForHelp(entry, context.words)) {
        Host::ShowHelp(name, pipe);
        return ExitCode(0);
    }
    return entry.builtin(context);
}

// How deeply the command lines on this thread are nested: a line run by a
// builtin or a command counts one more than the line that ran it. A run's
// thread starts from the depth of the line that started the run.
thread_local int lineDepth = 0;

class NestingLevel {
public:
    NestingLevel() : outer_(lineDepth++) {}
    ~NestingLevel() { lineDepth = outer_; }
    NestingLevel(NestingLevel const&) = delete;
    NestingLevel& operator=(NestingLevel const&) = delete;
    bool TooDeep() const { return outer_ >= Host::MaxNesting; }

private:
    int outer_;
};

// The life of a plug-in command on the calling thread, as part of `run`
// (null: outside any run): Main (ShowUsage for -?), then OnExit. A failure
// that is no exit code still gets the command its OnExit.
ExitCode LiveCommand(CommandFactory factory, ParsedCommandLine& parsed, Pipe const& pipe, RunState* run) {
    std::unique_ptr<CommandBase> command(factory());
    command->pipe = pipe;
    command->hostRun = run;
    std::uint32_t id = command->GetCommandId();
    if (run != nullptr) Runs::Locked([&] { run->commandId = static_cast<std::uint16_t>(id); });
    ExitCode code;
    try {
        if (parsed.wantsHelp) {
            command->ShowUsage();
            code = ExitCode(0);
        } else {
            command->OnStart(parsed.arguments, parsed.options);
            code = command->Main(parsed.arguments, parsed.options);
        }
    } catch (ExitCode const& thrown) {
        code = thrown;
    } catch (std::exception const& failure) {
        code = Runs::EndedByFailure(run != nullptr ? Runs::Describe(*run) : parsed.name, failure.what());
    }
    if (code.kind != 1) code.commandId = static_cast<std::uint16_t>(id);
    command->OnExit(code);
    return code;
}

// The life of a plug-in command's run, on the run's thread.
Runs::Body CommandBody(CommandFactory factory, ParsedCommandLine parsed, Pipe pipe) {
    return [factory, parsed = std::move(parsed), pipe, depth = lineDepth](RunState& run) mutable {
        lineDepth = depth;
        return LiveCommand(factory, parsed, pipe, &run);
    };
}

// A line nested past MaxNesting is refused before it is looked at further.
bool RefuseTooDeep(NestingLevel const& level, WString const& name, ExitCode& refusal) {
    if (!level.TooDeep()) return false;
    Runs::ReportFailure(WString(name.str + L": command lines nested more than " +
                                std::to_wstring(Host::MaxNesting) + L" levels deep; the line is not run"));
    refusal = ExitCode(0, 1, HostExit::NestedTooDeep);
    return true;
}

// The words of a trimmed line and the command they name. False with the
// line's code in `failure`: 0 for an empty line, NestedTooDeep for a line
// at a `level` too deep, UnknownCommand for a name that is no command; the
// last two reported.
bool LookUp(WString const& trimmed, NestingLevel const* level, ParsedCommandLine& parsed, CommandEntry& entry,
            ExitCode& failure) {
    if (!TryParseCommandLine(trimmed, parsed)) {
        failure = ExitCode(0);
        return false;
    }
    if (level != nullptr && RefuseTooDeep(*level, parsed.name, failure)) return false;
    if (FindCommand(parsed.name, entry)) return true;
    Host::WriteErrorLine(WString(L"** Unknown command: " + parsed.name.str));
    failure = ExitCode(0, 1, HostExit::UnknownCommand);
    return false;
}

}  // namespace

namespace Host {

bool OpenDataFolder(WString const& dir, std::string& error) {
    namespace fs = std::filesystem;
    std::string given = dir.ToUtf8();
    std::error_code failure;
    fs::path folder = fs::absolute(given, failure);
    if (failure || given.empty()) {
        error = "data folder \"" + given + "\" cannot be used";
        return false;
    }
    if (fs::exists(folder) && !fs::is_directory(folder)) {
        error = "data folder " + given + " is not a folder";
        return false;
    }
    // The lock comes before anything in the folder is made or read, so a
    // refused start changes nothing.
    fs::create_directories(folder, failure);
    if (!failure && !dataFolderLock.Acquire(folder.lexically_normal().string(), error)) return false;
    if (!failure) fs::create_directories(folder / "log", failure);
    if (failure) {
        error = "data folder " + given + ": " + failure.message();
        return false;
    }
    std::string storeError;
    if (!System::usage.Store().Open((folder / "usage.db").string(), storeError)) {
        error = "usage store " + (folder / "usage.db").string() + ": " + storeError;
        dataFolderLock.Release();
        return false;
    }
    WString path = WString::FromUtf8(folder.lexically_normal().string());
    if (path.str.size() > 1 && path.str.back() == L'/') path.str.pop_back();
    System::SetDataDirectory(path);
    return System::config.Load(WString(path.str + L"/config.ini"), error);
}

bool LoadPlugin(std::string const& path, std::string& error, std::string& warning) {
    if (dlopen(path.c_str(), RTLD_NOW | RTLD_GLOBAL) == nullptr) {
        char const* reason = dlerror();
        error = reason != nullptr ? reason : "cannot load " + path;
        return false;
    }
    // By their exported names: all plug-in files share the first registry.
    using SelectFunction = std::int32_t (*)(char const*);
    using NextCommandFunction = CommandFactory (*)(unsigned int);
    using NextTestFunction = bool (*)(int, AutomaticTestEntry&);
    auto select = reinterpret_cast<SelectFunction>(dlsym(RTLD_DEFAULT, "_Z20DllRegistrySelectDllPKc"));
    auto nextCommand = reinterpret_cast<NextCommandFunction>(dlsym(RTLD_DEFAULT, "_Z25DllRegistryGetNextCommandj"));
    auto nextTest = reinterpret_cast<NextTestFunction>(
        dlsym(RTLD_DEFAULT, "_Z34DllRegistryTryGetNextAutomaticTestiR18AutomaticTestEntry"));
    if (select == nullptr || nextCommand == nullptr) {
        error = path + " offers no command registry";
        return false;
    }

    std::lock_guard<std::mutex> lock(tableMutex);
    if (std::int32_t result = select(path.c_str()); result != 0) {
        warning = "selecting " + path + " reported error " + std::to_string(result) + " (" + std::strerror(result) + ")";
    }
    for (unsigned int index = 0;; ++index) {
        CommandFactory factory = nextCommand(index);
        if (factory == nullptr) break;
        AddCommandLocked(factory);
    }
    std::vector<AutomaticTestEntry> tests;
    AutomaticTestEntry entry;
    for (int index = 0; nextTest != nullptr && nextTest(index, entry); ++index) tests.push_back(entry);
    std::string fileName = std::filesystem::path(path).filename().string();
    std::erase_if(testsByFile, [&](auto const& file) { return file.first == fileName; });
    testsByFile.emplace_back(fileName, std::move(tests));
    return true;
}

void AddCommand(CommandFactory factory) {
    std::lock_guard<std::mutex> lock(tableMutex);
    AddCommandLocked(factory);
}

void AddBuiltin(WString const& name, WString const& usage, Builtin builtin, BuiltinWords words) {
    std::lock_guard<std::mutex> lock(tableMutex);
    commandTable[name.str] = CommandEntry{nullptr, std::move(builtin), usage, words};
}

ExitCode RunLine(WString const& line, Pipe const& pipe, RunState* parent, unsigned int mode) {
    WString trimmed = line.Trim();
    ParsedCommandLine parsed;
    CommandEntry entry;
    ExitCode failure;
    NestingLevel level;
    if (!LookUp(trimmed, &level, parsed, entry, failure)) return failure;
    if (entry.factory == nullptr) {
        try {
            return RunBuiltin(entry, parsed.name, trimmed, pipe, parent);
        } catch (ExitCode const& thrown) {
            return thrown;
        }
    }
    Runs::Request request{parsed.name, trimmed, parent, mode, false};
    return Runs::Start(request, CommandBody(entry.factory, std::move(parsed), pipe));
}

ExitCode RunInPlace(WString const& line, Pipe const& pipe) {
    ParsedCommandLine parsed;
    CommandEntry entry;
    ExitCode failure;
    if (!LookUp(line.Trim(), nullptr, parsed, entry, failure)) return failure;
    if (entry.factory == nullptr) {
        WriteErrorLine(WString(L"** " + parsed.name.str + L": a builtin cannot run in place"));
        return ExitCode(0, 1, HostExit::UnknownCommand);
    }
    return LiveCommand(entry.factory, parsed, pipe, nullptr);
}

int StartBackground(WString const& line, Pipe const& pipe, ExitCode& failure) {
    WString trimmed = line.Trim();
    ParsedCommandLine parsed;
    CommandEntry entry;
    NestingLevel level;
    if (!LookUp(trimmed, &level, parsed, entry, failure)) return -1;
    Runs::Body body;
    if (entry.factory != nullptr) {
        body = CommandBody(entry.factory, parsed, pipe);
    } else {
        // A builtin has no start to get past: it gives its go-ahead at once.
        body = [entry, name = parsed.name, trimmed, pipe, depth = lineDepth](RunState& run) {
            lineDepth = depth;
            Runs::GiveGoAhead(&run);
            return RunBuiltin(entry, name, trimmed, pipe, &run);
        };
    }
    int processId = -1;
    Runs::Request request{parsed.name, trimmed, nullptr, 0, true};
    failure = Runs::Start(request, std::move(body), &processId);
    return failure.number == 0 ? processId : -1;
}

std::vector<WString> CommandNames() {
    std::lock_guard<std::mutex> lock(tableMutex);
    std::vector<WString> names;
    for (auto const& [name, entry] : commandTable) names.emplace_back(name);
    return names;
}

bool ShowHelp(WString const& name, Pipe const& pipe) {
    CommandEntry entry;
    if (!FindCommand(name, entry)) return false;
    if (entry.factory != nullptr) {
        std::unique_ptr<CommandBase> command(entry.factory());
        command->pipe = pipe;
        command->ShowUsage();
        return true;
    }
    WString rest = entry.usage;
    for (std::wstring::size_type start = 0; start <= rest.str.size();) {
        std::wstring::size_type end = rest.str.find(L'\n', start);
        if (end == std::wstring::npos) end = rest.str.size();
        pipe.DoWriteLine(WString(rest.str.substr(start, end - start)));
        start = end + 1;
    }
    return true;
}

std::vector<AutomaticTestEntry> AutomaticTests() {
    std::lock_guard<std::mutex> lock(tableMutex);
    std::vector<AutomaticTestEntry> tests;
    for (auto const& file : testsByFile) tests.insert(tests.end(), file.second.begin(), file.second.end());
    return tests;
}

int StopRun(int processId) {
    return Runs::StopWhere([processId](RunState const& run) { return run.processId == processId; }, true);
}

int StopRunsNamed(WString const& name) {
    return Runs::StopWhere([&name](RunState const& run) { return run.name.str == name.str; }, true);
}

int StopAllRuns(bool includeImmune) {
    return Runs::StopWhere([includeImmune](RunState const& run) { return includeImmune || !run.immune; }, true);
}

bool AwaitSettled(WString const& target, unsigned int milliseconds, int& matched) {
    unsigned int processId = 0;
    bool byId = target.TryGetUInt(processId, 1, 2147483647u, nullptr);
    return Runs::AwaitSettled(
        [&](RunState const& run) {
            return byId ? run.processId == static_cast<int>(processId) : run.name.str == target.str;
        },
        Runs::DeadlineIn(milliseconds), matched);
}

std::vector<RunInfo> LiveRuns() {
    std::vector<RunInfo> runs;
    for (Runs::Snapshot const& run : Runs::Live()) runs.push_back({run.processId, run.name, run.line});
    return runs;
}

int ForegroundRunId() { return Runs::ShellForeground(); }

void Shutdown() {
    // A run that is being stopped may still start another one on its way out.
    while (StopAllRuns(true) > 0) {
    }
    RunThreads::JoinAll();
}

}  // namespace Host

// A command line that a command runs: a foreground child of the command's
// run, or, inside a sandbox, run in place on the sandbox's thread.
ExitCode CommandBase::Run(WString const& commandLine, Pipe const& pipe, unsigned int mode) {
    if (HostSandbox::Active() != nullptr) return Host::RunInPlace(commandLine, pipe);
    return Host::RunLine(commandLine, pipe, hostRun, mode);
}
