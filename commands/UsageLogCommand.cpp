#include "UsageLogCommand.h"

#include "../frame/DllRegistryUtils.h"

WString UsageLogCommand::GetName() { return WString(L"UsageLog"); }
std::uint32_t UsageLogCommand::GetCommandId() { return 1051; }
char const* UsageLogCommand::GetSourceCodeTimestamp() { return "Fri May 17 08:50:23 2024"; }

ExitCode UsageLogCommand::Main(ArgumentList&, Options&) { return ExitCode(0, 1, HostExit::NotImplemented); }

void UsageLogCommand::ShowUsage() { pipe.WriteLine(L"UsageLog: not implemented yet"); }

CommandBase* CreateCommandUsageLogCommand() { return new UsageLogCommand(); }
static AddToCommandVector addUsageLogCommand(CreateCommandUsageLogCommand);
