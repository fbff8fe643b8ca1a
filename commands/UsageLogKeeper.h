// UsageLogKeeper <saveInterval> [-b] | UsageLogKeeper -k
//
// The one run that saves the usage store: it commits the running timers and
// saves pending changes once every interval, and keeps the timer
// System.OnTime running for as long as it lives. Whoever holds the resource
// "UsageLogKeeper_R" serves; a newer keeper stops the serving one with
// signal 3 and takes over, and the stopped one ends with exit number 5.
// With -b the keeper is started as a background run through the shell;
// -k commits and saves once and ends.
#pragma once

#include <atomic>
#include <cstdint>

#include "../frame/host/CommandBase.h"

class UsageLogKeeper : public CommandBase {
public:
    WString GetName() override;
    std::uint32_t GetCommandId() override;
    char const* GetSourceCodeTimestamp() override;
    ExitCode Main(ArgumentList& args, Options& options) override;
    void ShowUsage() override;
    void OnExit(ExitCode& exitCode) override;
};

// Process id of the keeper that serves or served last; -1 until one has
// served. Written only by the holder of "UsageLogKeeper_R", read by a run
// whose booking failed. Atomic so that this hand-over of one word is no data
// race; it is still a single 32-bit word in memory.
extern std::atomic<std::int32_t> usageLogKeeperProcessId_gb;
