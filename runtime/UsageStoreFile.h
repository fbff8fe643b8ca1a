// The usage store's file: an SQLite database that the PC software may read
// with its own tools while the host writes it (WAL journal).
//
// Schema: usage_store_format(version) holds one row, the marker that tells a
// usage store from any other database; usage_item(key, type, value, history)
// holds one row per item, keys unique without regard to ASCII case, the value
// as the unsigned 32-bit word, the history as "date,date,..." oldest first.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "UsageLog.h"

struct sqlite3;
struct sqlite3_stmt;

struct UsageRow {
    std::wstring key;
    UsageDataType type;
    std::uint32_t value;
    std::vector<int> history;
};

class UsageStoreFile {
public:
    // Opens the file, creating it with the schema when it is missing, and
    // gives all its items. A file that is not a usage store is refused before
    // anything is written to it: null with `error` set (without the path,
    // which the caller names).
    static std::unique_ptr<UsageStoreFile> Open(std::string const& path, std::vector<UsageRow>& rows,
                                                std::string& error);
    ~UsageStoreFile();
    UsageStoreFile(UsageStoreFile const&) = delete;
    UsageStoreFile& operator=(UsageStoreFile const&) = delete;

    // One transaction: the deletions first, then the rows (insert or replace).
    // On failure nothing is changed and `error` says why.
    bool Save(std::vector<std::wstring> const& deletions, std::vector<UsageRow> const& rows, std::string& error);

    std::string const& Path() const { return path_; }

private:
    UsageStoreFile(sqlite3* db, std::string path);
    bool Execute(char const* sql, std::string& error);
    bool Prepare(char const* sql, sqlite3_stmt*& statement, std::string& error);
    bool ReadRows(std::vector<UsageRow>& rows, std::string& error);
    std::string LastError() const;

    sqlite3* db_;
    std::string path_;
    sqlite3_stmt* upsert_ = nullptr;
    sqlite3_stmt* delete_ = nullptr;
};

// The history's text: dates in decimal, oldest first, "," between them.
std::wstring FormatUsageHistory(std::vector<int> const& history);
