// The configuration file: its lines kept as read, so that a key added with
// its default is written back with every other line and comment unchanged.
#include <cstdio>
#include <fstream>

#include "../text/TextLines.h"
#include "HostServices.h"

namespace {
std::wstring Trimmed(std::wstring const& text) { return WString(text).Trim().str; }

bool IsSectionHeader(std::wstring const& trimmed) {
    return trimmed.size() >= 2 && trimmed.front() == L'[' && trimmed.back() == L']';
}

// Key of a "key=value" line, empty for any other line.
std::wstring KeyOf(std::wstring const& line) {
    std::wstring trimmed = Trimmed(line);
    if (trimmed.empty() || trimmed[0] == L';' || trimmed[0] == L'#' || IsSectionHeader(trimmed)) return L"";
    size_t equals = trimmed.find(L'=');
    return equals == std::wstring::npos ? L"" : Trimmed(trimmed.substr(0, equals));
}

// The value of the first "key=value" line of the section; the caller holds the lock.
template <typename Lines>
bool FindValue(Lines const& lines, WString const& section, WString const& key, WString& value) {
    for (auto const& line : lines) {
        if (line.section != section.str || KeyOf(line.text) != key.str) continue;
        value = WString(Trimmed(line.text.substr(line.text.find(L'=') + 1)));
        return true;
    }
    return false;
}
}  // namespace

ConfigFileData::ConfigFileData() = default;

bool ConfigFileData::Load(WString const& path, std::string& error) {
    std::lock_guard<std::mutex> lock(mutex_);
    path_ = WString();
    lines_.clear();
    std::ifstream file(path.ToUtf8());
    TextLines lines(file);
    std::string raw;
    std::wstring section;
    TextLines::Result result;
    while ((result = lines.Next(raw)) == TextLines::Result::Line) {
        std::wstring text = WString::FromUtf8(raw).str;
        std::wstring trimmed = Trimmed(text);
        if (IsSectionHeader(trimmed)) section = trimmed.substr(1, trimmed.size() - 2);
        lines_.push_back(Line{section, text});
    }
    if (result == TextLines::Result::Failed) {
        // Writing back what was read so far would cut the file short.
        lines_.clear();
        error = path.ToUtf8() + ": " + lines.FailureText();
        return false;
    }
    path_ = path;
    return true;
}

bool ConfigFileData::TryGetText(WString const& section, WString const& key, WString& value) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return FindValue(lines_, section, key, value);
}

int ConfigFileData::GetIntOrUseDefaultAndAdd(WString const& section, WString const& key, int defaultValue,
                                             unsigned int exitNumber, int smallest, int largest) {
    // One lock for look-up and insertion, so two runs cannot both add the key.
    std::lock_guard<std::mutex> lock(mutex_);
    WString text;
    if (FindValue(lines_, section, key, text)) {
        int value = 0;
        if (!text.TryGetInt(value, smallest, largest, nullptr)) throw ExitCode(exitNumber);
        return value;
    }
    std::wstring entry = key.str + L"=" + std::to_wstring(defaultValue);
    // After the last line of the section, or a new section at the end.
    size_t insertAt = lines_.size();
    bool sectionFound = false;
    for (size_t i = 0; i < lines_.size(); ++i) {
        if (lines_[i].section != section.str) continue;
        sectionFound = true;
        if (!Trimmed(lines_[i].text).empty()) insertAt = i + 1;
    }
    if (!sectionFound) {
        lines_.push_back(Line{section.str, L"[" + section.str + L"]"});
        insertAt = lines_.size();
    }
    lines_.insert(lines_.begin() + static_cast<std::ptrdiff_t>(insertAt), Line{section.str, entry});
    Save();
    return defaultValue;
}

bool ConfigFileData::Save() const {
    if (path_.str.empty()) return false;
    std::string path = path_.ToUtf8();
    std::string temporary = path + ".tmp";
    {
        std::ofstream file(temporary, std::ios::trunc);
        for (Line const& line : lines_) file << WString(line.text).ToUtf8() << '\n';
        if (!file.good()) return false;
    }
    // Replace in one step so a reader never sees half a file.
    return std::rename(temporary.c_str(), path.c_str()) == 0;
}
