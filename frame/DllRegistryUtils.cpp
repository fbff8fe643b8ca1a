#include "DllRegistryUtils.h"

#include <dlfcn.h>

#include <cerrno>
#include <vector>

#include "AutomaticTest.h"

namespace {
// Allocated at the first registration and never freed: commands may still be
// created while the file unloads.
std::vector<CommandFactory>* pCommandVector_gb = nullptr;
std::vector<tagCmdRecord>* pCommandRecords_gb = nullptr;
}  // namespace

std::int32_t pendingRegistryErrno_lc = 0;
char const* errorString = "*<error>*";

std::string GetDllFileName(char const* path) {
    std::string text(path);
    std::string::size_type slash = text.rfind('/');
    return slash == std::string::npos ? text : text.substr(slash + 1);
}

std::string GetDllName(void* address) {
    Dl_info info{};
    if (dladdr(address, &info) == 0 || info.dli_fname == nullptr) {
        pendingRegistryErrno_lc = errno != 0 ? errno : ENOENT;
        return std::string();
    }
    return GetDllFileName(info.dli_fname);
}

AddToCommandVector::AddToCommandVector(CommandBase* (*factory)()) {
    if (pCommandVector_gb == nullptr) pCommandVector_gb = new std::vector<CommandFactory>();
    pCommandVector_gb->push_back(factory);
    if (pCommandRecords_gb == nullptr) pCommandRecords_gb = new std::vector<tagCmdRecord>();
    std::string name = GetDllName(reinterpret_cast<void*>(factory));
    pCommandRecords_gb->push_back(tagCmdRecord{name, factory});
}

std::int32_t DllRegistrySelectDll(char const* path) {
    if (pCommandVector_gb != nullptr) {
        delete pCommandVector_gb;
        pCommandVector_gb = new std::vector<CommandFactory>();
    }
    std::string fileName = GetDllFileName(path);
    if (pCommandRecords_gb != nullptr) {
        for (tagCmdRecord const& record : *pCommandRecords_gb) {
            if (record.dllName == fileName) pCommandVector_gb->push_back(record.factory);
        }
    }
    DllRegistrySelectDllForTests(fileName);
    std::int32_t pending = pendingRegistryErrno_lc;
    pendingRegistryErrno_lc = 0;
    return pending;
}

CommandFactory DllRegistryGetNextCommand(unsigned int index) {
    if (pCommandVector_gb == nullptr || index >= pCommandVector_gb->size()) return nullptr;
    return (*pCommandVector_gb)[index];
}
