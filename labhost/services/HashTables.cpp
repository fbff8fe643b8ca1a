// The hash tables of the host services; the bucket count is only a hint.
#include "HostServices.h"

WStringHashTable::WStringHashTable(int) {}

void WStringHashTable::Insert(WString const& key, WString const& value) {
    auto [position, added] = values_.insert_or_assign(key.str, value);
    (void)position;
    if (added) order_.push_back(key.str);
}

void WStringHashTable::GetKeys(WStringArray& keys) const {
    for (std::wstring const& key : order_) keys.Add(WString(key));
}

WString WStringHashTable::GetValue(WString const& key, unsigned int) const {
    auto found = values_.find(key.str);
    return found == values_.end() ? WString() : found->second;
}

bool WStringHashTable::ContainsKey(WString const& key) const { return values_.count(key.str) != 0; }

IntHashTable::IntHashTable(int) {}

void IntHashTable::Add(WString const& key, int value) { values_.emplace(key.str, value); }
void IntHashTable::Insert(WString const& key, int value) { values_[key.str] = value; }
bool IntHashTable::ContainsKey(WString const& key) const { return values_.count(key.str) != 0; }

bool IntHashTable::TryGetValue(WString const& key, int& value) const {
    auto found = values_.find(key.str);
    if (found == values_.end()) return false;
    value = found->second;
    return true;
}
