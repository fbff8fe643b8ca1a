#include "Utilities.h"

namespace {
constexpr unsigned int KindMask = 0xF;
constexpr unsigned int ExternalBit = 0x8000;
}  // namespace

wchar_t const* GetUsageLogDataTypeString(unsigned int type) {
    switch (type & KindMask) {
        case 1: return L"Counter";
        case 2: return L"Timer";
        case 4: return L"Date";
        default: return L"Unknown";
    }
}

wchar_t GetUsageLogDataTypeChar(unsigned int type) {
    switch (type & KindMask) {
        case 1: return L'C';
        case 2: return L'T';
        case 4: return L'D';
        default: return L'U';
    }
}

wchar_t const* GetUsageLogLocationString(unsigned int type) {
    return (type & ExternalBit) != 0 ? L"External" : L"Internal";
}

wchar_t GetUsageLogLocationChar(unsigned int type) { return (type & ExternalBit) != 0 ? L'E' : L'I'; }

wchar_t const* GetDirtyOrSavedString(bool dirty) { return dirty ? L"Dirty" : L"Saved"; }
