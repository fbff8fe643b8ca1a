#include "Runs.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <exception>
#include <map>
#include <mutex>

#include "RunThreads.h"
#include "System.h"

struct Waiter {
    std::condition_variable wake;
};

void WaitList::Add(Waiter* waiter) { waiters_.push_back(waiter); }

void WaitList::Remove(Waiter* waiter) {
    auto found = std::find(waiters_.begin(), waiters_.end(), waiter);
    if (found != waiters_.end()) waiters_.erase(found);
}

void WaitList::WakeAll() const {
    for (Waiter* waiter : waiters_) waiter->wake.notify_one();
}

namespace {

struct Resource {
    RunState* holder = nullptr;
    WaitList waiters;
};

// Guarded by runsMutex. A resource stays in the table once named, so that
// the wait lists of its waiters stay where they are.
std::mutex runsMutex;
std::map<int, std::shared_ptr<RunState>> liveRuns;
std::map<std::wstring, Resource> resources;
int lastProcessId = 0;
std::atomic<int> shellForeground{0};

thread_local RunState* currentRun = nullptr;
thread_local Waiter threadWaiter;

ExitCode StopCode(RunState const& run) { return ExitCode(run.commandId, StopKind, StopNumber); }

// The calling thread's waiter, entered in `lists` (and as the run's waiter)
// for as long as this object lives; made and destroyed under runsMutex.
class Registration {
public:
    Registration(std::vector<WaitList*> lists, RunState* run) : lists_(std::move(lists)), run_(run) {
        for (WaitList* list : lists_) list->Add(&threadWaiter);
        if (run_ == nullptr) return;
        run_->waiting = &threadWaiter;
        run_->watchers.WakeAll();  // it may have settled
    }
    ~Registration() {
        for (WaitList* list : lists_) list->Remove(&threadWaiter);
        if (run_ != nullptr) run_->waiting = nullptr;
    }
    Registration(Registration const&) = delete;
    Registration& operator=(Registration const&) = delete;

private:
    std::vector<WaitList*> lists_;
    RunState* run_;
};

// One sleep of the calling thread; false when the deadline came.
bool WaitOnce(std::unique_lock<std::mutex>& lock, Runs::Deadline const& deadline) {
    if (!deadline) {
        threadWaiter.wake.wait(lock);
        return true;
    }
    return threadWaiter.wake.wait_until(lock, *deadline) == std::cv_status::no_timeout;
}

bool AwaitLocked(std::unique_lock<std::mutex>& lock, std::vector<WaitList*> lists, Runs::Deadline const& deadline,
                 std::function<bool()> const& done) {
    RunState* run = currentRun;
    Registration registration(std::move(lists), run);
    for (;;) {
        if (run != nullptr && run->stopRequested) throw StopCode(*run);
        if (done()) return true;
        if (!WaitOnce(lock, deadline)) {
            if (run != nullptr && run->stopRequested) throw StopCode(*run);
            return done();
        }
    }
}

// True when `run` stands below `ancestor` in the chain of waiting parents.
bool IsDescendant(RunState const* run, RunState const* ancestor) {
    if (run == nullptr) return false;
    for (RunState const* up = run->parent; up != nullptr; up = up->parent) {
        if (up == ancestor) return true;
    }
    return false;
}

// True when `from` waits, directly or through the runs it waits for, for `target`.
bool WaitsFor(RunState const* from, RunState const* target) {
    for (std::size_t steps = 0; from != nullptr && steps <= liveRuns.size(); from = from->waitsFor, ++steps) {
        if (from == target) return true;
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

// A stop of `marked` takes along the foreground runs waited for by a marked
// run, unless an immune run stands between them (or is the run itself).
bool GoesWithStop(RunState const& run, std::vector<std::shared_ptr<RunState>> const& marked) {
    if (run.immune) return false;
    for (RunState const* up = run.parent; up != nullptr; up = up->parent) {
        bool upMarked = std::any_of(marked.begin(), marked.end(), [up](auto const& m) { return m.get() == up; });
        if (upMarked) return true;
        if (up->immune) return false;
    }
    return false;
}

void EndRun(RunState& run) {
    std::lock_guard<std::mutex> lock(runsMutex);
    for (std::wstring const& name : run.resources) {
        Resource& resource = resources[name];
        resource.holder = nullptr;
        resource.waiters.WakeAll();
    }
    run.resources.clear();
    run.ended = true;
    run.goAheadGiven = true;
    liveRuns.erase(run.processId);
    for (auto const& [id, other] : liveRuns) {
        if (other->waitsFor == &run) other->waitsFor = nullptr;
        if (other->parent == &run) other->parent = nullptr;
    }
    run.watchers.WakeAll();
}

// Runs the body as the calling thread's current run and leaves its code in
// `code` before the run counts as ended; any failure ends the run alone,
// never the process.
void Execute(std::shared_ptr<RunState> const& run, Runs::Body const& body, ExitCode& code) {
    RunState* outer = currentRun;
    currentRun = run.get();
    try {
        code = body(*run);
    } catch (ExitCode const& thrown) {
        code = thrown;
    } catch (std::exception const& failure) {
        code = Runs::EndedByFailure(Runs::Describe(*run), failure.what());
    } catch (...) {
        code = Runs::EndedByFailure(Runs::Describe(*run), "not an exit code");
    }
    currentRun = outer;
    EndRun(*run);
}

// The parent's wait for its foreground child. A stopped parent leaves at
// once when the child was spared by the stop; otherwise once it has ended.
ExitCode AwaitChild(RunState& parent, std::shared_ptr<RunState> const& child,
                    std::shared_ptr<ExitCode> const& result) {
    std::unique_lock<std::mutex> lock(runsMutex);
    Registration registration({&child->watchers}, &parent);
    while (!child->ended) {
        if (parent.stopRequested && !child->stopRequested) {
            child->parent = nullptr;  // runs on as an orphan
            parent.waitsFor = nullptr;
            throw StopCode(parent);
        }
        WaitOnce(lock, std::nullopt);
    }
    parent.waitsFor = nullptr;
    return *result;
}

}  // namespace

namespace Runs {

Deadline DeadlineIn(unsigned int milliseconds) {
    if (milliseconds == 4294967295u) return std::nullopt;
    return Clock::now() + std::chrono::milliseconds(milliseconds);
}

int ShellForeground() { return shellForeground; }

void Locked(std::function<void()> const& action) {
    std::lock_guard<std::mutex> lock(runsMutex);
    action();
}

void Change(WaitList& list, std::function<void()> const& change) {
    std::lock_guard<std::mutex> lock(runsMutex);
    change();
    list.WakeAll();
}

bool Await(WaitList* list, Deadline deadline, std::function<bool()> const& done) {
    std::unique_lock<std::mutex> lock(runsMutex);
    std::vector<WaitList*> lists;
    if (list != nullptr) lists.push_back(list);
    return AwaitLocked(lock, std::move(lists), deadline, done);
}

void Sleep(unsigned int milliseconds) {
    Await(nullptr, DeadlineIn(milliseconds), [] { return false; });
}

void ThrowIfStopped() {
    std::lock_guard<std::mutex> lock(runsMutex);
    if (currentRun != nullptr && currentRun->stopRequested) throw StopCode(*currentRun);
}

ExitCode Start(Request const& request, Body body, int* processId) {
    auto run = std::make_shared<RunState>();
    run->name = request.name;
    run->line = request.line;
    run->parent = request.background ? nullptr : request.parent;
    run->mode = request.mode;
    {
        std::lock_guard<std::mutex> lock(runsMutex);
        run->processId = ++lastProcessId;
        // A run started by a run that is being stopped is stopped from birth.
        run->stopRequested = run->parent != nullptr && run->parent->stopRequested;
        liveRuns[run->processId] = run;
        // Known before the child can book anything, so that a booking that
        // would wait for its own waiting parent is seen as such.
        if (run->parent != nullptr) run->parent->waitsFor = run.get();
    }
    if (processId != nullptr) *processId = run->processId;

    if (run->parent == nullptr && !request.background) {
        int outer = shellForeground.exchange(run->processId);
        ExitCode code;
        Execute(run, body, code);
        shellForeground = outer;
        return code;
    }
    auto result = std::make_shared<ExitCode>();
    if (!RunThreads::Dispatch([run, body = std::move(body), result] { Execute(run, body, *result); })) {
        EndRun(*run);  // which also clears the parent's waitsFor
        ReportFailure(WString(Runs::Describe(*run).str + L" could not start: no thread could be made for it"));
        return ExitCode(0, 1, HostExit::NoThread);
    }
    if (request.background) return ExitCode(0);
    return AwaitChild(*request.parent, run, result);
}

int StopWhere(std::function<bool(RunState const&)> const& which, bool wait) {
    std::vector<std::shared_ptr<RunState>> marked;
    std::unique_lock<std::mutex> lock(runsMutex);
    for (auto const& [id, run] : liveRuns) {
        if (which(*run)) marked.push_back(run);
    }
    int count = static_cast<int>(marked.size());
    std::vector<std::shared_ptr<RunState>> children;
    for (auto const& [id, run] : liveRuns) {
        if (!which(*run) && GoesWithStop(*run, marked)) children.push_back(run);
    }
    marked.insert(marked.end(), children.begin(), children.end());
    for (auto const& run : marked) {
        run->stopRequested = true;
        if (run->waiting != nullptr) run->waiting->wake.notify_one();
    }
    if (!wait) return count;
    RunState* self = currentRun;
    std::vector<WaitList*> lists;
    for (auto const& run : marked) lists.push_back(&run->watchers);
    AwaitLocked(lock, std::move(lists), std::nullopt, [&] {
        return std::all_of(marked.begin(), marked.end(), [self](auto const& run) {
            return run->ended || run.get() == self || IsDescendant(self, run.get());
        });
    });
    return count;
}

bool Book(RunState* run, WString const& name, Deadline deadline) {
    if (run == nullptr) return true;
    std::unique_lock<std::mutex> lock(runsMutex);
    Resource& resource = resources[name.str];
    RunState* deadlockedWith = nullptr;
    struct NoLongerWaiting {
        RunState* run;
        ~NoLongerWaiting() { run->waitsFor = nullptr; }  // under the lock, also when the wait throws
    };
    bool booked = false;
    {
        NoLongerWaiting clear{run};
        booked = AwaitLocked(lock, {&resource.waiters}, deadline, [&] {
            if (resource.holder == nullptr || MayUseHeldBy(run, resource.holder)) return true;
            run->waitsFor = resource.holder;
            // Only a wait without end can wait forever.
            if (!deadline && WaitsFor(resource.holder, run)) deadlockedWith = resource.holder;
            return deadlockedWith != nullptr;
        });
    }
    if (deadlockedWith != nullptr) {
        WString text(Runs::Describe(*run).str + L" cannot book \"" + name.str + L"\": it is held by " +
                     Runs::Describe(*deadlockedWith).str + L", which waits for " + Runs::Describe(*run).str);
        lock.unlock();
        ReportFailure(text);
        throw ExitCode(0, 1, HostExit::Deadlock);
    }
    if (booked && resource.holder == nullptr) {
        resource.holder = run;
        run->resources.insert(name.str);
    }
    return booked;
}

void Free(RunState* run, WString const& name) {
    std::lock_guard<std::mutex> lock(runsMutex);
    auto found = resources.find(name.str);
    if (run == nullptr || found == resources.end() || found->second.holder != run) return;
    found->second.holder = nullptr;
    run->resources.erase(name.str);
    found->second.waiters.WakeAll();
}

void GiveGoAhead(RunState* run) {
    if (run == nullptr) return;
    Change(run->watchers, [run] { run->goAheadGiven = true; });
}

bool AwaitSettled(std::function<bool(RunState const&)> const& which, Deadline deadline, int& matched) {
    std::unique_lock<std::mutex> lock(runsMutex);
    std::vector<std::shared_ptr<RunState>> runs;
    std::vector<WaitList*> lists;
    for (auto const& [id, run] : liveRuns) {
        if (!which(*run)) continue;
        runs.push_back(run);
        lists.push_back(&run->watchers);
    }
    matched = static_cast<int>(runs.size());
    return AwaitLocked(lock, std::move(lists), deadline, [&] {
        return std::all_of(runs.begin(), runs.end(), [](auto const& run) {
            return run->ended || (run->goAheadGiven && run->waiting != nullptr);
        });
    });
}

std::vector<Snapshot> Live() {
    std::lock_guard<std::mutex> lock(runsMutex);
    std::vector<Snapshot> runs;
    for (auto const& [id, run] : liveRuns) runs.push_back(Snapshot{id, run->name, run->line});
    return runs;
}

unsigned int CountNamed(WString const& name) {
    std::lock_guard<std::mutex> lock(runsMutex);
    unsigned int count = 0;
    for (auto const& [id, run] : liveRuns) {
        if (run->name == name) ++count;
    }
    return count;
}

void ReportFailure(WString const& text) { System::errorLog.WriteLine(L"** %s", text.c_str()); }

WString Describe(RunState const& run) {
    return WString(run.name.str + L" (process " + std::to_wstring(run.processId) + L")");
}

ExitCode EndedByFailure(WString const& who, char const* what) {
    try {
        ReportFailure(WString(who.str + L" ended by an unexpected failure: " + WString::FromUtf8(what).str));
    } catch (...) {
        // Nothing more can be said when even the report fails (memory exhausted).
    }
    return ExitCode(0, 1, HostExit::UnexpectedFailure);
}

}  // namespace Runs
