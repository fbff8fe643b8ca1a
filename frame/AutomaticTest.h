// The plug-in's automatic test registry: like the command registry, one
// static AddToAutomaticTestVector per test, selected by file name together
// with the commands (DllRegistrySelectDll calls DllRegistrySelectDllForTests).
#pragma once

#include <string>
#include <vector>

#include "host/AutomaticTestEntry.h"

struct tagTestRecord {
    std::string dllName;  // empty if dladdr failed
    AutomaticTestEntry entry;
};

class AddToAutomaticTestVector {
public:
    AddToAutomaticTestVector(wchar_t const* name, wchar_t const* description, unsigned int flags,
                             void (*function)(TestCommand&));
};

// The tests on offer; null until the first registration.
extern std::vector<AutomaticTestEntry*>* pAutomaticTestVector_gb;

void DllRegistrySelectDllForTests(std::string const& fileName);
// Assigns the test at `index` to `entry`; false when there is none.
bool DllRegistryTryGetNextAutomaticTest(int index, AutomaticTestEntry& entry);
