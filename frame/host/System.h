// The host's global objects and functions, alive while a plug-in is loaded.
#pragma once

#include "HostServices.h"
#include "StatusTable.h"
#include "UsageLog.h"
#include "WString.h"

namespace System {
extern UsageLog usage;
extern ConfigFileData config;
extern StatusTable status;
extern LogFile errorLog;
extern LogFile runLog;

// Puts the data folder in front of a name that holds no "/".
void AddDataDirectoryIfNeeded(WString& path);
// Runs of the named command that exist now, the caller's own included.
unsigned int GetCommandRunningCount(WString const& name);

// Host side.
void SetDataDirectory(WString const& path);
WString GetDataDirectory();
WString GetLogDirectory();
}  // namespace System
