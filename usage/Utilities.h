// Text of a usage item's type word and of its dirty flag.
// The kind is compared as a whole (type & 0xF), so 3 is "Unknown", not a mix.
#pragma once

wchar_t const* GetUsageLogDataTypeString(unsigned int type);  // Counter, Timer, Date, Unknown
wchar_t GetUsageLogDataTypeChar(unsigned int type);           // C, T, D, U
wchar_t const* GetUsageLogLocationString(unsigned int type);  // External, Internal
wchar_t GetUsageLogLocationChar(unsigned int type);           // E, I
wchar_t const* GetDirtyOrSavedString(bool dirty);             // Dirty, Saved
