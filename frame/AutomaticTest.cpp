#include "AutomaticTest.h"

#include "DllRegistryUtils.h"

std::vector<AutomaticTestEntry*>* pAutomaticTestVector_gb = nullptr;

namespace {
std::vector<tagTestRecord>* pTestRecords_gb = nullptr;

void DestroyOffer() {
    for (AutomaticTestEntry* entry : *pAutomaticTestVector_gb) delete entry;
    delete pAutomaticTestVector_gb;
    pAutomaticTestVector_gb = nullptr;
}
}  // namespace

AddToAutomaticTestVector::AddToAutomaticTestVector(wchar_t const* name, wchar_t const* description,
                                                   unsigned int flags, void (*function)(TestCommand&)) {
    if (pAutomaticTestVector_gb == nullptr) pAutomaticTestVector_gb = new std::vector<AutomaticTestEntry*>();
    AutomaticTestEntry entry(name, description, flags, function);
    pAutomaticTestVector_gb->push_back(new AutomaticTestEntry(entry));
    if (pTestRecords_gb == nullptr) pTestRecords_gb = new std::vector<tagTestRecord>();
    std::string dllName = GetDllName(reinterpret_cast<void*>(function));
    pTestRecords_gb->push_back(tagTestRecord{dllName, AutomaticTestEntry(name, description, flags, function)});
}

void DllRegistrySelectDllForTests(std::string const& fileName) {
    if (pAutomaticTestVector_gb != nullptr) DestroyOffer();
    if (pTestRecords_gb == nullptr) return;
    pAutomaticTestVector_gb = new std::vector<AutomaticTestEntry*>();
    for (tagTestRecord const& record : *pTestRecords_gb) {
        if (record.dllName == fileName) pAutomaticTestVector_gb->push_back(new AutomaticTestEntry(record.entry));
    }
}

bool DllRegistryTryGetNextAutomaticTest(int index, AutomaticTestEntry& entry) {
    if (pAutomaticTestVector_gb == nullptr || index < 0) return false;
    if (static_cast<unsigned int>(index) >= pAutomaticTestVector_gb->size()) return false;
    entry = *(*pAutomaticTestVector_gb)[static_cast<unsigned int>(index)];
    return true;
}
