// The usage store behind UsageLog: the items in memory, their dirty state,
// the running automatic timers and the link to the store's file.
//
// Keys are found without regard to ASCII letter case and without allocating,
// through a flat index: open addressing over the items' places in a
// creation-order list, each slot one 32-bit word (a place and eight bits of
// hash), with short keys kept inside the item records. A look-up touches one
// slot and the item it finds; one that repeats the order of earlier look-ups
// on its thread (a monitor's pass) tries the remembered next item before the
// slot. That is what lets a monitor look up every key of a large store each
// second. At most 16 777 214 items (far beyond the instrument's memory);
// another new key is refused with std::length_error.
// Every operation takes the store's lock for itself only; values are read
// through references without a lock. A change marks its item dirty; a save
// writes only the dirty items and the deletions since the last save, in one
// transaction, and does its file work without holding the store's lock.
//
// Decisions where the contract leaves room:
// - An operation that names a kind (counter, timer, date) on a key that holds
//   another kind keeps the item as it is and works on its value.
// - Writes through a reference whose item was deleted are ignored; reads give
//   the last value.
// - Without an open file SaveChanges does nothing and items stay dirty.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "UsageData.h"
#include "UsageLog.h"

class UsageStoreFile;

class UsageStore {
public:
    UsageStore();
    ~UsageStore();
    UsageStore(UsageStore const&) = delete;
    UsageStore& operator=(UsageStore const&) = delete;

    // Host side: the store's file. Open creates the file with an empty store
    // when it is missing, refuses (false, `error` set, file untouched) a file
    // that is not a usage store, and otherwise replaces the items in memory
    // with the file's. Close ends the link; the items stay in memory.
    bool Open(std::string const& path, std::string& error);
    void Close();
    bool IsOpen() const;
    // Changes not yet saved: dirty items and pending deletions.
    unsigned int DirtyCount() const;
    // Items whose state in memory differs from the file: an item created and
    // deleted again since the last save is none, one deleted and created
    // again is one.
    unsigned int UnsavedItemCount() const;
    // Rows the last successful save wrote (upserts plus deletions).
    unsigned int LastSaveRowCount() const;

    // Items.
    std::shared_ptr<UsageData> Find(std::wstring_view key) const;
    // The item of that key; a missing one is made with `type` and `value`.
    std::shared_ptr<UsageData> FindOrCreate(std::wstring_view key, UsageDataType type, std::uint32_t value);
    unsigned int Count() const;
    void AppendAllKeys(WStringArray& keys) const;
    void AppendMatchingKeys(std::wstring_view pattern, WStringArray& keys) const;
    bool Delete(std::wstring_view key);
    // Adds `amount` to the item of that key, made with `type` and 0 when missing.
    void Add(std::wstring_view key, UsageDataType type, std::uint32_t amount);
    // Sets the value of the item of that key, made with `type` when missing;
    // with `addToHistory` the value also goes into its history.
    void Set(std::wstring_view key, UsageDataType type, std::uint32_t value, bool addToHistory);

    // Changes through a handle; ignored once the item is deleted.
    // SetValue on a date that has history adds the new date to it.
    static void SetValue(UsageData& item, std::uint32_t value);
    static void AddDateToHistory(UsageData& item, int date);
    static WString History(UsageData const& item);

    // Automatic timers.
    static std::uint64_t StartTimer(std::shared_ptr<UsageData> const& item);
    // Books the time not yet committed, rounded to the nearest second.
    static void StopTimer(UsageData& item, std::uint64_t timerId);
    void CommitAllTimers();

    void SaveChanges();

private:
    std::shared_ptr<UsageItems> items_;
    mutable std::mutex fileMutex_;  // serialises saves, Open and Close
    std::unique_ptr<UsageStoreFile> file_;
    std::atomic<unsigned int> lastSaveRowCount_{0};
};
