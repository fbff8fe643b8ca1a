// UsageLog, UsageReference and UsageTimer: the plug-in's face of the usage
// store. The work is UsageStore's; this unit maps the calls onto it.
#include "UsageLog.h"

#include <string_view>

#include "../HostSandbox.h"
#include "ExitCode.h"
#include "UsageStore.h"

namespace {

std::wstring_view KeyView(wchar_t const* key) { return key != nullptr ? std::wstring_view(key) : std::wstring_view(); }

wchar_t const ValidKeyCharacters[] = L"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789.:_";

bool IsValidKeyCharacter(wchar_t c) {
    return (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z') || (c >= L'0' && c <= L'9') || c == L'.' ||
           c == L':' || c == L'_';
}

}  // namespace

// UsageReference

UsageReference::UsageReference() = default;
UsageReference::UsageReference(std::nullptr_t) {}
UsageReference::UsageReference(std::shared_ptr<UsageData> data) : data_(std::move(data)) {}
UsageReference::UsageReference(UsageReference const& other) : data_(other.data_) {}

UsageReference& UsageReference::operator=(UsageReference const& other) {
    data_ = other.data_;
    key_.reset();
    return *this;
}

UsageReference::~UsageReference() = default;

WString const& UsageReference::GetKey() const {
    static WString const noKey;
    if (!data_) return noKey;
    if (!key_) key_ = std::make_unique<WString>(data_->key.ToWide());
    return *key_;
}

UsageDataType UsageReference::GetDataType() const { return data_ ? data_->type.load() : 0; }

int UsageReference::GetValue() const { return data_ ? static_cast<int>(data_->value.load()) : 0; }

void UsageReference::SetValue(int value) {
    if (data_) UsageStore::SetValue(*data_, static_cast<std::uint32_t>(value));
}

bool UsageReference::IsDirty() const { return data_ && data_->dirty.load(); }

bool UsageReference::HasHistory() const { return data_ && data_->hasHistory.load(); }

WString UsageReference::GetHistory() const { return data_ ? UsageStore::History(*data_) : WString(); }

void UsageReference::AddDateToHistory(int date) {
    if (data_) UsageStore::AddDateToHistory(*data_, date);
}

int UsageReference::GetValueOrHistoryChangeTrigger(bool useHistory) const {
    if (!data_) return 0;
    if (useHistory && data_->hasHistory.load()) return static_cast<int>(data_->historyChanges.load());
    return static_cast<int>(data_->value.load());
}

// UsageTimer

UsageTimer::UsageTimer(std::shared_ptr<UsageData> item)
    : item_(std::move(item)), timerId_(item_ ? UsageStore::StartTimer(item_) : 0) {}

UsageTimer::UsageTimer(UsageTimer&& other) noexcept : item_(std::move(other.item_)), timerId_(other.timerId_) {
    other.timerId_ = 0;
}

UsageTimer::~UsageTimer() {
    if (item_ && timerId_ != 0) UsageStore::StopTimer(*item_, timerId_);
}

// UsageLog

UsageLog::UsageLog() : store_(std::make_unique<UsageStore>()) {}
UsageLog::~UsageLog() = default;

bool UsageLog::IsUsageKeyNameValid(WString const& key) {
    if (key.str.empty()) return false;
    for (wchar_t c : key.str)
        if (!IsValidKeyCharacter(c)) return false;
    return true;
}

WString UsageLog::GetValidCharactersInUsageLogKey() { return WString(ValidKeyCharacters); }

bool UsageLog::ContainsKey(wchar_t const* key) { return Store().Find(KeyView(key)) != nullptr; }

unsigned int UsageLog::Count() const { return Store().Count(); }

void UsageLog::GetAllKeys(WStringArray& keys) { Store().AppendAllKeys(keys); }

void UsageLog::GetMatchingKeys(WString const& pattern, WStringArray& keys) {
    Store().AppendMatchingKeys(pattern.str, keys);
}

UsageDataType UsageLog::GetDataType(wchar_t const* key) {
    auto item = Store().Find(KeyView(key));
    return item ? item->type.load() : 0;
}

int UsageLog::GetUsageValue(wchar_t const* key, unsigned int exitNumber) {
    return GetItemReference(key, exitNumber).GetValue();
}

bool UsageLog::TryGetUsageValue(wchar_t const* key, int& value) {
    auto item = Store().Find(KeyView(key));
    if (item) value = static_cast<int>(item->value.load());
    return item != nullptr;
}

UsageReference UsageLog::GetItemReference(wchar_t const* key, unsigned int exitNumber) {
    auto item = Store().Find(KeyView(key));
    if (!item) throw ExitCode(exitNumber);
    return UsageReference(std::move(item));
}

bool UsageLog::TryGetItemReference(wchar_t const* key, UsageReference& reference) {
    reference = UsageReference(Store().Find(KeyView(key)));
    return !reference.IsEmpty();
}

UsageReference UsageLog::GetCounterReference(wchar_t const* key) {
    return UsageReference(Store().FindOrCreate(KeyView(key), UsageType::Counter, 0));
}

UsageReference UsageLog::GetTimerReference(wchar_t const* key) {
    return UsageReference(Store().FindOrCreate(KeyView(key), UsageType::Timer, 0));
}

void UsageLog::InitializeCounter(wchar_t const* key) { Store().FindOrCreate(KeyView(key), UsageType::Counter, 0); }

void UsageLog::InitializeTimer(wchar_t const* key) { Store().FindOrCreate(KeyView(key), UsageType::Timer, 0); }

void UsageLog::InitializeDate(wchar_t const* key, bool) {
    if (!ContainsKey(key))
        Store().FindOrCreate(KeyView(key), UsageType::Date, static_cast<std::uint32_t>(DateTime::Now().ToDateInt()));
}

void UsageLog::Increment(wchar_t const* key, int by) {
    Store().Add(KeyView(key), UsageType::Counter, static_cast<std::uint32_t>(by));
}

void UsageLog::IncrementTimer(wchar_t const* key, int seconds) {
    Store().Add(KeyView(key), UsageType::Timer, static_cast<std::uint32_t>(seconds));
}

void UsageLog::SetDate(wchar_t const* key, DateTime const& date, bool addToHistory) {
    SetDate(key, static_cast<unsigned int>(date.ToDateInt()), addToHistory);
}

void UsageLog::SetDate(wchar_t const* key, unsigned int date, bool addToHistory) {
    Store().Set(KeyView(key), UsageType::Date, date, addToHistory);
}

void UsageLog::SetExternalDate(wchar_t const* key, DateTime const& date) {
    Store().Set(KeyView(key), UsageType::Date | UsageType::External, static_cast<std::uint32_t>(date.ToDateInt()),
                false);
}

bool UsageLog::TryDeleteItem(wchar_t const* key) { return Store().Delete(KeyView(key)); }

UsageTimer UsageLog::CreateAutomaticTimer(wchar_t const* key) {
    return UsageTimer(Store().FindOrCreate(KeyView(key), UsageType::Timer, 0));
}

void UsageLog::CommitAllTimers() { Store().CommitAllTimers(); }

void UsageLog::SaveChanges() { Store().SaveChanges(); }

// A thread in a host sandbox works on the sandbox's copy of the store.
UsageStore& UsageLog::Store() const {
    HostSandbox* sandbox = HostSandbox::Active();
    return sandbox != nullptr ? sandbox->Store() : *store_;
}
