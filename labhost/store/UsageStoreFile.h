// The usage store's file: an SQLite database that the PC software may read
// with its own tools while the host writes it (WAL journal).
//
// Schema: usage_store_format(version) holds one row, the marker that tells a
// usage store from any other database; usage_item(key, type, value, history)
// holds one row per item, keys unique without regard to ASCII case, the value
// as the unsigned 32-bit word, the history as "date,date,..." oldest first.
//
// A missing file is created whole or not at all: the empty store is built in
// "usage.db.new" beside it and renamed into place, so a start killed at any
// moment leaves no store or a complete one. A leftover "usage.db.new" is the
// garbage of such a start and is replaced.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "UsageLog.h"

struct sqlite3;
struct sqlite3_stmt;

// One item as the file holds it; the key in UTF-8.
struct UsageRow {
    std::string key;
    UsageDataType type;
    std::uint32_t value;
    std::vector<int> history;
};

// One item as it is read; the texts are valid during the call only.
struct UsageRowView {
    std::string_view key;  // UTF-8
    UsageDataType type;
    std::uint32_t value;
    char const* history;   // "date,date,...", possibly empty
};
// Takes the rows of the file as they are read.
class UsageRowSink {
public:
    virtual ~UsageRowSink() = default;
    // Before the first row, once the file is known to be a usage store:
    // how many rows follow.
    virtual void Expect(std::size_t rows) = 0;
    virtual void Take(UsageRowView const& row) = 0;
};

class UsageStoreFile {
public:
    enum class Refusal { None, CannotOpen, NotAStore, Locked };

    // Opens the file, creating it with the schema when it is missing, and
    // hands every item to `sink`; a failure after the first row leaves the
    // sink with part of them. A file that is not a usage store is refused
    // before anything is written to it (tables and columns are checked on a
    // read-only connection); a file that another process holds locked is
    // refused as locked. On refusal: null, `refusal` and `error` set (without
    // the path, which the caller names).
    static std::unique_ptr<UsageStoreFile> Open(std::string const& path, UsageRowSink& sink, Refusal& refusal,
                                                std::string& error);
    ~UsageStoreFile();
    UsageStoreFile(UsageStoreFile const&) = delete;
    UsageStoreFile& operator=(UsageStoreFile const&) = delete;

    // One transaction: the deletions first, then the rows (insert or replace).
    // On failure nothing is changed and `error` says why.
    bool Save(std::vector<std::string> const& deletions, std::vector<UsageRow> const& rows, std::string& error);

    std::string const& Path() const { return path_; }

private:
    UsageStoreFile(sqlite3* db, std::string path);
    bool Execute(char const* sql, std::string& error);
    bool Prepare(char const* sql, sqlite3_stmt*& statement, std::string& error);
    bool ReadRows(UsageRowSink& sink, std::string& error);
    std::string LastError() const;

    sqlite3* db_;
    std::string path_;
    sqlite3_stmt* upsert_ = nullptr;
    sqlite3_stmt* delete_ = nullptr;
};

// The history's text: dates in decimal, oldest first, "," between them.
std::wstring FormatUsageHistory(std::vector<int> const& history);
std::vector<int> ParseUsageHistory(char const* text);
