#include "UsageLogSpy.h"

#include "../frame/DllRegistryUtils.h"

WString UsageLogSpy::GetName() { return WString(L"UsageLogSpy"); }
std::uint32_t UsageLogSpy::GetCommandId() { return 1057; }
char const* UsageLogSpy::GetSourceCodeTimestamp() { return "Fri Sep  8 16:51:25 2023"; }

ExitCode UsageLogSpy::Main(ArgumentList&, Options&) { return ExitCode(0, 1, HostExit::NotImplemented); }

void UsageLogSpy::ShowUsage() { pipe.WriteLine(L"UsageLogSpy: not implemented yet"); }

CommandBase* CreateCommandUsageLogSpy() { return new UsageLogSpy(); }
static AddToCommandVector addUsageLogSpy(CreateCommandUsageLogSpy);
