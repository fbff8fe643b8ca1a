// The store's record of one usage item, shared by the store and every
// UsageReference and UsageTimer that points to it.
//
// The key never changes. Type and value are atomics so that watchers read
// them without a lock; every change (and the history, the change counter and
// the removed flag) goes through the owning store under its lock. Once the
// item is deleted, or its store is gone, the record keeps its last state and
// writes to it are ignored.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "UsageLog.h"

struct UsageItems;  // the owning store's shared state (UsageStore.cpp)

struct UsageData {
    UsageData(WString itemKey, UsageDataType itemType, std::uint32_t itemValue, std::weak_ptr<UsageItems> itemOwner)
        : key(std::move(itemKey)), owner(std::move(itemOwner)), type(itemType), value(itemValue) {}

    WString const key;  // spelling as created
    std::weak_ptr<UsageItems> const owner;

    std::atomic<UsageDataType> type;
    std::atomic<std::uint32_t> value;
    std::atomic<bool> dirty{false};
    // Bumped with every change to the history, so watchers see it change.
    std::atomic<std::uint32_t> historyChanges{0};
    std::atomic<bool> hasHistory{false};

    // Guarded by the owner's lock.
    std::uint32_t changeCount = 0;  // tells a save whether the item changed again meanwhile
    bool removed = false;
    std::uint32_t slot = 0;  // place in the store's creation-order list
    std::vector<int> history;  // UsageDateInt, oldest first
};
