// Wide text: comparisons (ASCII case folding), numbers, tokens and UTF-8
// conversion done by hand, so that no locale plays a part.
#include "WString.h"

#include <algorithm>
#include <climits>

#include "ExitCode.h"
#include "TextFormat.h"

namespace {
bool SameText(wchar_t const* a, wchar_t const* b, size_t length, bool ignoreCase) {
    for (size_t i = 0; i < length; ++i) {
        if (ignoreCase ? FoldAsciiCase(a[i]) != FoldAsciiCase(b[i]) : a[i] != b[i]) return false;
    }
    return true;
}

template <typename Number>
WString RangeReason(Number smallest, Number largest) {
    return WString(L"not a number from " + std::to_wstring(smallest) + L" to " + std::to_wstring(largest));
}

bool IsWhiteSpace(wchar_t c) { return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n'; }

// Parses the whole text as a decimal number with an optional leading '-'.
bool ParseDecimal(std::wstring const& text, bool allowMinus, long long& value) {
    size_t i = 0;
    bool negative = false;
    if (allowMinus && !text.empty() && text[0] == L'-') {
        negative = true;
        i = 1;
    }
    if (i == text.size()) return false;
    long long result = 0;
    for (; i < text.size(); ++i) {
        if (text[i] < L'0' || text[i] > L'9') return false;
        result = result * 10 + (text[i] - L'0');
        if (result > 0xFFFFFFFFLL + 1) return false;  // far outside every 32-bit range
    }
    value = negative ? -result : result;
    return true;
}
}  // namespace

bool EqualsIgnoreCase(std::wstring const& a, std::wstring const& b) {
    return a.size() == b.size() && SameText(a.data(), b.data(), a.size(), true);
}

WString::WString() = default;
WString::WString(wchar_t const* text) : str(text != nullptr ? text : L"") {}
WString::WString(char const* text) : str(text != nullptr ? FromUtf8(text).str : std::wstring()) {}
WString::WString(std::wstring text) : str(std::move(text)) {}
WString::WString(WString const& other) = default;
WString::WString(WString&& other) noexcept : str(std::move(other.str)) {}
WString& WString::operator=(WString const& other) = default;
WString& WString::operator=(WString&& other) noexcept {
    str = std::move(other.str);
    return *this;
}
WString::~WString() = default;

WString WString::Format(wchar_t const* format, ...) {
    va_list args;
    va_start(args, format);
    WString result(FormatWide(format, args));
    va_end(args);
    return result;
}

WString WString::FormatV(wchar_t const* format, va_list args) { return WString(FormatWide(format, args)); }

void WString::AppendFormat(wchar_t const* format, ...) {
    va_list args;
    va_start(args, format);
    str += FormatWide(format, args);
    va_end(args);
}

void WString::Append(int value, bool) { str += std::to_wstring(value); }

void WString::AppendWithSeparator(WString const& text, wchar_t const* separator) {
    if (!str.empty() && separator != nullptr) str += separator;
    str += text.str;
}

WString WString::ToString(unsigned int value, bool) { return WString(std::to_wstring(value)); }

bool WString::Equals(wchar_t const* text, bool ignoreCase) const {
    std::wstring other(text != nullptr ? text : L"");
    return str.size() == other.size() && SameText(str.data(), other.data(), str.size(), ignoreCase);
}

bool WString::Equals(WString const& text, bool ignoreCase) const { return Equals(text.str.c_str(), ignoreCase); }

bool WString::StartsWith(WString const& prefix, bool ignoreCase) const {
    return prefix.str.size() <= str.size() && SameText(str.data(), prefix.str.data(), prefix.str.size(), ignoreCase);
}

bool WString::EndsWith(WString const& suffix, bool ignoreCase) const {
    return suffix.str.size() <= str.size() &&
           SameText(str.data() + (str.size() - suffix.str.size()), suffix.str.data(), suffix.str.size(), ignoreCase);
}

bool WString::StartsWith(WString const& prefix) const { return StartsWith(prefix, false); }
bool WString::StartsWith(wchar_t c) const { return !str.empty() && str.front() == c; }
bool WString::EndsWith(wchar_t c) const { return !str.empty() && str.back() == c; }

int WString::IndexOf(wchar_t const* text, unsigned int start) const {
    if (start > str.size()) return -1;
    size_t found = str.find(text != nullptr ? text : L"", start);
    return found == std::wstring::npos ? -1 : static_cast<int>(found);
}

WString WString::Substring(unsigned int start, int length) const {
    if (start >= str.size()) return WString();
    if (length < 0) return WString(str.substr(start));
    return WString(str.substr(start, static_cast<size_t>(length)));
}

WString WString::Trim() const {
    size_t first = 0, last = str.size();
    while (first < last && IsWhiteSpace(str[first])) ++first;
    while (last > first && IsWhiteSpace(str[last - 1])) --last;
    return WString(str.substr(first, last - first));
}

void WString::Replace(WString const& from, WString const& to, bool ignoreCase) {
    if (from.str.empty()) return;
    std::wstring result;
    size_t i = 0;
    while (i < str.size()) {
        if (str.size() - i >= from.str.size() && SameText(str.data() + i, from.str.data(), from.str.size(), ignoreCase)) {
            result += to.str;
            i += from.str.size();
        } else {
            result += str[i++];
        }
    }
    str = std::move(result);
}

WString WString::StrTok(wchar_t const* separators) {
    std::wstring separatorSet(separators != nullptr ? separators : L"");
    size_t start = str.find_first_not_of(separatorSet);
    if (start == std::wstring::npos) {
        str.clear();
        return WString();
    }
    size_t end = str.find_first_of(separatorSet, start);
    WString token(str.substr(start, end == std::wstring::npos ? std::wstring::npos : end - start));
    str.erase(0, end == std::wstring::npos ? str.size() : end + 1);
    return token;
}

unsigned int WString::GetUInt(unsigned int exitNumber, unsigned int smallest, unsigned int largest) const {
    unsigned int value = 0;
    if (!TryGetUInt(value, smallest, largest, nullptr)) throw ExitCode(exitNumber);
    return value;
}

bool WString::TryGetUInt(unsigned int& value, unsigned int smallest, unsigned int largest, WString* reason) const {
    long long parsed = 0;
    if (!ParseDecimal(str, false, parsed) || parsed < smallest || parsed > largest) {
        if (reason != nullptr) *reason = RangeReason(smallest, largest);
        return false;
    }
    value = static_cast<unsigned int>(parsed);
    return true;
}

bool WString::TryGetInt(int& value, int smallest, int largest, WString* reason) const {
    long long parsed = 0;
    if (!ParseDecimal(str, true, parsed) || parsed < smallest || parsed > largest) {
        if (reason != nullptr) *reason = RangeReason(smallest, largest);
        return false;
    }
    value = static_cast<int>(parsed);
    return true;
}

bool WString::SortCompareAscending(WString const& a, WString const& b) { return a.str < b.str; }

std::string WString::ToUtf8() const {
    std::string out;
    out.reserve(str.size());
    for (wchar_t wc : str) {
        auto c = static_cast<std::uint32_t>(wc);
        if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = 0xFFFD;
        if (c < 0x80) {
            out += static_cast<char>(c);
        } else if (c < 0x800) {
            out += static_cast<char>(0xC0 | (c >> 6));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            out += static_cast<char>(0xE0 | (c >> 12));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (c >> 18));
            out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return out;
}

WString WString::FromUtf8(std::string const& text) {
    std::wstring out;
    out.reserve(text.size());
    size_t i = 0;
    while (i < text.size()) {
        auto lead = static_cast<unsigned char>(text[i]);
        int extra = lead < 0x80 ? 0 : (lead >> 5) == 0x6 ? 1 : (lead >> 4) == 0xE ? 2 : (lead >> 3) == 0x1E ? 3 : -1;
        std::uint32_t code = extra == 0 ? lead : extra == 1 ? (lead & 0x1F) : extra == 2 ? (lead & 0x0F) : (lead & 0x07);
        bool valid = extra >= 0 && static_cast<size_t>(extra) < text.size() - i;
        for (int k = 1; valid && k <= extra; ++k) {
            auto next = static_cast<unsigned char>(text[i + static_cast<size_t>(k)]);
            if ((next & 0xC0) != 0x80) valid = false;
            code = (code << 6) | (next & 0x3F);
        }
        if (!valid) {
            out += static_cast<wchar_t>(0xFFFD);  // a byte that starts no valid sequence
            ++i;
            continue;
        }
        out += static_cast<wchar_t>(code);
        i += static_cast<size_t>(extra) + 1;
    }
    return WString(std::move(out));
}

WStringArray::WStringArray() : count(0) {}

void WStringArray::Add(WString const& text) {
    items_.push_back(text);
    count = static_cast<unsigned int>(items_.size());
}

WString& WStringArray::operator[](unsigned int index) { return items_.at(index); }
WString const& WStringArray::operator[](unsigned int index) const { return items_.at(index); }

void WStringArray::Clear() {
    items_.clear();
    count = 0;
}

void WStringArray::Sort(bool (*lessThan)(WString const&, WString const&)) {
    std::sort(items_.begin(), items_.end(), lessThan != nullptr ? lessThan : WString::SortCompareAscending);
}

int WStringArray::IndexOf(WString const& text, bool ignoreCase, unsigned int start) const {
    for (size_t i = start; i < items_.size(); ++i) {
        if (items_[i].Equals(text, ignoreCase)) return static_cast<int>(i);
    }
    return -1;
}
