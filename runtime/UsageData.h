// The store's record of one usage item, shared by the store and every
// UsageReference and UsageTimer that points to it.
//
// The key never changes. Type and value are atomics so that watchers read
// them without a lock; every change (and the history, the change marks and
// the removed flag) goes through the owning store under its lock. Once the
// item is deleted, or its store is gone, the record keeps its last state and
// writes to it are ignored.
//
// A store may hold a million items, so the record is kept small: the key in
// one byte a character when it allows (every valid key is ASCII), the history
// only for the items that have one.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "UsageLog.h"

struct UsageItems;  // the owning store's shared state (UsageStore.cpp)

// A key in as few bytes as its characters allow: one a character when all
// are below 256, else the wide characters.
class UsageKey {
public:
    explicit UsageKey(std::wstring_view key);
    // Bytes that are all ASCII.
    explicit UsageKey(std::string_view asciiKey);

    std::size_t size() const { return size_; }
    wchar_t operator[](std::size_t i) const {
        return wide_ ? reinterpret_cast<wchar_t const*>(chars_.get())[i] : static_cast<wchar_t>(chars_[i]);
    }
    std::wstring ToWide() const;
    std::string ToUtf8() const;

private:
    std::unique_ptr<unsigned char[]> chars_;
    std::uint32_t size_;
    bool wide_;
};

struct UsageData {
    UsageData(UsageKey itemKey, UsageDataType itemType, std::uint32_t itemValue, std::weak_ptr<UsageItems> itemOwner)
        : owner(std::move(itemOwner)), key(std::move(itemKey)), type(itemType), value(itemValue) {}

    std::weak_ptr<UsageItems> const owner;
    UsageKey const key;  // spelling as created

    std::atomic<UsageDataType> type;
    std::atomic<std::uint32_t> value;
    // Bumped with every change to the history, so watchers see it change.
    std::atomic<std::uint32_t> historyChanges{0};
    std::atomic<bool> dirty{false};
    std::atomic<bool> hasHistory{false};

    // Guarded by the owner's lock.
    bool removed = false;
    bool changedSinceSnapshot = false;  // tells a save whether the item changed again meanwhile
    bool inDirtyList = false;
    bool mayBeInFile = false;           // a deletion must reach the file
    std::uint32_t slot = 0;             // place in the store's creation-order list
    std::unique_ptr<std::vector<int>> history;  // UsageDateInt, oldest first; null while empty
};
