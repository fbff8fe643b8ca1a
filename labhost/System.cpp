// The host's global objects and the data folder they live in.
#include "System.h"

#include <mutex>

#include "runs/Runs.h"

namespace System {
UsageLog usage;
ConfigFileData config;
StatusTable status;
LogFile errorLog(WString(), WString(L"error"), 1048576);
LogFile runLog(WString(), WString(L"run"), 1048576);
}  // namespace System

namespace {
// The status table's one value at start.
struct InitialStatus {
    InitialStatus() { System::status.Set(WString(L"InfoDateTimeValid"), StatusTable::Value(true)); }
} initialStatus;

std::mutex dataDirectoryMutex;
WString dataDirectory(L".");
}  // namespace

namespace System {

void SetDataDirectory(WString const& path) {
    std::lock_guard<std::mutex> lock(dataDirectoryMutex);
    dataDirectory = path;
}

WString GetDataDirectory() {
    std::lock_guard<std::mutex> lock(dataDirectoryMutex);
    return dataDirectory;
}

WString GetLogDirectory() { return WString(GetDataDirectory().str + L"/log"); }

void AddDataDirectoryIfNeeded(WString& path) {
    if (path.str.find(L'/') != std::wstring::npos) return;
    path = WString(GetDataDirectory().str + L"/" + path.str);
}

unsigned int GetCommandRunningCount(WString const& name) { return Runs::CountNamed(name); }

}  // namespace System
