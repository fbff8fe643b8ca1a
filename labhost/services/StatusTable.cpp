// The status table and the text form of its values.
#include "StatusTable.h"

#include <cerrno>
#include <cstdint>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace {
bool ToDouble(StatusTable::Value const& value, double& number) {
    if (auto const* i = std::get_if<int>(&value)) {
        number = *i;
        return true;
    }
    if (auto const* d = std::get_if<double>(&value)) {
        number = *d;
        return true;
    }
    return false;
}
}  // namespace

bool StatusTable::TryGet(WString const& key, Value& value) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto found = values_.find(key.str);
    if (found == values_.end()) return false;
    value = found->second;
    return true;
}

bool StatusTable::TryGetBool(WString const& key, bool& value) {
    Value stored;
    if (!TryGet(key, stored)) return false;
    auto const* flag = std::get_if<bool>(&stored);
    if (flag == nullptr) return false;
    value = *flag;
    return true;
}

bool StatusTable::TryGetInt(WString const& key, int& value, int smallest, int largest) {
    Value stored;
    double number = 0;
    if (!TryGet(key, stored) || !ToDouble(stored, number)) return false;
    number = std::trunc(number);
    if (!(number >= smallest && number <= largest)) return false;  // also refuses NaN
    value = static_cast<int>(number);
    return true;
}

bool StatusTable::TryGetDouble(WString const& key, double& value, double smallest, double largest) {
    Value stored;
    double number = 0;
    if (!TryGet(key, stored) || !ToDouble(stored, number)) return false;
    if (!(number >= smallest && number <= largest)) return false;
    value = number;
    return true;
}

void StatusTable::Set(WString const& key, Value value) {
    std::lock_guard<std::mutex> lock(mutex_);
    values_[key.str] = value;
}

bool StatusTable::Remove(WString const& key) {
    std::lock_guard<std::mutex> lock(mutex_);
    return values_.erase(key.str) != 0;
}

std::map<std::wstring, StatusTable::Value> StatusTable::Snapshot() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return values_;
}

void StatusTable::Clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    values_.clear();
}

WString StatusTable::ValueText(Value const& value) {
    if (auto const* flag = std::get_if<bool>(&value)) return WString(*flag ? L"true" : L"false");
    if (auto const* i = std::get_if<int>(&value)) return WString(std::to_wstring(*i));
    double number = std::get<double>(value);
    char buffer[40];
    if (number == std::trunc(number) && std::fabs(number) < 1e15) {
        std::snprintf(buffer, sizeof buffer, "%.1f", number);  // "20.0": still reads back as a double
        return WString(buffer);
    }
    for (int precision = 1; precision <= 17; ++precision) {
        std::snprintf(buffer, sizeof buffer, "%.*g", precision, number);
        if (std::strtod(buffer, nullptr) == number) break;
    }
    return WString(buffer);
}

bool StatusTable::TryParseValue(WString const& text, Value& value) {
    if (text.str == L"true" || text.str == L"false") {
        value = text.str == L"true";
        return true;
    }
    int integer = 0;
    if (text.TryGetInt(integer, INT32_MIN, INT32_MAX, nullptr)) {
        value = integer;
        return true;
    }
    std::string narrow = text.ToUtf8();
    if (narrow.empty() || narrow.find_first_not_of("0123456789+-.eE") != std::string::npos) return false;
    char* end = nullptr;
    errno = 0;
    double number = std::strtod(narrow.c_str(), &end);
    if (end != narrow.c_str() + narrow.size() || errno == ERANGE || !std::isfinite(number)) return false;
    value = number;
    return true;
}
