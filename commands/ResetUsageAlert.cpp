#include "ResetUsageAlert.h"

#include "../frame/DllRegistryUtils.h"

WString ResetUsageAlert::GetName() { return WString(L"ResetUsageAlert"); }
std::uint32_t ResetUsageAlert::GetCommandId() { return 1054; }
char const* ResetUsageAlert::GetSourceCodeTimestamp() { return "Fri Sep  8 16:51:25 2023"; }

ExitCode ResetUsageAlert::Main(ArgumentList& args, Options& options) {
    if (args.count != 1) return ExitCode(1);
    unsigned int alertId = args.At(0).text.GetUInt(3, 0, 0xFFFFFFFF);
    if (options.ContainsUnusedOptions()) return ExitCode(2);
    BookResource(WString(L"UsageSchedule_R"));
    SendSignalGoAheadIfRequested();
    WaitForTimeControlPointIfRequested();

    // Mode 2: the reset run books the schedule resource that this run holds.
    // Its outcome stands in its own logs and output.
    Run(WString::Format(L"GetUsageAlerts c -i%d", static_cast<int>(alertId)), pipe, 2);
    return ExitCode(0);
}

void ResetUsageAlert::ShowUsage() {
    pipe.WriteLine(L"Usage: ResetUsageAlert <alertId> [<options>]");
    pipe.WriteLine(L" Resets a usage alert reported from the GetUsageAlerts command.");
    pipe.WriteLine(L" The id is the first parameter on the lines reported from GetUsageAlerts.");
    pipe.WriteLine(L"Arguments:");
    pipe.WriteLine(L" alertId    The usage alert id to reset.");
}

void ResetUsageAlert::OnExit(ExitCode&) {}

CommandBase* CreateCommandResetUsageAlert() { return new ResetUsageAlert(); }
static AddToCommandVector addResetUsageAlert(CreateCommandResetUsageAlert);
