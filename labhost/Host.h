// The host process: the data folder, the loaded plug-in files, the command
// table (plug-in commands and the shell's builtins) and the running of
// command lines. labshell is a thin front over this; tests use it in-process.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "CommandBase.h"
#include "HostServices.h"
#include "WString.h"
#include "services/StandardStreams.h"

class AutomaticTestEntry;

namespace Host {

// Creates DIR and DIR/log when missing, takes the folder's lock (one host per
// data folder; the folder held before is let go), opens (or creates)
// DIR/usage.db and reads DIR/config.ini. False with a message when the folder
// is in use, or the folder, the store or the configuration cannot be used;
// the store's file is then left untouched.
bool OpenDataFolder(WString const& dir, std::string& error);

// dlopen with global symbols, then the registry's calling order: select the
// file, take its factories and its automatic tests. A non-zero selection
// result goes to `warning`; the file's commands are still offered.
bool LoadPlugin(std::string const& path, std::string& error, std::string& warning);

// Adds a command of the host's own (by its GetName), as a plug-in's would be.
void AddCommand(CommandFactory factory);

// A builtin of the shell: gets the words of its line after the name.
struct BuiltinContext {
    std::vector<WString> words;  // the words after the name, quotes removed
    WString restOfLine;          // the raw text after the name, trimmed
    Pipe pipe;
    RunState* caller;            // the run that ran the line, or null for the shell
};
using Builtin = std::function<ExitCode(BuiltinContext&)>;
// "-?" anywhere on a builtin's line shows its help and ends with 0, as for a
// plug-in command. A builtin that runs the rest of its line as a command line
// (SHELL) owns only the options in front of that line.
enum class BuiltinWords { AllOwn, OptionsThenCommandLine };
void AddBuiltin(WString const& name, WString const& usage, Builtin builtin,
                BuiltinWords words = BuiltinWords::AllOwn);

// Command lines run by command lines: deeper ones are refused with
// HostExit::NestedTooDeep and a line in the error log.
constexpr int MaxNesting = 64;

// Runs a command line in the foreground and gives its final code. `parent`
// is the run that asked (CommandBase::Run, a builtin of a run), or null for
// the shell, whose lines run on the calling thread.
ExitCode RunLine(WString const& line, Pipe const& pipe, RunState* parent = nullptr, unsigned int mode = 0);
// Runs a plug-in command's line on the calling thread, outside any run: it
// books, waits and is stopped for nobody. Gives its final code; a builtin
// or an unknown name gives 127.
ExitCode RunInPlace(WString const& line, Pipe const& pipe);
// Starts a command line as a background run (an orphan) and returns at
// once: its process id, or -1 with the failure's code in `failure`. Every
// run's go-ahead is noted, so AwaitSettled can wait for it.
int StartBackground(WString const& line, Pipe const& pipe, ExitCode& failure);
// Waits until the run with that process id, or every live run of that
// command name, has settled: it has given its go-ahead and now waits, or it
// has ended. False when `milliseconds` passed first. `matched` counts the
// runs waited for.
bool AwaitSettled(WString const& target, unsigned int milliseconds, int& matched);

// Names of every command, plug-in ones and builtins, sorted; help of one.
std::vector<WString> CommandNames();
bool ShowHelp(WString const& name, Pipe const& pipe);

// The automatic tests that the loaded files offer.
std::vector<AutomaticTestEntry> AutomaticTests();

// Stops runs like the shell's kill: one by id, all of a name, or all that are
// not immune (generalKill) / all (generalKill false with everyone true).
// Waits until they have ended. Gives how many were stopped.
int StopRun(int processId);
int StopRunsNamed(WString const& name);
int StopAllRuns(bool includeImmune);

struct RunInfo {
    int processId;
    WString name;
    WString line;
};
std::vector<RunInfo> LiveRuns();

// The process id of the run that a line of the shell itself (no parent) is
// running in the foreground, 0 when there is none: what Ctrl-C stops.
int ForegroundRunId();

// Ends the host: stops every run and waits for their OnExit.
void Shutdown();

}  // namespace Host
