#include "ResetUsageAlert.h"

#include "../frame/DllRegistryUtils.h"

WString ResetUsageAlert::GetName() { return WString(L"ResetUsageAlert"); }
std::uint32_t ResetUsageAlert::GetCommandId() { return 1054; }
char const* ResetUsageAlert::GetSourceCodeTimestamp() { return "Fri Sep  8 16:51:25 2023"; }

ExitCode ResetUsageAlert::Main(ArgumentList&, Options&) { return ExitCode(0, 1, HostExit::NotImplemented); }

void ResetUsageAlert::ShowUsage() { pipe.WriteLine(L"ResetUsageAlert: not implemented yet"); }

CommandBase* CreateCommandResetUsageAlert() { return new ResetUsageAlert(); }
static AddToCommandVector addResetUsageAlert(CreateCommandResetUsageAlert);
