// Runs: the host's record of every live run, their waits and their stops.
//
// Where a run executes: a line that the shell itself runs in the foreground
// (no parent run) executes on the calling thread; every other run (a
// foreground child of a run, a background run) on a thread of RunThreads.
//
// Waits: each waiting thread waits on a condition of its own. What can be
// waited for (an event, a resource, a run's go-ahead or end) keeps a WaitList
// of the waiters to wake when it changes, and a stop wakes only the stopped
// run. All of this state is guarded by one lock inside this unit; other
// units change or read it through Change, Locked and Await.
//
// Stops are sticky: the current or next wait of a stopped run throws
// ExitCode(its command id, StopKind, StopNumber), and a run started by a
// stopping run starts stopped. A stop reaches the foreground runs that the
// stopped run waits for, except runs that made themselves immune (only a
// stop of every run, at shutdown, takes those too). A stopped parent whose
// foreground child runs on leaves its wait at once; the child runs on as an
// orphan. Otherwise the parent leaves once the child has ended.
//
// A booking that would wait forever, because the holder of the resource is
// itself waiting (through foreground children and bookings) for the booking
// run, throws ExitCode(0, 1, HostExit::Deadlock) with a line in the error log.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "CommandBase.h"
#include "WString.h"

struct Waiter;

// The waiters to wake when one thing changes. Guarded by the runs' lock.
class WaitList {
public:
    void Add(Waiter* waiter);
    void Remove(Waiter* waiter);
    void WakeAll() const;

private:
    std::vector<Waiter*> waiters_;
};

// Fields other than the constant ones are guarded by the runs' lock.
struct RunState {
    int processId = 0;
    std::uint16_t commandId = 0;  // known once the command exists
    WString name;
    WString line;
    RunState* parent = nullptr;  // the run waiting for this one; null for orphans
    unsigned int mode = 0;       // 2: may use what the parent (and its mode-2 ancestors) booked
    bool stopRequested = false;
    bool immune = false;         // spared by a general kill
    bool goAheadGiven = false;   // sent, or the run has ended
    bool ended = false;
    int priority = 0;
    std::set<std::wstring> resources;  // booked by this run itself
    Waiter* waiting = nullptr;         // its thread's waiter while it waits
    RunState* waitsFor = nullptr;      // the run it waits for now: a child, or a resource's holder
    WaitList watchers;                 // waiting for it to settle or end
};

namespace Runs {

using Clock = std::chrono::steady_clock;
using Deadline = std::optional<Clock::time_point>;

// A deadline `milliseconds` from now; 4294967295 means none.
Deadline DeadlineIn(unsigned int milliseconds);

// Runs `action` under the runs' lock.
void Locked(std::function<void()> const& action);
// Runs `change` under the runs' lock, then wakes the waiters of `list`.
void Change(WaitList& list, std::function<void()> const& change);
// Waits until `done()` (called under the runs' lock) or the deadline, woken
// by changes to `list` (null: nothing but a stop or the deadline wakes it);
// gives done() at the end. Throws the stop code as soon as the calling run
// is stopped. A thread that is no run waits the same way, but unstoppably.
bool Await(WaitList* list, Deadline deadline, std::function<bool()> const& done);
// Waits `milliseconds` (4294967295: until stopped).
void Sleep(unsigned int milliseconds);
// Throws the stop code if the calling run has been stopped: for long work
// that does not wait.
void ThrowIfStopped();

// What a run does once its RunState is live; gives the code.
using Body = std::function<ExitCode(RunState& run)>;

struct Request {
    WString name;
    WString line;
    RunState* parent = nullptr;  // foreground: the run that waits; null for the shell
    unsigned int mode = 0;
    bool background = false;
};
// Foreground: runs `body` and gives its code once it ended. Background:
// starts it and gives ExitCode(0) at once. Either way the run is live when
// Start returns or runs it, so it is seen by ps, kill and AwaitSettled.
// A run for which no thread can be made ends at once with
// ExitCode(0, 1, HostExit::NoThread) and a line in the error log.
ExitCode Start(Request const& request, Body body, int* processId = nullptr);

// The process id of the line that the shell itself runs in the foreground
// now, 0 when there is none: what Ctrl-C at the prompt stops.
int ShellForeground();

// Stops the runs that `which` selects (see the header for who goes with
// them) and, unless `wait` is false, waits until they ended (never for the
// calling run or the runs that wait for it). Gives how many `which` selected.
int StopWhere(std::function<bool(RunState const&)> const& which, bool wait);

// Resources of a run (a null run books for nobody and never waits).
bool Book(RunState* run, WString const& name, Deadline deadline);
void Free(RunState* run, WString const& name);

void GiveGoAhead(RunState* run);
// Waits until every live run that `which` selects has settled: it has given
// its go-ahead and now waits (for time, an event, a resource or a run), or it
// has ended. False when the deadline came first; `matched` counts the runs.
bool AwaitSettled(std::function<bool(RunState const&)> const& which, Deadline deadline, int& matched);

struct Snapshot {
    int processId;
    WString name;
    WString line;
};
std::vector<Snapshot> Live();
unsigned int CountNamed(WString const& name);

// Writes "** TEXT" to the error log for a run that the host had to end.
void ReportFailure(WString const& text);
// "NAME (process N)", as failure reports name a run.
WString Describe(RunState const& run);
// Reports a failure of `who` that is no exit code (memory exhausted, a
// thrown exception) and gives the code the run ends with.
ExitCode EndedByFailure(WString const& who, char const* what);

}  // namespace Runs
