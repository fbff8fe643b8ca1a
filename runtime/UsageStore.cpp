#include "UsageStore.h"

#include <chrono>
#include <unordered_map>
#include <unordered_set>

#include "System.h"
#include "UsageStoreFile.h"

namespace {

std::wstring_view KeyOf(std::wstring_view key) { return key; }
std::wstring_view KeyOf(std::shared_ptr<UsageData> const& item) { return item->key.str; }

// Hash and equality that fold ASCII case, for items and key texts alike, so a
// lookup by text needs no folded copy.
struct FoldedKeyHash {
    using is_transparent = void;
    template <typename Key>
    std::size_t operator()(Key const& key) const {
        std::uint32_t hash = 2166136261u;  // FNV-1a
        for (wchar_t c : KeyOf(key)) hash = (hash ^ static_cast<std::uint32_t>(FoldAsciiCase(c))) * 16777619u;
        return hash;
    }
};

struct FoldedKeyEqual {
    using is_transparent = void;
    template <typename A, typename B>
    bool operator()(A const& a, B const& b) const {
        std::wstring_view left = KeyOf(a), right = KeyOf(b);
        if (left.size() != right.size()) return false;
        for (std::size_t i = 0; i < left.size(); ++i)
            if (FoldAsciiCase(left[i]) != FoldAsciiCase(right[i])) return false;
        return true;
    }
};

using Clock = std::chrono::steady_clock;

struct RunningTimer {
    std::shared_ptr<UsageData> item;
    Clock::time_point lastCommit;
};

bool HasWildcard(std::wstring_view pattern) { return pattern.find_first_of(L"*?") != std::wstring_view::npos; }

}  // namespace

// The state that items and timers reach back to; it outlives the store while
// a handle holds an item.
struct UsageItems : std::enable_shared_from_this<UsageItems> {
    std::mutex mutex;
    std::unordered_set<std::shared_ptr<UsageData>, FoldedKeyHash, FoldedKeyEqual> items;
    // The same items in creation order: a pattern scan walks memory in the
    // order it was allocated instead of hopping between hash nodes.
    std::vector<std::shared_ptr<UsageData>> ordered;
    std::unordered_set<UsageData*> dirty;
    std::unordered_set<std::wstring, FoldedKeyHash, FoldedKeyEqual> deletedKeys;  // since the last save
    std::unordered_map<std::uint64_t, RunningTimer> timers;
    std::uint64_t lastTimerId = 0;

    // All below: the caller holds `mutex`.
    std::shared_ptr<UsageData> Find(std::wstring_view key) const {
        auto it = items.find(key);
        return it != items.end() ? *it : nullptr;
    }

    std::shared_ptr<UsageData> FindOrCreate(std::wstring_view key, UsageDataType type, std::uint32_t value) {
        if (auto item = Find(key)) return item;
        auto item = std::make_shared<UsageData>(WString(std::wstring(key)), type, value, weak_from_this());
        Insert(item);
        MarkChanged(*item);
        return item;
    }

    void Insert(std::shared_ptr<UsageData> const& item) {
        item->slot = static_cast<std::uint32_t>(ordered.size());
        ordered.push_back(item);
        items.insert(item);
    }

    bool Erase(std::wstring_view key) {
        auto it = items.find(key);
        if (it == items.end()) return false;
        UsageData& item = **it;
        Detach(item);
        deletedKeys.insert(item.key.str);
        std::uint32_t slot = item.slot;
        ordered[slot] = std::move(ordered.back());
        ordered[slot]->slot = slot;
        ordered.pop_back();
        items.erase(it);
        return true;
    }

    void MarkChanged(UsageData& item) {
        ++item.changeCount;
        item.dirty.store(true);
        dirty.insert(&item);
    }

    void Add(UsageData& item, std::uint32_t amount) {
        item.value.fetch_add(amount);  // unsigned: wraps like the 32-bit word it is
        MarkChanged(item);
    }

    void Set(UsageData& item, std::uint32_t value, bool addToHistory) {
        item.value.store(value);
        if (addToHistory) AppendHistory(item, static_cast<int>(value));
        MarkChanged(item);
    }

    void AppendHistory(UsageData& item, int date) {
        item.history.push_back(date);
        item.hasHistory.store(true);
        item.historyChanges.fetch_add(1);
        MarkChanged(item);
    }

    void Detach(UsageData& item) {
        item.removed = true;
        dirty.erase(&item);
    }

    void Clear() {
        for (auto const& item : items) Detach(*item);
        items.clear();
        ordered.clear();
        deletedKeys.clear();
    }
};

namespace {

// Runs `change` on a live item under its store's lock; nothing for a deleted one.
template <typename Change>
void ChangeItem(UsageData& item, Change change) {
    auto owner = item.owner.lock();
    if (!owner) return;
    std::lock_guard lock(owner->mutex);
    if (!item.removed) change(*owner);
}

}  // namespace

UsageStore::UsageStore() : items_(std::make_shared<UsageItems>()) {}

UsageStore::~UsageStore() {
    std::lock_guard lock(items_->mutex);
    items_->Clear();
}

bool UsageStore::Open(std::string const& path, std::string& error) {
    std::vector<UsageRow> rows;
    std::lock_guard fileLock(fileMutex_);
    auto file = UsageStoreFile::Open(path, rows, error);
    if (!file) return false;
    std::lock_guard lock(items_->mutex);
    items_->Clear();
    for (auto& row : rows) {
        auto item = std::make_shared<UsageData>(WString(std::move(row.key)), row.type, row.value, items_);
        item->history = std::move(row.history);
        item->hasHistory.store(!item->history.empty());
        items_->Insert(item);
    }
    file_ = std::move(file);
    return true;
}

void UsageStore::Close() {
    std::lock_guard fileLock(fileMutex_);
    file_.reset();
}

bool UsageStore::IsOpen() const {
    std::lock_guard fileLock(fileMutex_);
    return file_ != nullptr;
}

unsigned int UsageStore::DirtyCount() const {
    std::lock_guard lock(items_->mutex);
    return static_cast<unsigned int>(items_->dirty.size() + items_->deletedKeys.size());
}

unsigned int UsageStore::LastSaveRowCount() const { return lastSaveRowCount_.load(); }

std::shared_ptr<UsageData> UsageStore::Find(std::wstring_view key) const {
    std::lock_guard lock(items_->mutex);
    return items_->Find(key);
}

std::shared_ptr<UsageData> UsageStore::FindOrCreate(std::wstring_view key, UsageDataType type, std::uint32_t value) {
    std::lock_guard lock(items_->mutex);
    return items_->FindOrCreate(key, type, value);
}

unsigned int UsageStore::Count() const {
    std::lock_guard lock(items_->mutex);
    return static_cast<unsigned int>(items_->items.size());
}

void UsageStore::AppendAllKeys(WStringArray& keys) const { AppendMatchingKeys(L"*", keys); }

void UsageStore::AppendMatchingKeys(std::wstring_view pattern, WStringArray& keys) const {
    // The items are picked under the lock and their keys, which never change,
    // copied after it: other runs wait only for the scan.
    std::vector<std::shared_ptr<UsageData>> matches;
    {
        std::lock_guard lock(items_->mutex);
        if (!HasWildcard(pattern)) {
            if (auto item = items_->Find(pattern)) matches.push_back(std::move(item));
        } else {
            for (auto const& item : items_->ordered)
                if (UsageKeyMatches(pattern, item->key.str)) matches.push_back(item);
        }
    }
    for (auto const& item : matches) keys.Add(item->key);
}

bool UsageStore::Delete(std::wstring_view key) {
    std::lock_guard lock(items_->mutex);
    return items_->Erase(key);
}

void UsageStore::Add(std::wstring_view key, UsageDataType type, std::uint32_t amount) {
    std::lock_guard lock(items_->mutex);
    items_->Add(*items_->FindOrCreate(key, type, 0), amount);
}

void UsageStore::Set(std::wstring_view key, UsageDataType type, std::uint32_t value, bool addToHistory) {
    std::lock_guard lock(items_->mutex);
    items_->Set(*items_->FindOrCreate(key, type, value), value, addToHistory);
}

void UsageStore::SetValue(UsageData& item, std::uint32_t value) {
    ChangeItem(item, [&](UsageItems& owner) {
        bool datedHistory = (item.type.load() & UsageType::KindMask) == UsageType::Date && !item.history.empty();
        owner.Set(item, value, datedHistory);
    });
}

void UsageStore::AddDateToHistory(UsageData& item, int date) {
    ChangeItem(item, [&](UsageItems& owner) { owner.AppendHistory(item, date); });
}

WString UsageStore::History(UsageData const& item) {
    auto owner = item.owner.lock();
    if (!owner) return WString(FormatUsageHistory(item.history));  // nobody can change it any more
    std::lock_guard lock(owner->mutex);
    return WString(FormatUsageHistory(item.history));
}

std::uint64_t UsageStore::StartTimer(std::shared_ptr<UsageData> const& item) {
    auto owner = item->owner.lock();
    if (!owner) return 0;
    std::lock_guard lock(owner->mutex);
    owner->timers.emplace(++owner->lastTimerId, RunningTimer{item, Clock::now()});
    return owner->lastTimerId;
}

void UsageStore::StopTimer(UsageData& item, std::uint64_t timerId) {
    auto owner = item.owner.lock();
    if (!owner) return;
    std::lock_guard lock(owner->mutex);
    auto it = owner->timers.find(timerId);
    if (it == owner->timers.end()) return;
    auto seconds = std::chrono::round<std::chrono::seconds>(Clock::now() - it->second.lastCommit).count();
    owner->timers.erase(it);
    if (seconds > 0 && !item.removed) owner->Add(item, static_cast<std::uint32_t>(seconds));
}

void UsageStore::CommitAllTimers() {
    std::lock_guard lock(items_->mutex);
    auto now = Clock::now();
    for (auto& [id, timer] : items_->timers) {
        auto seconds = std::chrono::floor<std::chrono::seconds>(now - timer.lastCommit);
        if (seconds.count() <= 0) continue;
        timer.lastCommit += seconds;  // the rest below a second waits for the next commit
        if (!timer.item->removed) items_->Add(*timer.item, static_cast<std::uint32_t>(seconds.count()));
    }
}

void UsageStore::SaveChanges() {
    std::lock_guard fileLock(fileMutex_);
    if (!file_) return;

    struct Saved {
        std::shared_ptr<UsageData> item;
        std::uint32_t changeCount;
    };
    std::vector<Saved> saved;
    std::vector<UsageRow> rows;
    std::vector<std::wstring> deletions;
    {
        std::lock_guard lock(items_->mutex);
        if (items_->dirty.empty() && items_->deletedKeys.empty()) return;
        saved.reserve(items_->dirty.size());
        rows.reserve(items_->dirty.size());
        for (UsageData* item : items_->dirty) {
            // Dirty items are always in the table: deletion takes them out of both.
            saved.push_back(Saved{items_->Find(item->key.str), item->changeCount});
            rows.push_back(UsageRow{item->key.str, item->type.load(), item->value.load(), item->history});
        }
        deletions.assign(items_->deletedKeys.begin(), items_->deletedKeys.end());
        items_->deletedKeys.clear();
    }

    std::string error;
    bool ok = file_->Save(deletions, rows, error);

    std::lock_guard lock(items_->mutex);
    if (!ok) {
        // A deletion that was taken out goes back; re-created keys are dirty
        // again anyway and are written after the deletions.
        items_->deletedKeys.insert(deletions.begin(), deletions.end());
        System::errorLog.WriteLine(WString::FromUtf8("**Saving the usage store to " + file_->Path() + " failed (" +
                                                     std::to_string(rows.size() + deletions.size()) +
                                                     " changes kept for the next save): " + error));
        return;
    }
    lastSaveRowCount_.store(static_cast<unsigned int>(rows.size() + deletions.size()));
    for (auto const& [item, changeCount] : saved) {
        if (item->removed || item->changeCount != changeCount) continue;
        item->dirty.store(false);
        items_->dirty.erase(item.get());
    }
}

bool UsageKeyMatches(std::wstring_view pattern, std::wstring_view key) {
    // Greedy match with one backtrack point: the last "*" seen.
    std::size_t p = 0, k = 0, star = std::wstring_view::npos, starKey = 0;
    while (k < key.size()) {
        if (p < pattern.size() && pattern[p] == L'*') {
            star = p++;
            starKey = k;
        } else if (p < pattern.size() && (pattern[p] == L'?' || FoldAsciiCase(pattern[p]) == FoldAsciiCase(key[k]))) {
            ++p;
            ++k;
        } else if (star != std::wstring_view::npos) {
            p = star + 1;
            k = ++starKey;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == L'*') ++p;
    return p == pattern.size();
}
