// Options, arguments and the splitting of a command line into them.
#include <cerrno>
#include <cmath>
#include <cstdlib>

#include "CommandBase.h"

namespace {
bool IsAsciiLetter(wchar_t c) { return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z'); }

// A number for TryGetDouble: the whole text, decimal, finite.
bool ParseDouble(WString const& text, double& value) {
    std::string narrow = text.ToUtf8();
    if (narrow.empty() || narrow.find_first_of(" \t") != std::string::npos) return false;
    char* end = nullptr;
    errno = 0;
    double parsed = std::strtod(narrow.c_str(), &end);
    if (end != narrow.c_str() + narrow.size() || errno == ERANGE || !std::isfinite(parsed)) return false;
    if (narrow.find_first_of("xXnN") != std::string::npos) return false;  // no hex, nan or inf words
    value = parsed;
    return true;
}
}  // namespace

Options::Options() = default;

void Options::Add(wchar_t letter, WString const& value) { entries_.push_back(Entry{letter, value, false}); }

bool Options::Has(wchar_t letter) const {
    for (Entry const& entry : entries_) {
        if (entry.letter == letter) return true;
    }
    return false;
}

Options::Entry* Options::Find(WString const& letter, unsigned int exitNumber) {
    wchar_t wanted = letter.str.empty() ? L'\0' : letter.str[0];
    Entry* found = nullptr;
    bool twice = false;
    for (Entry& entry : entries_) {
        if (entry.letter != wanted) continue;
        entry.used = true;
        if (found != nullptr) twice = true;
        found = &entry;
    }
    if (twice) throw ExitCode(exitNumber);
    return found;
}

bool Options::TryGetFlag(WString const& letter, unsigned int exitNumber) {
    Entry* entry = Find(letter, exitNumber);
    if (entry == nullptr) return false;
    if (!entry->value.str.empty()) throw ExitCode(exitNumber);
    return true;
}

bool Options::TryGetString(WString const& letter, unsigned int exitNumber, WString& value, int smallestLength,
                           int largestLength) {
    Entry* entry = Find(letter, exitNumber);
    if (entry == nullptr) return false;
    long long length = static_cast<long long>(entry->value.str.size());
    if (length < smallestLength || length > largestLength) throw ExitCode(exitNumber);
    value = entry->value;
    return true;
}

bool Options::TryGetInt(WString const& letter, unsigned int exitNumber, int& value, int smallest, int largest) {
    Entry* entry = Find(letter, exitNumber);
    if (entry == nullptr) return false;
    if (!entry->value.TryGetInt(value, smallest, largest, nullptr)) throw ExitCode(exitNumber);
    return true;
}

bool Options::TryGetUInt(WString const& letter, unsigned int exitNumber, unsigned int& value, unsigned int smallest,
                         unsigned int largest) {
    Entry* entry = Find(letter, exitNumber);
    if (entry == nullptr) return false;
    if (!entry->value.TryGetUInt(value, smallest, largest, nullptr)) throw ExitCode(exitNumber);
    return true;
}

bool Options::TryGetDouble(WString const& letter, unsigned int exitNumber, double& value, double smallest,
                           double largest) {
    Entry* entry = Find(letter, exitNumber);
    if (entry == nullptr) return false;
    double parsed = 0;
    if (!ParseDouble(entry->value, parsed) || parsed < smallest || parsed > largest) throw ExitCode(exitNumber);
    value = parsed;
    return true;
}

bool Options::ContainsUnusedOptions() const {
    for (Entry const& entry : entries_) {
        if (!entry.used) return true;
    }
    return false;
}

Argument::Argument(WString const& value) : text(value) {}

WString const& Argument::GetString(unsigned int exitNumber, unsigned int smallestLength,
                                   unsigned int largestLength) const {
    if (text.str.size() < smallestLength || text.str.size() > largestLength) throw ExitCode(exitNumber);
    return text;
}

int Argument::GetInt(unsigned int exitNumber, int smallest, int largest) const {
    int value = 0;
    if (!text.TryGetInt(value, smallest, largest, nullptr)) throw ExitCode(exitNumber);
    return value;
}

ArgumentList::ArgumentList() : count(0) {}

void ArgumentList::Add(WString const& value) {
    items_.emplace_back(value);
    count = static_cast<unsigned int>(items_.size());
}

Argument& ArgumentList::At(unsigned int index) { return items_.at(index); }

std::vector<WString> SplitCommandWords(WString const& line) {
    std::vector<WString> words;
    words.reserve(8);  // a firmware line has a few words; one allocation for them
    std::wstring word;
    bool inWord = false, quoted = false;
    for (wchar_t c : line.str) {
        if (c == L'"') {
            quoted = !quoted;
            inWord = true;
        } else if ((c == L' ' || c == L'\t') && !quoted) {
            if (inWord) words.emplace_back(std::move(word));
            word.clear();
            inWord = false;
        } else {
            word += c;
            inWord = true;
        }
    }
    if (inWord) words.emplace_back(std::move(word));
    return words;
}

bool IsOptionWord(std::wstring const& word) {
    return word.size() >= 2 && word[0] == L'-' && (IsAsciiLetter(word[1]) || word[1] == L'?');
}

bool TryParseCommandLine(WString const& line, ParsedCommandLine& parsed) {
    std::vector<WString> words = SplitCommandWords(line);
    if (words.empty()) return false;
    parsed.name = std::move(words[0]);
    for (size_t i = 1; i < words.size(); ++i) {
        std::wstring const& word = words[i].str;
        if (!IsOptionWord(word)) {
            parsed.arguments.Add(words[i]);
        } else if (word[1] == L'?') {
            parsed.wantsHelp = true;
        } else {
            parsed.options.Add(word[1], WString(word.substr(2)));
        }
    }
    return true;
}
