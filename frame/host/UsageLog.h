// The usage store: counters, timers and dates under dotted keys.
//
// Keys hold ASCII letters, digits, ".", ":" and "_". They are looked up and
// matched without regard to letter case and keep the spelling they were made
// with. In patterns "*" matches any run of characters (dots and the empty run
// included) and "?" one character. Every operation is safe on its own under
// concurrent runs; a sequence of two is not atomic.
//
// Changes stay in memory, marked dirty, until SaveChanges writes them (and the
// deletions since the last save) to the store's file in one transaction.
#pragma once

#include <cstdint>
#include <memory>

#include "WString.h"

// Low 4 bits: the kind; bit 0x8000: External.
using UsageDataType = unsigned int;
namespace UsageType {
constexpr UsageDataType Counter = 1;
constexpr UsageDataType Timer = 2;
constexpr UsageDataType Date = 4;
constexpr UsageDataType KindMask = 0xF;
constexpr UsageDataType External = 0x8000;
}  // namespace UsageType

// A date and time of the host clock: one 64-bit value. A UsageDateInt is
// year*10000 + month*100 + day; 0 is the date that was never set, which
// DateTime(0, 0) holds. A day count is days since 30-Dec-1899.
class DateTime {
public:
    std::int64_t value;  // seconds since 30-Dec-1899 00:00 local; NoDate for date 0

    static constexpr std::int64_t NoDate = INT64_MIN;

    DateTime();
    // Throws ExitCode(0, 1, HostExit::InvalidDate) for an invalid date; 0 is valid.
    DateTime(int date, int time);
    static DateTime Now();
    bool TrySetValue(int date, int time);
    int ToDateInt() const;
    int ToDays() const;

    // Host side.
    static bool IsValidDateInt(int date);
    static DateTime FromDays(int days);
    int SecondOfDay() const;
};

struct UsageData;  // the store's record of one item

class UsageReference {
public:
    UsageReference();
    UsageReference(std::nullptr_t);
    explicit UsageReference(std::shared_ptr<UsageData> data);
    UsageReference(UsageReference const& other);
    UsageReference& operator=(UsageReference const& other);
    virtual ~UsageReference();

    WString const& GetKey() const;
    UsageDataType GetDataType() const;
    virtual int GetValue() const;
    void SetValue(int value);
    bool IsDirty() const;
    bool HasHistory() const;
    virtual WString GetHistory() const;
    void AddDateToHistory(int date);
    int GetValueOrHistoryChangeTrigger(bool useHistory) const;

    bool IsEmpty() const { return !data_; }
    UsageData* Data() const { return data_.get(); }

private:
    std::shared_ptr<UsageData> data_;
    // The store keeps keys compactly; the wide text is made on first request,
    // and a reference that is never asked costs no string.
    mutable std::unique_ptr<WString> key_;
};

// A running automatic timer: its destruction (also by an exception) adds the
// time not yet committed to its item.
class UsageTimer {
public:
    explicit UsageTimer(std::shared_ptr<UsageData> item);
    UsageTimer(UsageTimer&& other) noexcept;
    UsageTimer(UsageTimer const&) = delete;
    UsageTimer& operator=(UsageTimer const&) = delete;
    UsageTimer& operator=(UsageTimer&&) = delete;
    ~UsageTimer();

private:
    std::shared_ptr<UsageData> item_;
    std::uint64_t timerId_;
};

class UsageStore;  // labhost/store: the implementation behind UsageLog

class UsageLog {
public:
    UsageLog();
    ~UsageLog();
    UsageLog(UsageLog const&) = delete;
    UsageLog& operator=(UsageLog const&) = delete;

    static bool IsUsageKeyNameValid(WString const& key);
    static WString GetValidCharactersInUsageLogKey();

    bool ContainsKey(wchar_t const* key);
    unsigned int Count() const;
    void GetAllKeys(WStringArray& keys);
    void GetMatchingKeys(WString const& pattern, WStringArray& keys);
    UsageDataType GetDataType(wchar_t const* key);  // 0 for a missing key
    int GetUsageValue(wchar_t const* key, unsigned int exitNumber);
    bool TryGetUsageValue(wchar_t const* key, int& value);
    UsageReference GetItemReference(wchar_t const* key, unsigned int exitNumber);
    bool TryGetItemReference(wchar_t const* key, UsageReference& reference);
    UsageReference GetCounterReference(wchar_t const* key);
    UsageReference GetTimerReference(wchar_t const* key);
    void InitializeCounter(wchar_t const* key);
    void InitializeTimer(wchar_t const* key);
    void InitializeDate(wchar_t const* key, bool unused);
    void Increment(wchar_t const* key, int by);
    void IncrementTimer(wchar_t const* key, int seconds);
    void SetDate(wchar_t const* key, DateTime const& date, bool addToHistory);
    void SetDate(wchar_t const* key, unsigned int date, bool addToHistory);
    void SetExternalDate(wchar_t const* key, DateTime const& date);
    bool TryDeleteItem(wchar_t const* key);
    UsageTimer CreateAutomaticTimer(wchar_t const* key);
    void CommitAllTimers();
    void SaveChanges();

    // Host side: the store that the calling thread works on, the sandbox's
    // copy on a thread in a host sandbox.
    UsageStore& Store() const;

private:
    std::unique_ptr<UsageStore> store_;
};
