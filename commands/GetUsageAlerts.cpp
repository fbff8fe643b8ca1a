#include "GetUsageAlerts.h"

#include "../frame/DllRegistryUtils.h"

WString GetUsageAlerts::GetName() { return WString(L"GetUsageAlerts"); }
std::uint32_t GetUsageAlerts::GetCommandId() { return 1053; }
char const* GetUsageAlerts::GetSourceCodeTimestamp() { return "Fri Feb  9 15:20:23 2024"; }

ExitCode GetUsageAlerts::Main(ArgumentList&, Options&) { return ExitCode(0, 1, HostExit::NotImplemented); }

void GetUsageAlerts::ShowUsage() { pipe.WriteLine(L"GetUsageAlerts: not implemented yet"); }

CommandBase* CreateCommandGetUsageAlerts() { return new GetUsageAlerts(); }
static AddToCommandVector addGetUsageAlerts(CreateCommandGetUsageAlerts);
