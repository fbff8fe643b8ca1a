#include "UsageLogKeeper.h"

#include "../frame/DllRegistryUtils.h"
#include "../frame/host/System.h"

std::atomic<std::int32_t> usageLogKeeperProcessId_gb{-1};

namespace {
wchar_t const* const KeeperResource = L"UsageLogKeeper_R";
constexpr unsigned int StopSignal = 3;
constexpr unsigned int TakeOverPauseMs = 500;
}  // namespace

WString UsageLogKeeper::GetName() { return WString(L"UsageLogKeeper"); }
std::uint32_t UsageLogKeeper::GetCommandId() { return 1052; }
char const* UsageLogKeeper::GetSourceCodeTimestamp() { return "Fri Sep  8 16:51:25 2023"; }

ExitCode UsageLogKeeper::Main(ArgumentList& args, Options& options) {
    if (options.TryGetFlag(L"k", 7)) {
        // A single save beside whatever keeper serves: books nothing.
        if (args.count != 0) return ExitCode(8);
        if (options.ContainsUnusedOptions()) return ExitCode(2);
        System::usage.CommitAllTimers();
        System::usage.SaveChanges();
        return ExitCode(0);
    }
    if (args.count != 1) return ExitCode(1);
    unsigned int intervalSeconds = args.At(0).text.GetUInt(3, 3, 43200);
    bool background = options.TryGetFlag(L"b", 6);
    if (options.ContainsUnusedOptions()) return ExitCode(2);
    MakeMeImmuneAgainstKillAll();

    while (!TryBookResource(KeeperResource, 100)) {
        std::int32_t servingKeeper = usageLogKeeperProcessId_gb.load(std::memory_order_relaxed);
        // Held, but not by any keeper we know of: nobody to stop.
        if (servingKeeper == -1) return ExitCode(4);
        SendSignal(servingKeeper, StopSignal, nullptr);
        SleepAbortable(TakeOverPauseMs);
    }

    if (background) {
        // Hand the resource on to the run that the shell starts; it takes
        // the same way without -b and serves.
        FreeBookedResource(KeeperResource);
        Run(WString::Format(L"SHELL -b %s %d", GetName().str.c_str(), intervalSeconds), pipe, 0);
        return ExitCode(0);
    }

    usageLogKeeperProcessId_gb.store(GetProcessId(), std::memory_order_relaxed);
    SendSignalGoAheadIfRequested();
    WaitForTimeControlPointIfRequested();
    // Books the keeper's lifetime into System.OnTime, also when a stop unwinds Main.
    UsageTimer onTime = System::usage.CreateAutomaticTimer(L"System.OnTime");
    for (;;) {
        SleepWithoutSimulationMode(1000 * intervalSeconds);
        System::usage.CommitAllTimers();
        System::usage.SaveChanges();
    }
}

void UsageLogKeeper::ShowUsage() {
    pipe.WriteLine(L"Usage: UsageLogKeeper <saveInterval> [<options>]");
    pipe.WriteLine(L" Saves the usage log with this interval if there are any changes.");
    pipe.WriteLine(L"Arguments:");
    pipe.WriteLine(L"  <saveInterval>  The save interval in seconds. ");
    pipe.WriteLine(L"Options:");
    pipe.WriteLine(L"  -b   Run command in background, i.e. as orphan");
    pipe.WriteLine(L"  -k   Keep/save current data. Usage: UsageLogKeeper -k");
}

void UsageLogKeeper::OnExit(ExitCode& exitCode) {
    // A keeper that a newer one replaced was stopped; say so with a number of its own.
    if (exitCode.commandId == GetCommandId() && exitCode.kind == StopKind && exitCode.number == StopNumber) {
        exitCode.kind = 0;
        exitCode.number = 5;
    }
}

CommandBase* CreateCommandUsageLogKeeper() { return new UsageLogKeeper(); }
static AddToCommandVector addUsageLogKeeper(CreateCommandUsageLogKeeper);
