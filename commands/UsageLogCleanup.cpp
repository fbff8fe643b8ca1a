#include "UsageLogCleanup.h"

#include "../frame/DllRegistryUtils.h"

WString UsageLogCleanup::GetName() { return WString(L"UsageLogCleanup"); }
std::uint32_t UsageLogCleanup::GetCommandId() { return 1090; }
char const* UsageLogCleanup::GetSourceCodeTimestamp() { return "Tue Jan  9 18:30:25 2024"; }

ExitCode UsageLogCleanup::Main(ArgumentList&, Options&) { return ExitCode(0, 1, HostExit::NotImplemented); }

void UsageLogCleanup::ShowUsage() { pipe.WriteLine(L"UsageLogCleanup: not implemented yet"); }

CommandBase* CreateCommandUsageLogCleanup() { return new UsageLogCleanup(); }
static AddToCommandVector addUsageLogCleanup(CreateCommandUsageLogCleanup);
