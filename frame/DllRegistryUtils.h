// The plug-in's command registry. Each command's unit holds one static
// AddToCommandVector whose constructor registers the command's factory
// together with the file name of the shared file that holds it. The host
// selects a file by name and then asks for its factories by index.
//
// The registry functions are exported and called by their exported names, so
// several plug-in files built on this frame reach one registry in one process
// (the first one loaded with global symbols); the file name keeps their
// commands apart. Registration and selection run on the loading thread only.
#pragma once

#include <cstdint>
#include <string>

#include "host/CommandBase.h"

struct tagCmdRecord {
    std::string dllName;  // empty if dladdr failed
    CommandFactory factory;
};

class AddToCommandVector {
public:
    explicit AddToCommandVector(CommandBase* (*factory)());
};

// The errno of the last failed dladdr, reported by the next selection.
extern std::int32_t pendingRegistryErrno_lc;

// File name (without folders) of the shared file that holds `address`.
std::string GetDllName(void* address);
// What follows the last "/" of `path`; the whole path if it has none.
std::string GetDllFileName(char const* path);

// Makes the commands (and automatic tests) of the named file the ones on
// offer; gives 0 or the pending errno of a failed dladdr.
std::int32_t DllRegistrySelectDll(char const* path);
// The factory at `index` of the commands on offer; null past the end.
CommandFactory DllRegistryGetNextCommand(unsigned int index);

// Exported text that no command reads.
extern char const* errorString;
