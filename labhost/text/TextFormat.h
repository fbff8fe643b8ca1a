// The host's one formatter for wide text: %s (wchar_t const*), %c, %d, %i,
// %u, %x, %X, %%, %f and %.Nf, with an optional width and "-"/"0" flags.
#pragma once

#include <cstdarg>
#include <string>

std::wstring FormatWide(wchar_t const* format, va_list args);
