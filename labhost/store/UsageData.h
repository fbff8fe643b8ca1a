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
#include <bit>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "UsageLog.h"

struct UsageItems;  // the owning store's shared state (UsageStore.cpp)

// A key in as few bytes as its characters allow: one a character when all
// are below 256, else the wide characters. Keys of up to 40 bytes (nearly
// all) are kept inside the record itself, so that a look-up by key touches
// no memory beyond the item it finds. A key of bytes is zero padded to whole
// 64-bit words, which the store's index hashes and compares a word at a time.
class UsageKey {
public:
    explicit UsageKey(std::wstring_view key);
    // Bytes that are all ASCII.
    explicit UsageKey(std::string_view asciiKey);
    UsageKey(UsageKey&& other) noexcept;
    UsageKey& operator=(UsageKey&&) = delete;
    ~UsageKey();

    std::size_t size() const { return size_; }
    wchar_t operator[](std::size_t i) const {
        return wide_ ? WideChars()[i] : static_cast<wchar_t>(Bytes()[i]);
    }
    // Calls `visit` with the characters as a span of unsigned char or of
    // wchar_t, so that loops over them need no test per character.
    template <typename Visitor>
    decltype(auto) Visit(Visitor&& visit) const {
        if (wide_) return visit(std::span<wchar_t const>(WideChars(), size_));
        return visit(std::span<unsigned char const>(Bytes(), size_));
    }
    std::wstring ToWide() const;
    std::string ToUtf8() const;

    bool IsWide() const { return wide_; }
    // Of a key of bytes: eight characters a word, the first in the lowest
    // byte, the last word zero padded.
    static constexpr std::size_t WordsFor(std::size_t characters) { return (characters + 7) / 8; }
    std::size_t WordCount() const { return WordsFor(size_); }
    std::uint64_t Word(std::size_t i) const {
        std::uint64_t word;
        std::memcpy(&word, Bytes() + 8 * i, sizeof word);
        return word;
    }

private:
    static constexpr std::size_t InlineBytes = 40;
    static_assert(std::endian::native == std::endian::little, "a key's first byte is the lowest of its first word");

    UsageKey(std::size_t size, bool wide);
    std::size_t ByteCount() const { return wide_ ? std::size_t{size_} * sizeof(wchar_t) : WordCount() * 8; }
    bool IsInline() const { return ByteCount() <= InlineBytes; }
    unsigned char* Bytes() { return IsInline() ? inline_ : heap_; }
    unsigned char const* Bytes() const { return IsInline() ? inline_ : heap_; }
    wchar_t* WideChars() { return reinterpret_cast<wchar_t*>(Bytes()); }
    wchar_t const* WideChars() const { return reinterpret_cast<wchar_t const*>(Bytes()); }

    std::uint32_t size_;
    bool wide_;
    union {
        alignas(std::uint64_t) unsigned char inline_[InlineBytes];
        unsigned char* heap_;
    };
};

struct UsageData {
    UsageData(UsageKey itemKey, UsageDataType itemType, std::uint32_t itemValue, std::weak_ptr<UsageItems> itemOwner)
        : key(std::move(itemKey)), type(itemType), value(itemValue), owner(std::move(itemOwner)) {}

    // The key and value first: a look-up compares the one and reads the other.
    UsageKey const key;  // spelling as created
    std::atomic<UsageDataType> type;
    std::atomic<std::uint32_t> value;
    std::weak_ptr<UsageItems> const owner;

    // Bumped with every change to the history, so watchers see it change.
    std::atomic<std::uint32_t> historyChanges{0};
    std::atomic<bool> dirty{false};
    std::atomic<bool> hasHistory{false};

    // Guarded by the owner's lock.
    bool removed = false;
    bool changedSinceSnapshot = false;  // tells a save whether the item changed again meanwhile
    bool inDirtyList = false;
    bool mayBeInFile = false;           // a deletion must reach the file
    // The place the lookup after this item's lookup went to last time, and
    // 16 bits of that key's hash: the store's guess, checked before its
    // index. Both sit in padding that the record has anyway.
    std::uint16_t nextLookupTag = 0;
    std::uint32_t slot = 0;             // place in the store's creation-order list
    std::uint32_t keyHash = 0;          // of the folded key, for the store's index
    std::uint32_t nextLookupPlace = 0xFFFFFFFFu;
    std::unique_ptr<std::vector<int>> history;  // UsageDateInt, oldest first; null while empty
};
