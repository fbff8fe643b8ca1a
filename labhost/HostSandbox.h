// A throw-away host for one thread. While a HostSandbox is active on a
// thread, the work that thread does on the host's state leaves no trace, so
// the host can see what a command would do on another day:
// - the usage store is a copy of the live one as it was when the sandbox
//   was made, unsaved changes included; it has no file;
// - the host clock answers the sandbox's day, at the time of day it is;
// - log files write nothing: error-log lines are kept for TakeErrorLines,
//   all others are dropped;
// - a command line that a command runs (CommandBase::Run) runs in place, on
//   this thread, inside the sandbox.
// Other threads see the live host all along.
#pragma once

#include <memory>
#include <vector>

#include "HostServices.h"
#include "UsageLog.h"

class UsageStore;

class HostSandbox {
public:
    // Copies `live` and becomes active on the calling thread, on `day` (days
    // since 30-Dec-1899). The destructor gives the thread back to the live host.
    HostSandbox(UsageStore& live, int day);
    ~HostSandbox();
    HostSandbox(HostSandbox const&) = delete;
    HostSandbox& operator=(HostSandbox const&) = delete;

    void SetDay(int day);
    // The error-log lines written since the last call, oldest first.
    std::vector<WString> TakeErrorLines();

    // The sandbox active on the calling thread, or null: the hooks of the
    // store, the clock, the logs and CommandBase::Run ask this.
    static HostSandbox* Active();
    UsageStore& Store() { return *store_; }
    int Day() const { return day_; }
    void HoldBack(LogFile const& log, WString const& line);

private:
    std::unique_ptr<UsageStore> store_;
    int day_;
    std::vector<WString> errorLines_;
    HostSandbox* outer_;  // the sandbox this one hides, if any
};
