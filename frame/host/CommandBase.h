// What a command is to the host: the base class of every command, the parsed
// command line (Options, ArgumentList, Argument) and the output channel (Pipe).
//
// Life of a run: the host creates the command through its factory, parses the
// line, calls Main, then OnExit with the final code (also when an ExitCode was
// thrown), then deletes the command. Every run has a thread of its own.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "ExitCode.h"
#include "WString.h"

class Object {
public:
    virtual ~Object();
};

class CommandReference;
class PauseArgument;
struct RunState;  // the host's record of one run

// Where a command's lines go. Each line is written whole, so lines of runs
// that write at the same time never mix within a line.
class Pipe {
public:
    using Sink = std::function<void(WString const& line)>;

    Pipe();                       // standard output
    explicit Pipe(Sink sink);     // anywhere else (tests, captures)

    void WriteLine(wchar_t const* format, ...) const;
    void DoWriteLine(WString line) const;

private:
    std::shared_ptr<Sink> sink_;  // null: standard output
};

// The options of a command line: "-x<value>" words, one letter each.
// A query marks its option used. A malformed option (a flag with a value, a
// value out of range or of the wrong form, an option given twice) throws
// ExitCode(exitNumber) whether or not the caller looks at the result.
class Options {
public:
    struct Entry {
        wchar_t letter;
        WString value;
        bool used;
    };

    Options();
    void Add(wchar_t letter, WString const& value);  // host: while parsing

    bool TryGetFlag(WString const& letter, unsigned int exitNumber);
    bool TryGetString(WString const& letter, unsigned int exitNumber, WString& value, int smallestLength, int largestLength);
    bool TryGetInt(WString const& letter, unsigned int exitNumber, int& value, int smallest, int largest);
    bool TryGetUInt(WString const& letter, unsigned int exitNumber, unsigned int& value, unsigned int smallest, unsigned int largest);
    bool TryGetDouble(WString const& letter, unsigned int exitNumber, double& value, double smallest, double largest);
    bool ContainsUnusedOptions() const;

    bool Has(wchar_t letter) const;
    std::vector<Entry> const& Entries() const { return entries_; }

private:
    Entry* Find(WString const& letter, unsigned int exitNumber);
    std::vector<Entry> entries_;
};

class Argument {
public:
    WString text;

    explicit Argument(WString const& value);
    // Throws ExitCode(exitNumber) when the length is outside the bounds.
    WString const& GetString(unsigned int exitNumber, unsigned int smallestLength, unsigned int largestLength) const;
    // Throws ExitCode(exitNumber) for no integer or one outside the bounds.
    int GetInt(unsigned int exitNumber, int smallest, int largest) const;
};

class ArgumentList {
public:
    unsigned int count;

    ArgumentList();
    void Add(WString const& value);  // host: while parsing
    Argument& At(unsigned int index);

private:
    std::vector<Argument> items_;
};

// Splits a command line into its words (blanks separate, double quotes group)
// and sorts them into the command name, options and arguments.
struct ParsedCommandLine {
    WString name;
    ArgumentList arguments;
    Options options;
    bool wantsHelp = false;  // "-?" stood on the line
};
bool TryParseCommandLine(WString const& line, ParsedCommandLine& parsed);
// "-" and a letter or "?", then the option's value: how every command's options look.
bool IsOptionWord(std::wstring const& word);
std::vector<WString> SplitCommandWords(WString const& line);

class CommandBase {
public:
    CommandBase();

    virtual WString GetName() = 0;
    virtual std::uint32_t GetCommandId() = 0;
    virtual char const* GetSourceCodeTimestamp() = 0;
    virtual unsigned int GetCommandType();
    virtual ExitCode Main(ArgumentList& args, Options& options) = 0;
    virtual void ShowUsage() = 0;
    virtual void OnStart(ArgumentList& args, Options& options);
    virtual void OnExit(ExitCode& exitCode);
    virtual bool HandleStandardOptions(Options& options);
    virtual void OnAbort(bool& handled);
    virtual void OnPause(bool pause, PauseArgument& argument);
    virtual void SignalHandler(CommandReference const& sender, unsigned int signal, Object* argument);
    virtual ~CommandBase();

    Pipe pipe;
    std::uint32_t commandFlags;
    std::int32_t eventContext;

    RunState* hostRun;  // set by the host before OnStart; null outside a run

protected:
    void SendSignalGoAheadIfRequested();
    void WaitForTimeControlPointIfRequested();
    // Runs a command line in the shell and gives its result. Mode 2 lets the
    // started run book resources that this run holds.
    ExitCode Run(WString const& commandLine, Pipe const& pipe, unsigned int mode);
    void BookResource(WString const& name);
    bool TryBookResource(WString const& name, unsigned int waitMs);
    void FreeBookedResource(WString const& name);
    void SleepAbortable(unsigned int milliseconds);
    void SleepWithoutSimulationMode(unsigned int milliseconds);  // 4294967295: no end
    void SetThreadPriority(int priority);
    void MakeMeImmuneAgainstKillAll();
    int GetProcessId();
    void SendSignal(int processId, unsigned int signal, Object* argument) const;
};

using CommandFactory = CommandBase* (*)();
