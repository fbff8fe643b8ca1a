// Runs: the host's record of every live run and the one lock and condition
// that all of the host's waits use.
//
// Every run has a RunState and a thread of its own. A thread-local "current
// run" tells a wait whose stop it must watch. Any change of run state
// (a stop, a freed resource, a go-ahead, an event value, an ended run)
// notifies the one condition, and each waiter re-checks what it waits for.
// A stop is sticky: the current or next wait of the stopped run throws
// ExitCode(its command id, StopKind, StopNumber).
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "CommandBase.h"
#include "WString.h"

struct RunState {
    int processId = 0;
    std::uint16_t commandId = 0;  // known once the command exists
    WString name;
    WString line;
    RunState* parent = nullptr;  // the run that waits for this one; null for orphans
    unsigned int mode = 0;       // 2: may use what the parent (and its mode-2 ancestors) booked
    bool stopRequested = false;
    bool immune = false;          // skipped by a general kill
    bool goAheadRequested = false;
    bool goAheadGiven = false;    // sent, or the run has ended
    bool ended = false;
    int priority = 0;
    std::set<std::wstring> resources;  // booked by this run itself
};

namespace Runs {

using Clock = std::chrono::steady_clock;
using Deadline = std::optional<Clock::time_point>;

std::mutex& Mutex();
// Every change of run state notifies this condition (notify_all).
void NotifyAll();

RunState* Current();

// Waits under `lock` (on Mutex()) until `done()` or the deadline; gives
// done() at the end. Throws the stop code as soon as the current run is
// stopped, before looking at `done`.
bool WaitUntil(std::unique_lock<std::mutex>& lock, Deadline deadline, std::function<bool()> const& done);
// A deadline `milliseconds` from now; 4294967295 means none.
Deadline DeadlineIn(unsigned int milliseconds);
// Throws the stop code if the current run has been stopped.
void ThrowIfStopped();

// What a run does on its thread once its RunState is live; gives the code.
using Body = std::function<ExitCode(RunState& run)>;

struct Request {
    WString name;
    WString line;
    RunState* parent = nullptr;
    unsigned int mode = 0;
    bool background = false;
    bool askGoAhead = false;
};
// Foreground: runs `body` on a new thread and gives its code when it ended.
// Background: starts it and gives ExitCode(0) and its process id; with
// askGoAhead it returns once the run gave its go-ahead or ended.
ExitCode Start(Request const& request, Body body, int* processId = nullptr);

// Stops: marks the runs and, unless `wait` is false, waits until they ended
// (never for the calling run itself). Gives how many were marked.
int StopWhere(std::function<bool(RunState const&)> const& which, bool wait);

// Resources of the current run (a null run books for nobody and never waits).
void Book(RunState* run, WString const& name, Deadline deadline, bool& booked);
void Free(RunState* run, WString const& name);

void GiveGoAhead(RunState* run);

struct Snapshot {
    int processId;
    WString name;
    WString line;
};
std::vector<Snapshot> Live();
unsigned int CountNamed(WString const& name);
// Waits for every background thread to finish (after they were stopped).
void JoinBackground();

}  // namespace Runs
