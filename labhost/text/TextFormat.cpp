#include "TextFormat.h"

#include <cstdio>

namespace {
void Pad(std::wstring& out, std::wstring const& field, int width, bool left, bool zero) {
    int missing = width - static_cast<int>(field.size());
    if (missing <= 0) {
        out += field;
    } else if (left) {
        out += field;
        out.append(static_cast<size_t>(missing), L' ');
    } else if (zero && !field.empty() && field[0] == L'-') {
        out += L'-';
        out.append(static_cast<size_t>(missing), L'0');
        out.append(field, 1, std::wstring::npos);
    } else {
        out.append(static_cast<size_t>(missing), zero ? L'0' : L' ');
        out += field;
    }
}

std::wstring Widen(char const* text) {
    std::wstring wide;
    for (; *text != '\0'; ++text) wide += static_cast<wchar_t>(static_cast<unsigned char>(*text));
    return wide;
}
}  // namespace

std::wstring FormatWide(wchar_t const* format, va_list args) {
    std::wstring out;
    if (format == nullptr) return out;
    for (wchar_t const* p = format; *p != L'\0'; ++p) {
        if (*p != L'%') {
            out += *p;
            continue;
        }
        ++p;
        if (*p == L'%') {
            out += L'%';
            continue;
        }
        bool left = false, zero = false;
        for (; *p == L'-' || *p == L'0'; ++p) (*p == L'-' ? left : zero) = true;
        int width = 0;
        for (; *p >= L'0' && *p <= L'9'; ++p) width = width * 10 + (*p - L'0');
        int precision = -1;
        if (*p == L'.') {
            precision = 0;
            for (++p; *p >= L'0' && *p <= L'9'; ++p) precision = precision * 10 + (*p - L'0');
        }
        for (; *p == L'l' || *p == L'h'; ++p) {
        }
        char buffer[64];
        std::wstring field;
        switch (*p) {
            case L's': {
                wchar_t const* text = va_arg(args, wchar_t const*);
                field = text != nullptr ? text : L"(null)";
                break;
            }
            case L'c': field = static_cast<wchar_t>(va_arg(args, int)); break;
            case L'd':
            case L'i':
                std::snprintf(buffer, sizeof buffer, "%d", va_arg(args, int));
                field = Widen(buffer);
                break;
            case L'u':
                std::snprintf(buffer, sizeof buffer, "%u", va_arg(args, unsigned int));
                field = Widen(buffer);
                break;
            case L'x':
            case L'X':
                std::snprintf(buffer, sizeof buffer, *p == L'x' ? "%x" : "%X", va_arg(args, unsigned int));
                field = Widen(buffer);
                break;
            case L'f':
                std::snprintf(buffer, sizeof buffer, "%.*f", precision < 0 ? 6 : precision, va_arg(args, double));
                field = Widen(buffer);
                break;
            case L'\0':
                return out;  // a lone "%" at the end
            default:
                field = std::wstring(L"%") + *p;  // unknown conversion: kept as written
                break;
        }
        Pad(out, field, width, left, zero);
    }
    return out;
}
