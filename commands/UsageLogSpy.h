// UsageLogSpy [-d<s>] [-e] [-f<sep>] [-g] [-h] [-y<count>] | UsageLogSpy flush [-w<s>]
//
// The monitor: writes every usage item once, sorted by key, then polls the
// store once per interval and writes a line only for an item whose value (or,
// with -h, history) has changed, at most -y lines between two sleeps. Items
// created later are appended to the watch list; a deleted item ends the run
// with exit number 4. It never ends otherwise: a stop leaves its wait.
//
// The flush form asks a running monitor, through the event
// "UsageLogSpyFlush", to make a whole pass without sleeping, and returns once
// it has: 1000 is the monitor's normal state, 1001 a standing request.
#pragma once

#include <cstdint>

#include "../frame/host/CommandBase.h"
#include "../frame/host/HostServices.h"
#include "../frame/host/UsageLog.h"

class UsageLogSpy : public CommandBase {
public:
    UsageLogSpy();

    WString GetName() override;
    std::uint32_t GetCommandId() override;
    char const* GetSourceCodeTimestamp() override;
    ExitCode Main(ArgumentList& args, Options& options) override;
    void ShowUsage() override;

private:
    // Appends everything of an item's line that follows its key.
    void AddDataFields(WString& line, UsageReference& item, long value, bool showHistory, bool extended) const;
    // The monitor's one sleep: true, at once, while a flush request stands.
    bool SleepIfNotFlushing(OS9Event& flushEvent);
    ExitCode FlushUsageData(ArgumentList& args, Options& options);

    std::int32_t pollIntervalMs;
    WString valueSeparator;
    WString fieldSeparator;
    std::int32_t flushPassesLeft;  // loop turns until a flush request is answered; 0: none
};
