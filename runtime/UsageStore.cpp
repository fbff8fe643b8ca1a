#include "UsageStore.h"

#include <chrono>
#include <unordered_map>
#include <unordered_set>

#include "System.h"
#include "UsageStoreFile.h"

namespace {

using Clock = std::chrono::steady_clock;

struct RunningTimer {
    std::shared_ptr<UsageData> item;
    Clock::time_point lastCommit;
};

bool HasWildcard(std::wstring_view pattern) { return pattern.find_first_of(L"*?") != std::wstring_view::npos; }

bool IsAscii(std::string_view text) {
    for (char c : text)
        if (static_cast<unsigned char>(c) >= 0x80) return false;
    return true;
}

// FNV-1a over the folded characters, then a finaliser so that keys that
// differ only at the end still spread over the whole index.
template <typename Key>
std::uint32_t FoldedHash(Key const& key) {
    std::uint32_t hash = 2166136261u;
    for (std::size_t i = 0; i < key.size(); ++i)
        hash = (hash ^ static_cast<std::uint32_t>(FoldAsciiCase(key[i]))) * 16777619u;
    hash ^= hash >> 16;
    hash *= 0x85EBCA6Bu;
    hash ^= hash >> 13;
    hash *= 0xC2B2AE35u;
    return hash ^ (hash >> 16);
}

template <typename A, typename B>
bool FoldedEqual(A const& a, B const& b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (FoldAsciiCase(a[i]) != FoldAsciiCase(b[i])) return false;
    return true;
}

// "*" any run of characters, "?" one; greedy with one backtrack point, the
// last "*" seen.
bool KeyMatches(std::wstring_view pattern, UsageKey const& key) {
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

// The text a deletion is remembered by: one spelling for all letter cases.
std::string FoldedUtf8(UsageKey const& key) { return WString(FoldAsciiCase(key.ToWide())).ToUtf8(); }

// Places in the creation-order list by folded key: open addressing with
// linear probing over (hash, place) pairs, at most 70 % full. A probe that
// meets another key compares hashes and rarely touches that key's item.
class KeyIndex {
public:
    static constexpr std::uint32_t NotFound = 0xFFFFFFFFu;

    // `keyAt(place)` gives the key of the item at a place.
    template <typename Key, typename KeyAt>
    std::uint32_t Find(Key const& key, std::uint32_t hash, KeyAt const& keyAt) const {
        if (slots_.empty()) return NotFound;
        for (std::size_t i = hash & Mask();; i = (i + 1) & Mask()) {
            Slot const& slot = slots_[i];
            if (slot.place == NotFound) return NotFound;
            if (slot.hash == hash && FoldedEqual(keyAt(slot.place), key)) return slot.place;
        }
    }

    void Reserve(std::size_t items) {
        std::size_t capacity = 16;
        while (capacity * 7 < items * 10) capacity *= 2;
        if (capacity > slots_.size()) Rebuild(capacity);
    }

    // Enters `place` for the key unless the key is there: then its place.
    // One probe does both, which counts when a million keys are loaded.
    template <typename Key, typename KeyAt>
    std::uint32_t InsertUnlessPresent(Key const& key, std::uint32_t hash, std::uint32_t place, KeyAt const& keyAt) {
        Reserve(used_ + 1);
        std::size_t i = hash & Mask();
        for (; slots_[i].place != NotFound; i = (i + 1) & Mask())
            if (slots_[i].hash == hash && FoldedEqual(keyAt(slots_[i].place), key)) return slots_[i].place;
        slots_[i] = Slot{hash, place};
        ++used_;
        return NotFound;
    }

    void Erase(std::uint32_t hash, std::uint32_t place) {
        std::size_t hole = SlotOf(hash, place);
        // Backward shift: pull later entries of the run into the hole unless
        // their home lies cyclically after it.
        for (std::size_t next = (hole + 1) & Mask(); slots_[next].place != NotFound; next = (next + 1) & Mask()) {
            std::size_t home = slots_[next].hash & Mask();
            bool stays = hole <= next ? (hole < home && home <= next) : (hole < home || home <= next);
            if (stays) continue;
            slots_[hole] = slots_[next];
            hole = next;
        }
        slots_[hole].place = NotFound;
        --used_;
    }

    void Move(std::uint32_t hash, std::uint32_t from, std::uint32_t to) { slots_[SlotOf(hash, from)].place = to; }

    void Clear() {
        slots_.clear();
        slots_.shrink_to_fit();
        used_ = 0;
    }

private:
    struct Slot {
        std::uint32_t hash;
        std::uint32_t place;
    };

    std::size_t Mask() const { return slots_.size() - 1; }

    std::size_t SlotOf(std::uint32_t hash, std::uint32_t place) const {
        std::size_t i = hash & Mask();
        while (slots_[i].place != place) i = (i + 1) & Mask();
        return i;
    }

    void Put(std::uint32_t hash, std::uint32_t place) {
        std::size_t i = hash & Mask();
        while (slots_[i].place != NotFound) i = (i + 1) & Mask();
        slots_[i] = Slot{hash, place};
    }

    void Rebuild(std::size_t capacity) {
        std::vector<Slot> old(capacity, Slot{0, NotFound});
        old.swap(slots_);
        for (Slot const& slot : old)
            if (slot.place != NotFound) Put(slot.hash, slot.place);
    }

    std::vector<Slot> slots_;
    std::size_t used_ = 0;
};

}  // namespace

UsageKey::UsageKey(std::wstring_view key) : size_(static_cast<std::uint32_t>(key.size())), wide_(false) {
    for (wchar_t c : key)
        if (static_cast<std::uint32_t>(c) > 0xFF) wide_ = true;
    chars_.reset(new unsigned char[wide_ ? key.size() * sizeof(wchar_t) : key.size()]);
    for (std::size_t i = 0; i < key.size(); ++i) {
        if (wide_)
            reinterpret_cast<wchar_t*>(chars_.get())[i] = key[i];
        else
            chars_[i] = static_cast<unsigned char>(key[i]);
    }
}

UsageKey::UsageKey(std::string_view asciiKey)
    : chars_(new unsigned char[asciiKey.size()]), size_(static_cast<std::uint32_t>(asciiKey.size())), wide_(false) {
    for (std::size_t i = 0; i < asciiKey.size(); ++i) chars_[i] = static_cast<unsigned char>(asciiKey[i]);
}

std::wstring UsageKey::ToWide() const {
    std::wstring text(size_, L'\0');
    for (std::size_t i = 0; i < size_; ++i) text[i] = (*this)[i];
    return text;
}

std::string UsageKey::ToUtf8() const {
    if (!wide_) {
        bool ascii = true;
        for (std::size_t i = 0; i < size_ && ascii; ++i) ascii = chars_[i] < 0x80;
        if (ascii) return std::string(reinterpret_cast<char const*>(chars_.get()), size_);
    }
    return WString(ToWide()).ToUtf8();
}

// The state that items and timers reach back to; it outlives the store while
// a handle holds an item.
struct UsageItems : std::enable_shared_from_this<UsageItems> {
    std::mutex mutex;
    // Creation order (a deletion moves the last item into the gap): a pattern
    // scan walks memory in the order it was allocated.
    std::vector<std::shared_ptr<UsageData>> ordered;
    KeyIndex index;
    // Items with changes since the last save (and deleted ones until a save
    // drops them); `dirtyCount` counts the live dirty ones.
    std::vector<std::shared_ptr<UsageData>> dirtyList;
    std::uint32_t dirtyCount = 0;
    std::unordered_set<std::string> deletedKeys;  // folded, since the last save
    std::unordered_map<std::uint64_t, RunningTimer> timers;
    std::uint64_t lastTimerId = 0;

    // All below: the caller holds `mutex`.
    UsageKey const& KeyAt(std::uint32_t place) const { return ordered[place]->key; }

    template <typename Key>
    std::uint32_t PlaceOf(Key const& key) const {
        return index.Find(key, FoldedHash(key), [this](std::uint32_t place) -> UsageKey const& { return KeyAt(place); });
    }

    std::shared_ptr<UsageData> Find(std::wstring_view key) const {
        std::uint32_t place = PlaceOf(key);
        return place != KeyIndex::NotFound ? ordered[place] : nullptr;
    }

    std::shared_ptr<UsageData> FindOrCreate(std::wstring_view key, UsageDataType type, std::uint32_t value) {
        if (auto item = Find(key)) return item;
        auto item = std::make_shared<UsageData>(UsageKey(key), type, value, weak_from_this());
        Adopt(item);
        MarkChanged(*item);
        return item;
    }

    // Takes in an item unless its key is there already; false then.
    bool Adopt(std::shared_ptr<UsageData> const& item) {
        auto place = static_cast<std::uint32_t>(ordered.size());
        auto keyAt = [this](std::uint32_t at) -> UsageKey const& { return KeyAt(at); };
        if (index.InsertUnlessPresent(item->key, FoldedHash(item->key), place, keyAt) != KeyIndex::NotFound)
            return false;
        item->slot = place;
        ordered.push_back(item);
        return true;
    }

    bool Erase(std::wstring_view key) {
        std::uint32_t place = PlaceOf(key);
        if (place == KeyIndex::NotFound) return false;
        UsageData& item = *ordered[place];
        Detach(item);
        if (item.mayBeInFile) deletedKeys.insert(FoldedUtf8(item.key));
        index.Erase(FoldedHash(item.key), place);
        std::uint32_t last = static_cast<std::uint32_t>(ordered.size() - 1);
        if (place != last) {
            ordered[place] = std::move(ordered[last]);
            ordered[place]->slot = place;
            index.Move(FoldedHash(ordered[place]->key), last, place);
        }
        ordered.pop_back();
        return true;
    }

    void MarkChanged(UsageData& item) {
        item.changedSinceSnapshot = true;
        if (!item.dirty.load()) {
            item.dirty.store(true);
            ++dirtyCount;
        }
        if (!item.inDirtyList) {
            item.inDirtyList = true;
            dirtyList.push_back(ordered[item.slot]);
        }
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
        if (!item.history) item.history = std::make_unique<std::vector<int>>();
        item.history->push_back(date);
        item.hasHistory.store(true);
        item.historyChanges.fetch_add(1);
        MarkChanged(item);
    }

    void Detach(UsageData& item) {
        if (item.dirty.load()) --dirtyCount;
        item.removed = true;
    }

    void Clear() {
        for (auto const& item : ordered) Detach(*item);
        ordered.clear();
        index.Clear();
        for (auto const& item : dirtyList) item->inDirtyList = false;
        dirtyList.clear();
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

namespace {

// Puts the rows of the file straight into the store, which the caller holds
// locked: no second copy of a million items is ever made.
class StoreLoader : public UsageRowSink {
public:
    explicit StoreLoader(UsageItems& items) : items_(items) {}

    bool Started() const { return started_; }

    void Expect(std::size_t rows) override {
        started_ = true;
        items_.Clear();
        items_.ordered.reserve(rows);
        items_.index.Reserve(rows);
    }

    void Take(UsageRowView const& row) override {
        UsageKey key = IsAscii(row.key) ? UsageKey(row.key) : UsageKey(WString::FromUtf8(std::string(row.key)).str);
        auto item = std::make_shared<UsageData>(std::move(key), row.type, row.value, items_.weak_from_this());
        item->mayBeInFile = true;
        if (*row.history != '\0') {
            item->history = std::make_unique<std::vector<int>>(ParseUsageHistory(row.history));
            item->hasHistory.store(!item->history->empty());
        }
        items_.Adopt(item);  // a second row of one key (a file not made here) is dropped
    }

private:
    UsageItems& items_;
    bool started_ = false;
};

}  // namespace

bool UsageStore::Open(std::string const& path, std::string& error) {
    std::lock_guard fileLock(fileMutex_);
    std::lock_guard lock(items_->mutex);
    StoreLoader loader(*items_);
    UsageStoreFile::Refusal refusal;
    auto file = UsageStoreFile::Open(path, loader, refusal, error);
    if (!file) {
        // Refused before the rows: the items in memory stay; failed while
        // reading them: the store is left empty rather than half read.
        if (loader.Started()) items_->Clear();
        return false;
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
    return static_cast<unsigned int>(items_->dirtyCount + items_->deletedKeys.size());
}

unsigned int UsageStore::UnsavedItemCount() const {
    std::lock_guard lock(items_->mutex);
    unsigned int unsaved = items_->dirtyCount;
    // A deleted key that lives again is counted once, as the dirty item it is.
    for (std::string const& key : items_->deletedKeys)
        if (items_->PlaceOf(WString::FromUtf8(key).str) == KeyIndex::NotFound) ++unsaved;
    return unsaved;
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
    return static_cast<unsigned int>(items_->ordered.size());
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
                if (KeyMatches(pattern, item->key)) matches.push_back(item);
        }
    }
    for (auto const& item : matches) keys.Add(WString(item->key.ToWide()));
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
        bool datedHistory = (item.type.load() & UsageType::KindMask) == UsageType::Date && item.history &&
                            !item.history->empty();
        owner.Set(item, value, datedHistory);
    });
}

void UsageStore::AddDateToHistory(UsageData& item, int date) {
    ChangeItem(item, [&](UsageItems& owner) { owner.AppendHistory(item, date); });
}

WString UsageStore::History(UsageData const& item) {
    auto text = [&item] { return WString(item.history ? FormatUsageHistory(*item.history) : std::wstring()); };
    auto owner = item.owner.lock();
    if (!owner) return text();  // nobody can change it any more
    std::lock_guard lock(owner->mutex);
    return text();
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

    // The items being saved stay in no list but this one; they keep their
    // place in it (`inDirtyList`) so that a change meanwhile queues nothing.
    std::vector<std::shared_ptr<UsageData>> saved;
    std::vector<UsageRow> rows;
    std::vector<std::string> deletions;
    {
        std::lock_guard lock(items_->mutex);
        if (items_->dirtyList.empty() && items_->deletedKeys.empty()) return;
        saved.swap(items_->dirtyList);
        std::erase_if(saved, [](auto const& item) {
            item->inDirtyList = !item->removed;
            return item->removed;
        });
        rows.reserve(saved.size());
        for (auto const& item : saved) {
            item->changedSinceSnapshot = false;
            item->mayBeInFile = true;
            rows.push_back(UsageRow{item->key.ToUtf8(), item->type.load(), item->value.load(),
                                    item->history ? *item->history : std::vector<int>()});
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
    } else {
        lastSaveRowCount_.store(static_cast<unsigned int>(rows.size() + deletions.size()));
    }
    for (auto& item : saved) {
        if (item->removed) {
            item->inDirtyList = false;
        } else if (!ok || item->changedSinceSnapshot) {
            items_->dirtyList.push_back(std::move(item));
        } else {
            item->inDirtyList = false;
            item->dirty.store(false);
            --items_->dirtyCount;
        }
    }
}
