// Wide text and lists of text: the host's string types.
//
// WString keeps its characters in the public member `str`, which commands
// read and change directly. Operations whose bool flag is true compare
// without regard to letter case, as usage keys are compared in the store.
// Format and friends take the conversions %s (wchar_t const*), %d, %u, %x,
// %% and, in AppendFormat, %.1f and %.2f (any %.Nf works).
#pragma once

#include <cstdarg>
#include <string>
#include <vector>

class WString {
public:
    std::wstring str;

    WString();
    WString(wchar_t const* text);
    WString(char const* text);  // UTF-8
    WString(std::wstring text);
    WString(WString const& other);
    WString(WString&& other) noexcept;
    WString& operator=(WString const& other);
    WString& operator=(WString&& other) noexcept;
    virtual ~WString();

    static WString Format(wchar_t const* format, ...);
    static WString FormatV(wchar_t const* format, va_list args);
    void AppendFormat(wchar_t const* format, ...);
    void Append(int value, bool unused);
    void AppendWithSeparator(WString const& text, wchar_t const* separator);
    static WString ToString(unsigned int value, bool unused);

    bool Equals(wchar_t const* text, bool ignoreCase) const;
    bool Equals(WString const& text, bool ignoreCase) const;
    bool StartsWith(WString const& prefix, bool ignoreCase) const;
    bool EndsWith(WString const& suffix, bool ignoreCase) const;
    bool StartsWith(WString const& prefix) const;
    bool StartsWith(wchar_t c) const;
    bool EndsWith(wchar_t c) const;

    // Position of `text` at or after `start`, -1 if absent.
    int IndexOf(wchar_t const* text, unsigned int start) const;
    // A length of -1 (or any negative length) takes the rest of the string.
    WString Substring(unsigned int start, int length) const;
    // Without blanks, tabs, CR and LF at either end.
    WString Trim() const;
    void Replace(WString const& from, WString const& to, bool ignoreCase);
    // Skips leading separators, returns the next token and removes what it
    // consumed from this string. An empty result ends a walk.
    WString StrTok(wchar_t const* separators);

    // The whole text as an unsigned decimal number within [smallest, largest];
    // throws ExitCode(exitNumber) otherwise.
    unsigned int GetUInt(unsigned int exitNumber, unsigned int smallest, unsigned int largest) const;
    bool TryGetUInt(unsigned int& value, unsigned int smallest, unsigned int largest, WString* reason) const;
    bool TryGetInt(int& value, int smallest, int largest, WString* reason) const;

    // Order by character code, ascending.
    static bool SortCompareAscending(WString const& a, WString const& b);

    // Host conveniences.
    wchar_t const* c_str() const { return str.c_str(); }
    unsigned int Length() const { return static_cast<unsigned int>(str.size()); }
    bool IsEmpty() const { return str.empty(); }
    std::string ToUtf8() const;
    static WString FromUtf8(std::string const& text);
    bool operator==(WString const& other) const { return str == other.str; }
};

// Letter case is folded for ASCII letters only: usage keys are ASCII.
inline wchar_t FoldAsciiCase(wchar_t c) { return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c - L'A' + L'a') : c; }
// The text with its letter case folded: the one spelling of a usage key that
// tables keyed by usage keys use.
inline std::wstring FoldAsciiCase(std::wstring text) {
    for (wchar_t& c : text) c = FoldAsciiCase(c);
    return text;
}
// Case-insensitive comparison of two texts, the rule of usage keys.
bool EqualsIgnoreCase(std::wstring const& a, std::wstring const& b);

class WStringArray {
public:
    unsigned int count;

    WStringArray();
    void Add(WString const& text);
    WString& operator[](unsigned int index);
    WString const& operator[](unsigned int index) const;
    void Clear();
    // Null selects the default order, by character code ascending.
    void Sort(bool (*lessThan)(WString const&, WString const&));
    // Index of an equal entry at or after `start`, -1 if none.
    int IndexOf(WString const& text, bool ignoreCase, unsigned int start) const;

private:
    std::vector<WString> items_;
};
