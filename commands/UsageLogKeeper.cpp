#include "UsageLogKeeper.h"

#include "../frame/DllRegistryUtils.h"

WString UsageLogKeeper::GetName() { return WString(L"UsageLogKeeper"); }
std::uint32_t UsageLogKeeper::GetCommandId() { return 1052; }
char const* UsageLogKeeper::GetSourceCodeTimestamp() { return "Fri Sep  8 16:51:25 2023"; }

ExitCode UsageLogKeeper::Main(ArgumentList&, Options&) { return ExitCode(0, 1, HostExit::NotImplemented); }

void UsageLogKeeper::ShowUsage() { pipe.WriteLine(L"UsageLogKeeper: not implemented yet"); }

CommandBase* CreateCommandUsageLogKeeper() { return new UsageLogKeeper(); }
static AddToCommandVector addUsageLogKeeper(CreateCommandUsageLogKeeper);
