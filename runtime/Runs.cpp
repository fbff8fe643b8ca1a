#include "Runs.h"

#include <map>
#include <thread>

namespace {
std::mutex hostMutex;
std::condition_variable hostCondition;

// Guarded by hostMutex.
std::map<int, std::shared_ptr<RunState>> liveRuns;
std::map<std::wstring, RunState*> resourceHolders;
int lastProcessId = 0;

// Threads of background runs; joined once their runs have ended, and all
// of them when the host ends, so that no thread outlives the host.
// A process that ends without Host::Shutdown lets go of the threads left.
struct BackgroundThreads : std::vector<std::pair<std::shared_ptr<RunState>, std::thread>> {
    ~BackgroundThreads() {
        for (auto& entry : *this) {
            if (entry.second.joinable()) entry.second.detach();
        }
    }
};
std::mutex backgroundMutex;
BackgroundThreads backgroundThreads;

thread_local RunState* currentRun = nullptr;

ExitCode StopCode(RunState const& run) { return ExitCode(run.commandId, StopKind, StopNumber); }

// True when `run` stands below `ancestor` in the chain of waiting parents.
bool IsDescendant(RunState const* run, RunState const* ancestor) {
    if (run == nullptr) return false;
    for (RunState const* up = run->parent; up != nullptr; up = up->parent) {
        if (up == ancestor) return true;
    }
    return false;
}

// A mode-2 run may use what its parent holds, and so on up while the runs
// in between were started with mode 2 as well.
bool MayUseHeldBy(RunState const* run, RunState const* holder) {
    for (RunState const* borrower = run; borrower != nullptr; borrower = borrower->parent) {
        if (borrower == holder) return true;
        if (borrower->mode != 2) return false;
    }
    return false;
}

void EndRun(RunState& run) {
    std::lock_guard<std::mutex> lock(hostMutex);
    for (auto it = resourceHolders.begin(); it != resourceHolders.end();) {
        it = it->second == &run ? resourceHolders.erase(it) : std::next(it);
    }
    run.resources.clear();
    run.ended = true;
    run.goAheadGiven = true;
    liveRuns.erase(run.processId);
    hostCondition.notify_all();
}

void RunOnThread(std::shared_ptr<RunState> run, Runs::Body const& body, ExitCode& code) {
    currentRun = run.get();
    // A body that lets a code escape (a stopped builtin, a failing test) ends
    // its run with that code like any other.
    try {
        code = body(*run);
    } catch (ExitCode const& thrown) {
        code = thrown;
    }
    currentRun = nullptr;
    EndRun(*run);
}
void JoinEndedBackgroundThreads() {
    std::vector<std::thread> ended;
    {
        std::lock_guard<std::mutex> lock(backgroundMutex);
        std::lock_guard<std::mutex> hostLock(hostMutex);
        for (auto entry = backgroundThreads.begin(); entry != backgroundThreads.end();) {
            if (!entry->first->ended) {
                ++entry;
                continue;
            }
            ended.push_back(std::move(entry->second));
            entry = backgroundThreads.erase(entry);
        }
    }
    for (std::thread& thread : ended) thread.join();
}
}  // namespace

namespace Runs {

std::mutex& Mutex() { return hostMutex; }

void NotifyAll() { hostCondition.notify_all(); }

RunState* Current() { return currentRun; }

void ThrowIfStopped() {
    std::lock_guard<std::mutex> lock(hostMutex);
    if (currentRun != nullptr && currentRun->stopRequested) throw StopCode(*currentRun);
}

Deadline DeadlineIn(unsigned int milliseconds) {
    if (milliseconds == 4294967295u) return std::nullopt;
    return Clock::now() + std::chrono::milliseconds(milliseconds);
}

bool WaitUntil(std::unique_lock<std::mutex>& lock, Deadline deadline, std::function<bool()> const& done) {
    RunState* run = currentRun;
    for (;;) {
        if (run != nullptr && run->stopRequested) throw StopCode(*run);
        if (done()) return true;
        if (!deadline) {
            hostCondition.wait(lock);
        } else if (hostCondition.wait_until(lock, *deadline) == std::cv_status::timeout) {
            if (run != nullptr && run->stopRequested) throw StopCode(*run);
            return done();
        }
    }
}

ExitCode Start(Request const& request, Body body, int* processId) {
    auto run = std::make_shared<RunState>();
    run->name = request.name;
    run->line = request.line;
    run->parent = request.background ? nullptr : request.parent;
    run->mode = request.mode;
    run->goAheadRequested = request.askGoAhead;
    {
        std::lock_guard<std::mutex> lock(hostMutex);
        run->processId = ++lastProcessId;
        // A run started by a run that is being stopped is stopped from birth.
        run->stopRequested = run->parent != nullptr && run->parent->stopRequested;
        liveRuns[run->processId] = run;
    }
    if (processId != nullptr) *processId = run->processId;

    if (!request.background) {
        ExitCode code;
        std::thread thread(RunOnThread, run, std::cref(body), std::ref(code));
        thread.join();
        return code;
    }

    JoinEndedBackgroundThreads();
    {
        std::lock_guard<std::mutex> lock(backgroundMutex);
        backgroundThreads.emplace_back(run, std::thread([run, body = std::move(body)] {
                                           ExitCode ignored;
                                           RunOnThread(run, body, ignored);
                                       }));
    }

    if (request.askGoAhead) {
        std::unique_lock<std::mutex> lock(hostMutex);
        WaitUntil(lock, std::nullopt, [&] { return run->goAheadGiven; });
    }
    return ExitCode(0);
}

int StopWhere(std::function<bool(RunState const&)> const& which, bool wait) {
    std::vector<std::shared_ptr<RunState>> marked;
    std::unique_lock<std::mutex> lock(hostMutex);
    for (auto const& [id, run] : liveRuns) {
        if (which(*run)) marked.push_back(run);
    }
    int count = static_cast<int>(marked.size());
    // The runs that a stopped run waits for go with it.
    for (auto const& [id, run] : liveRuns) {
        for (size_t i = 0; i < static_cast<size_t>(count); ++i) {
            if (IsDescendant(run.get(), marked[i].get())) {
                marked.push_back(run);
                break;
            }
        }
    }
    for (auto const& run : marked) run->stopRequested = true;
    hostCondition.notify_all();
    if (wait) {
        RunState* self = currentRun;
        WaitUntil(lock, std::nullopt, [&] {
            for (auto const& run : marked) {
                if (!run->ended && run.get() != self && !IsDescendant(self, run.get())) return false;
            }
            return true;
        });
        lock.unlock();
        // Whoever waited for a stop takes the threads of the ended runs with it.
        JoinEndedBackgroundThreads();
    }
    return count;
}

void Book(RunState* run, WString const& name, Deadline deadline, bool& booked) {
    if (run == nullptr) {
        booked = true;
        return;
    }
    std::unique_lock<std::mutex> lock(hostMutex);
    booked = WaitUntil(lock, deadline, [&] {
        auto holder = resourceHolders.find(name.str);
        return holder == resourceHolders.end() || MayUseHeldBy(run, holder->second);
    });
    if (booked && resourceHolders.find(name.str) == resourceHolders.end()) {
        resourceHolders[name.str] = run;
        run->resources.insert(name.str);
    }
}

void Free(RunState* run, WString const& name) {
    std::lock_guard<std::mutex> lock(hostMutex);
    auto holder = resourceHolders.find(name.str);
    if (holder == resourceHolders.end() || holder->second != run) return;
    resourceHolders.erase(holder);
    if (run != nullptr) run->resources.erase(name.str);
    hostCondition.notify_all();
}

void GiveGoAhead(RunState* run) {
    if (run == nullptr) return;
    std::lock_guard<std::mutex> lock(hostMutex);
    run->goAheadGiven = true;
    hostCondition.notify_all();
}

std::vector<Snapshot> Live() {
    std::lock_guard<std::mutex> lock(hostMutex);
    std::vector<Snapshot> runs;
    for (auto const& [id, run] : liveRuns) runs.push_back(Snapshot{id, run->name, run->line});
    return runs;
}

unsigned int CountNamed(WString const& name) {
    std::lock_guard<std::mutex> lock(hostMutex);
    unsigned int count = 0;
    for (auto const& [id, run] : liveRuns) {
        if (run->name == name) ++count;
    }
    return count;
}

void JoinBackground() {
    for (;;) {
        std::vector<std::pair<std::shared_ptr<RunState>, std::thread>> threads;
        {
            std::lock_guard<std::mutex> lock(backgroundMutex);
            threads.swap(backgroundThreads);
        }
        if (threads.empty()) return;
        for (auto& entry : threads) entry.second.join();
    }
}

}  // namespace Runs
