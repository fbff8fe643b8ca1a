#include "UsageStore.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <unordered_map>
#include <unordered_set>

#include "InlineMutex.h"
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

// The characters of a key as a span, whichever way it is kept.
template <typename Visitor>
decltype(auto) WithChars(std::wstring_view key, Visitor&& visit) {
    return visit(std::span<wchar_t const>(key.data(), key.size()));
}
template <typename Visitor>
decltype(auto) WithChars(UsageKey const& key, Visitor&& visit) {
    return key.Visit(visit);
}

template <typename A, typename B>
bool EqualChars(std::span<A const> a, std::span<B const> b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (FoldAsciiCase(static_cast<wchar_t>(a[i])) != FoldAsciiCase(static_cast<wchar_t>(b[i]))) return false;
    return true;
}

template <typename A, typename B>
bool FoldedEqual(A const& a, B const& b) {
    return WithChars(a, [&b](auto x) { return WithChars(b, [&x](auto y) { return EqualChars(x, y); }); });
}

// Eight characters a word mixed in with one multiply. Setting bit 5 of
// every byte makes a capital and its small letter alike; among the other
// characters of a valid key it joins none.
template <typename Words>
std::uint32_t HashWords(std::size_t size, std::size_t wordCount, Words const& words) {
    constexpr std::uint64_t CaseBits = 0x2020202020202020ull;
    auto mix = [](std::uint64_t hash, std::uint64_t word) {
        hash = (hash ^ word) * 0x9E3779B97F4A7C15ull;
        return hash ^ (hash >> 32);
    };
    std::uint64_t hash = size;
    for (std::size_t i = 0; i < wordCount; ++i) hash = mix(hash, words.Word(i) | CaseBits);
    return static_cast<std::uint32_t>(mix(hash, 0));
}

// A key being looked up, packed once as a key of bytes is kept: the low
// bytes of its characters, eight to a word. Whether every character fits a
// byte decides if whole words can settle a comparison.
class PackedKey {
public:
    explicit PackedKey(std::wstring_view key) : text_(key) {
        std::size_t count = WordCount();
        if (count > InlineWords) heap_ = std::make_unique<std::uint64_t[]>(count);
        words_ = heap_ ? heap_.get() : inline_;
        std::uint32_t all = 0;
        std::size_t full = key.size() / 8;
        for (std::size_t w = 0; w < full; ++w) words_[w] = Pack(&key[8 * w], 8, all);
        if (full < count) words_[full] = Pack(&key[8 * full], key.size() - 8 * full, all);
        narrow_ = all <= 0xFF;
    }

    std::wstring_view Text() const { return text_; }
    bool IsNarrow() const { return narrow_; }
    std::size_t size() const { return text_.size(); }
    std::size_t WordCount() const { return UsageKey::WordsFor(text_.size()); }
    std::uint64_t Word(std::size_t i) const { return words_[i]; }
    std::uint32_t Hash() const { return HashWords(size(), WordCount(), *this); }

private:
    static constexpr std::size_t InlineWords = 8;

    // The low bytes of up to eight characters, the first lowest; `all` gathers their bits.
    [[gnu::always_inline]] static std::uint64_t Pack(wchar_t const* chars, std::size_t count, std::uint32_t& all) {
        std::uint64_t word = 0;
#pragma GCC unroll 8  // it runs for every look-up: unrolled, a 20-character one costs a sixth fewer instructions
        for (std::size_t i = 0; i < count; ++i) {
            auto c = static_cast<std::uint32_t>(chars[i]);
            all |= c;
            word |= std::uint64_t{c & 0xFF} << (8 * i);
        }
        return word;
    }

    std::wstring_view text_;
    bool narrow_;
    std::uint64_t* words_;
    std::uint64_t inline_[InlineWords];
    std::unique_ptr<std::uint64_t[]> heap_;
};

std::uint32_t KeyHash(UsageKey const& key) {
    if (key.IsWide()) return PackedKey(key.ToWide()).Hash();
    return HashWords(key.size(), key.WordCount(), key);
}

// A look-up nearly always names a key as it was spelt: whole words settle
// that, and only a key named in other letter case (or with characters
// beyond a byte) is compared a character at a time.
bool SameKey(UsageKey const& stored, PackedKey const& key) {
    if (stored.size() != key.size()) return false;
    if (!stored.IsWide() && key.IsNarrow()) {
        std::uint64_t difference = 0;
        for (std::size_t i = 0; i < key.WordCount(); ++i) difference |= stored.Word(i) ^ key.Word(i);
        if (difference == 0) return true;
    }
    return FoldedEqual(stored, key.Text());
}

bool SameKey(UsageKey const& stored, UsageKey const& key) { return FoldedEqual(stored, key); }

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
// linear probing, at most 80 % full. A slot is one 32-bit word, a place and
// eight bits of its key's hash, so that sixteen fit a cache line and the
// index of 100 000 items stays within half a megabyte: a monitor that looks
// up every key each second finds it mostly in cache. A probe that meets
// another key's slot rarely touches that key's item. The full hash of a
// place's key, which growth and deletion need, comes from `places`.
//
// `places` gives `KeyAt(place)` and `HashAt(place)`.
class KeyIndex {
public:
    static constexpr std::uint32_t NotFound = 0xFFFFFFFFu;
    // Places take 24 bits: on the instrument memory runs out long before.
    static constexpr std::uint32_t MaxPlaces = 0xFFFFFFu;

    template <typename Key, typename Places>
    std::uint32_t Find(Key const& key, std::uint32_t hash, Places const& places) const {
        if (slots_.empty()) return NotFound;
        for (std::size_t i = Home(hash);; i = Next(i)) {
            std::uint32_t slot = slots_[i];
            if (slot == Empty) return NotFound;
            if (TagOf(slot) == Tag(hash) && SameKey(places.KeyAt(PlaceOf(slot)), key)) return PlaceOf(slot);
        }
    }

    template <typename Places>
    void Reserve(std::size_t items, Places const& places) {
        std::size_t capacity = 16;
        while (capacity * 4 < items * 5) capacity *= 2;
        if (capacity > slots_.size()) Rebuild(capacity, places);
    }

    // Enters `place` for the key unless the key is there: then its place.
    // One probe does both, which counts when a million keys are loaded.
    template <typename Key, typename Places>
    std::uint32_t InsertUnlessPresent(Key const& key, std::uint32_t hash, std::uint32_t place, Places const& places) {
        Reserve(used_ + 1, places);
        std::size_t i = Home(hash);
        for (; slots_[i] != Empty; i = Next(i))
            if (TagOf(slots_[i]) == Tag(hash) && SameKey(places.KeyAt(PlaceOf(slots_[i])), key))
                return PlaceOf(slots_[i]);
        slots_[i] = Slot(place, hash);
        ++used_;
        return NotFound;
    }

    template <typename Places>
    void Erase(std::uint32_t hash, std::uint32_t place, Places const& places) {
        std::size_t hole = SlotOf(hash, place);
        // Backward shift: pull later entries of the run into the hole unless
        // their home lies cyclically after it.
        for (std::size_t next = Next(hole); slots_[next] != Empty; next = Next(next)) {
            std::size_t home = Home(places.HashAt(PlaceOf(slots_[next])));
            bool stays = hole <= next ? (hole < home && home <= next) : (hole < home || home <= next);
            if (stays) continue;
            slots_[hole] = slots_[next];
            hole = next;
        }
        slots_[hole] = Empty;
        --used_;
    }

    void Move(std::uint32_t hash, std::uint32_t from, std::uint32_t to) { slots_[SlotOf(hash, from)] = Slot(to, hash); }

    void Clear() {
        slots_.clear();
        slots_.shrink_to_fit();
        used_ = 0;
    }

private:
    static constexpr std::uint32_t Empty = 0xFFFFFFFFu;  // its place, all 24 bits set, is no place

    // The tag comes from the hash's top bits, the home slot from its low ones.
    static std::uint32_t Tag(std::uint32_t hash) { return hash >> 24; }
    static std::uint32_t Slot(std::uint32_t place, std::uint32_t hash) { return place << 8 | Tag(hash); }
    static std::uint32_t PlaceOf(std::uint32_t slot) { return slot >> 8; }
    static std::uint32_t TagOf(std::uint32_t slot) { return slot & 0xFFu; }
    std::size_t Home(std::uint32_t hash) const { return hash & (slots_.size() - 1); }
    std::size_t Next(std::size_t i) const { return (i + 1) & (slots_.size() - 1); }

    std::size_t SlotOf(std::uint32_t hash, std::uint32_t place) const {
        std::size_t i = Home(hash);
        while (PlaceOf(slots_[i]) != place) i = Next(i);
        return i;
    }

    template <typename Places>
    void Rebuild(std::size_t capacity, Places const& places) {
        std::vector<std::uint32_t> old(capacity, Empty);
        old.swap(slots_);
        for (std::uint32_t slot : old) {
            if (slot == Empty) continue;
            std::size_t i = Home(places.HashAt(PlaceOf(slot)));
            while (slots_[i] != Empty) i = Next(i);
            slots_[i] = slot;
        }
    }

    std::vector<std::uint32_t> slots_;
    std::size_t used_ = 0;
};

}  // namespace

UsageKey::UsageKey(std::size_t size, bool wide) : size_(static_cast<std::uint32_t>(size)), wide_(wide) {
    // Zeroed: a key of bytes ends in zero padding.
    if (IsInline())
        std::memset(inline_, 0, InlineBytes);
    else
        heap_ = new unsigned char[ByteCount()]();
}

UsageKey::UsageKey(std::wstring_view key)
    : UsageKey(key.size(), std::any_of(key.begin(), key.end(), [](wchar_t c) { return static_cast<std::uint32_t>(c) > 0xFF; })) {
    for (std::size_t i = 0; i < key.size(); ++i) {
        if (wide_)
            WideChars()[i] = key[i];
        else
            Bytes()[i] = static_cast<unsigned char>(key[i]);
    }
}

UsageKey::UsageKey(std::string_view asciiKey) : UsageKey(asciiKey.size(), false) {
    std::memcpy(Bytes(), asciiKey.data(), asciiKey.size());
}

UsageKey::UsageKey(UsageKey&& other) noexcept : size_(other.size_), wide_(other.wide_) {
    if (IsInline()) {
        std::memcpy(inline_, other.inline_, InlineBytes);
    } else {
        heap_ = other.heap_;
        other.size_ = 0;  // inline and empty: nothing left to free
    }
}

UsageKey::~UsageKey() {
    if (!IsInline()) delete[] heap_;
}

std::wstring UsageKey::ToWide() const {
    std::wstring text(size_, L'\0');
    for (std::size_t i = 0; i < size_; ++i) text[i] = (*this)[i];
    return text;
}

std::string UsageKey::ToUtf8() const {
    if (!wide_) {
        std::string bytes(reinterpret_cast<char const*>(Bytes()), size_);
        if (IsAscii(bytes)) return bytes;
    }
    return WString(ToWide()).ToUtf8();
}

// Lookups come again in the order they came before: a monitor looks up
// every key in one order each pass, an alert run the keys of its schedule in
// the order of the file. So each item keeps where the lookup after it went
// last time (with a tag of that key's hash), and a lookup that follows the
// item this thread found last tries that place before the index, which saves
// the one access to memory that no order can make cheap: the index's slot.
// The item after it is fetched ahead. Only the key comparison decides, so a
// guess that went stale (a deletion moves the last item into the gap) costs
// no more than that comparison.
namespace {
struct LastLookup {
    UsageItems const* items;
    std::uint32_t place;
};
thread_local LastLookup lastLookup [[gnu::tls_model("initial-exec")]] = {nullptr, 0};
}  // namespace

// The state that items and timers reach back to; it outlives the store while
// a handle holds an item.
struct UsageItems : std::enable_shared_from_this<UsageItems> {
    InlineMutex mutex;
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
    std::uint32_t HashAt(std::uint32_t place) const { return ordered[place]->keyHash; }

    // Tries the item that the last lookup on this thread went to next last
    // time, then the index; see `LastLookup`. The guess is a hint that this
    // writes into the items, not part of the store's state.
    std::uint32_t PlaceOf(std::wstring_view key) const {
        PackedKey packed(key);
        std::uint32_t hash = packed.Hash();
        UsageData* previous = lastLookup.items == this ? ItemAt(lastLookup.place) : nullptr;
        std::uint32_t place = previous ? Guess(*previous, packed, hash) : KeyIndex::NotFound;
        if (place == KeyIndex::NotFound) {
            place = index.Find(packed, hash, *this);
            if (place == KeyIndex::NotFound) return place;
            if (previous) {
                previous->nextLookupPlace = place;
                previous->nextLookupTag = GuessTag(hash);
            }
        }
        lastLookup = {this, place};
        if (UsageData const* next = ItemAt(ordered[place]->nextLookupPlace)) __builtin_prefetch(next);
        return place;
    }

    // The item at a remembered place, if the list still reaches that far.
    UsageData* ItemAt(std::uint32_t place) const { return place < ordered.size() ? ordered[place].get() : nullptr; }

    static std::uint16_t GuessTag(std::uint32_t hash) { return static_cast<std::uint16_t>(hash); }

    std::uint32_t Guess(UsageData const& previous, PackedKey const& key, std::uint32_t hash) const {
        if (previous.nextLookupTag != GuessTag(hash)) return KeyIndex::NotFound;
        UsageData const* guessed = ItemAt(previous.nextLookupPlace);
        return guessed && SameKey(guessed->key, key) ? previous.nextLookupPlace : KeyIndex::NotFound;
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
        if (place >= KeyIndex::MaxPlaces)
            throw std::length_error("the usage store holds " + std::to_string(place) + " items, the most it can");
        item->keyHash = KeyHash(item->key);
        if (index.InsertUnlessPresent(item->key, item->keyHash, place, *this) != KeyIndex::NotFound) return false;
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
        index.Erase(item.keyHash, place, *this);
        std::uint32_t last = static_cast<std::uint32_t>(ordered.size() - 1);
        if (place != last) {
            ordered[place] = std::move(ordered[last]);
            ordered[place]->slot = place;
            index.Move(ordered[place]->keyHash, last, place);
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
        items_.index.Reserve(rows, items_);
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
