#include "UsageStoreFile.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <set>

namespace {

namespace fs = std::filesystem;

constexpr int FormatVersion = 1;
// Long enough to wait out a reader's checkpoint, short enough that a keeper
// whose save fails goes on and retries at its next interval.
constexpr int BusyTimeoutMs = 1000;

// The journal mode is switched here, in the file that is not in place yet:
// once renamed, the store needs no write before its check.
char const* const CreateSchema =
    "PRAGMA synchronous=FULL;"
    "BEGIN;"
    "CREATE TABLE usage_store_format(version INTEGER NOT NULL);"
    "INSERT INTO usage_store_format VALUES(1);"
    "CREATE TABLE usage_item(key TEXT PRIMARY KEY COLLATE NOCASE, type INTEGER NOT NULL,"
    " value INTEGER NOT NULL, history TEXT NOT NULL DEFAULT '');"
    "COMMIT;"
    "PRAGMA journal_mode=WAL;";

char const* const ItemColumns[] = {"key", "type", "value", "history"};
char const* const Siblings[] = {"-journal", "-wal", "-shm"};

// Closes a statement at the end of a scope.
struct StatementGuard {
    sqlite3_stmt* statement = nullptr;
    ~StatementGuard() { sqlite3_finalize(statement); }
};

// Closes a connection at the end of a scope.
struct ConnectionGuard {
    sqlite3* db = nullptr;
    ~ConnectionGuard() { sqlite3_close(db); }
};

bool IsLockedCode(int code) {
    code &= 0xFF;
    return code == SQLITE_BUSY || code == SQLITE_LOCKED;
}

// A failure of the disk, not of the file's content: no verdict on whether
// the file is a usage store.
bool IsDiskCode(int code) {
    code &= 0xFF;
    return code == SQLITE_IOERR || code == SQLITE_FULL || code == SQLITE_CANTOPEN || code == SQLITE_NOMEM ||
           code == SQLITE_PERM || code == SQLITE_READONLY;
}

bool IsDiskFull(sqlite3* db) {
    return (sqlite3_extended_errcode(db) & 0xFF) == SQLITE_FULL || sqlite3_system_errno(db) == ENOSPC;
}

// Why the last call on `db` failed; a full disk says so first.
std::string Describe(sqlite3* db) {
    if (db == nullptr) return "out of memory";
    std::string reason = sqlite3_errmsg(db);
    return IsDiskFull(db) ? "disk full (" + reason + ")" : reason;
}

std::uintmax_t SizeOrZero(std::string const& path) {
    std::error_code failure;
    std::uintmax_t size = fs::file_size(path, failure);
    return failure ? 0 : size;
}

// No store yet: no file, or an empty one that no write-ahead log fills.
bool HasNoStore(std::string const& path) {
    std::error_code failure;
    if (!fs::exists(path, failure)) return !failure;
    return fs::is_regular_file(path, failure) && SizeOrZero(path) == 0 && SizeOrZero(path + "-wal") == 0;
}

void RemoveWithSiblings(std::string const& path) {
    std::error_code ignored;
    fs::remove(path, ignored);
    for (char const* sibling : Siblings) fs::remove(path + sibling, ignored);
}

// Makes a rename in `folder` survive a power cut.
void SyncFolder(std::string const& folder) {
    int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) return;
    ::fsync(descriptor);
    ::close(descriptor);
}

// Builds the empty store beside `path` and renames it into place.
bool CreateEmptyStore(std::string const& path, std::string& error) {
    std::string const temporary = path + ".new";
    RemoveWithSiblings(temporary);
    // Journals of a store that is not there belong to nothing.
    for (char const* sibling : Siblings) {
        std::error_code ignored;
        fs::remove(path + sibling, ignored);
    }
    {
        ConnectionGuard connection;
        int result = sqlite3_open_v2(temporary.c_str(), &connection.db,
                                     SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
        if (result == SQLITE_OK) result = sqlite3_exec(connection.db, CreateSchema, nullptr, nullptr, nullptr);
        if (result != SQLITE_OK) error = Describe(connection.db);
    }
    if (!error.empty()) {
        RemoveWithSiblings(temporary);  // a full disk gets its room back
        return false;
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        error = "cannot put the new store in place";
        RemoveWithSiblings(temporary);
        return false;
    }
    SyncFolder(fs::path(path).parent_path().string());
    return true;
}

std::string FormatHistoryText(std::vector<int> const& history) {
    std::string text;
    for (int date : history) {
        if (!text.empty()) text += ',';
        text += std::to_string(date);
    }
    return text;
}

// Reads the marker and the item table's columns on a read-only connection,
// which cannot change the file; the journal files such a connection leaves
// behind are removed again when the file is refused.
UsageStoreFile::Refusal CheckIsUsageStore(std::string const& path, std::string& error) {
    using Refusal = UsageStoreFile::Refusal;
    bool hadSibling[3];
    for (int i = 0; i < 3; ++i) hadSibling[i] = fs::exists(path + Siblings[i]);
    Refusal refusal = Refusal::None;
    {
        ConnectionGuard connection;
        if (sqlite3_open_v2(path.c_str(), &connection.db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
            error = Describe(connection.db);
            return Refusal::CannotOpen;
        }
        sqlite3_busy_timeout(connection.db, BusyTimeoutMs);
        auto fail = [&](char const* what) {
            int code = sqlite3_extended_errcode(connection.db);
            if (IsLockedCode(code)) {
                error = "locked by another process";
                return Refusal::Locked;
            }
            if (IsDiskCode(code)) {
                error = Describe(connection.db);
                return Refusal::CannotOpen;
            }
            error = std::string("not a usage store (") + (code == SQLITE_OK ? what : sqlite3_errmsg(connection.db)) + ")";
            return Refusal::NotAStore;
        };
        StatementGuard marker;
        if (sqlite3_prepare_v2(connection.db, "SELECT version FROM usage_store_format", -1, &marker.statement,
                               nullptr) != SQLITE_OK ||
            sqlite3_step(marker.statement) != SQLITE_ROW) {
            refusal = fail("no format marker");
        } else if (sqlite3_column_int(marker.statement, 0) != FormatVersion) {
            error = "not a usage store (format " + std::to_string(sqlite3_column_int(marker.statement, 0)) + ")";
            refusal = Refusal::NotAStore;
        } else {
            StatementGuard columns;
            std::set<std::string> names;
            int step = SQLITE_ERROR;
            if (sqlite3_prepare_v2(connection.db, "SELECT name FROM pragma_table_info('usage_item')", -1,
                                   &columns.statement, nullptr) == SQLITE_OK) {
                while ((step = sqlite3_step(columns.statement)) == SQLITE_ROW)
                    names.insert(reinterpret_cast<char const*>(sqlite3_column_text(columns.statement, 0)));
            }
            if (step != SQLITE_DONE) {
                refusal = fail("no item table");
            } else {
                for (char const* column : ItemColumns) {
                    if (names.count(column) != 0) continue;
                    error = std::string("not a usage store (no column ") + column + " in usage_item)";
                    refusal = Refusal::NotAStore;
                    break;
                }
            }
        }
    }
    if (refusal != Refusal::None) {
        std::error_code ignored;
        for (int i = 0; i < 3; ++i)
            if (!hadSibling[i]) fs::remove(path + Siblings[i], ignored);
    }
    return refusal;
}

}  // namespace

std::wstring FormatUsageHistory(std::vector<int> const& history) {
    std::string text = FormatHistoryText(history);
    return std::wstring(text.begin(), text.end());  // digits and commas only
}

std::vector<int> ParseUsageHistory(char const* text) {
    std::vector<int> history;
    while (text != nullptr && *text != '\0') {
        char* end = nullptr;
        long date = std::strtol(text, &end, 10);
        if (end == text) break;
        history.push_back(static_cast<int>(date));
        text = *end == ',' ? end + 1 : end;
    }
    return history;
}

UsageStoreFile::UsageStoreFile(sqlite3* db, std::string path) : db_(db), path_(std::move(path)) {}

UsageStoreFile::~UsageStoreFile() {
    sqlite3_finalize(upsert_);
    sqlite3_finalize(delete_);
    sqlite3_close(db_);
}

std::string UsageStoreFile::LastError() const { return Describe(db_); }

bool UsageStoreFile::Execute(char const* sql, std::string& error) {
    if (sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) == SQLITE_OK) return true;
    error = LastError();
    return false;
}

bool UsageStoreFile::Prepare(char const* sql, sqlite3_stmt*& statement, std::string& error) {
    if (sqlite3_prepare_v2(db_, sql, -1, &statement, nullptr) == SQLITE_OK) return true;
    error = LastError();
    return false;
}

std::unique_ptr<UsageStoreFile> UsageStoreFile::Open(std::string const& path, UsageRowSink& sink,
                                                     Refusal& refusal, std::string& error) {
    error.clear();
    refusal = Refusal::CannotOpen;
    if (HasNoStore(path) && !CreateEmptyStore(path, error)) return nullptr;
    refusal = CheckIsUsageStore(path, error);
    if (refusal != Refusal::None) return nullptr;

    refusal = Refusal::CannotOpen;
    sqlite3* db = nullptr;
    int result = sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr);
    std::unique_ptr<UsageStoreFile> file(new UsageStoreFile(db, path));
    if (result != SQLITE_OK) {
        error = file->LastError();
        return nullptr;
    }
    sqlite3_busy_timeout(db, BusyTimeoutMs);
    if (!file->Execute("PRAGMA journal_mode=WAL", error) || !file->Execute("PRAGMA synchronous=FULL", error) ||
        // The key is left out of the update: rewriting it would move its
        // index entry. A key created again in another spelling was deleted
        // first in the same transaction, so its row is new.
        !file->Prepare("INSERT INTO usage_item(key, type, value, history) VALUES(?1, ?2, ?3, ?4)"
                       " ON CONFLICT(key) DO UPDATE SET type = ?2, value = ?3, history = ?4",
                       file->upsert_, error) ||
        !file->Prepare("DELETE FROM usage_item WHERE key = ?1", file->delete_, error) ||
        !file->ReadRows(sink, error)) {
        if (IsLockedCode(sqlite3_extended_errcode(db))) {
            refusal = Refusal::Locked;
            error = "locked by another process";
        }
        return nullptr;
    }
    refusal = Refusal::None;
    return file;
}

bool UsageStoreFile::ReadRows(UsageRowSink& sink, std::string& error) {
    // The exact count (a walk of the key index) lets the store size its
    // index once instead of growing it through a million insertions.
    StatementGuard count;
    if (!Prepare("SELECT count(*) FROM usage_item", count.statement, error)) return false;
    sqlite3_int64 rows = sqlite3_step(count.statement) == SQLITE_ROW ? sqlite3_column_int64(count.statement, 0) : 0;
    sink.Expect(static_cast<std::size_t>(rows > 0 ? rows : 0));

    // One prepared statement streams the table, so no copy of it is held.
    // In key order, as a monitor sorts its keys: the items are then made,
    // and lie in memory, in the order that its passes walk them. In the
    // table's own order (that of the first saves) each lookup of a pass
    // would go to another page; the sort costs about half a second at a
    // million items.
    StatementGuard select;
    if (!Prepare("SELECT key, type, value, history FROM usage_item ORDER BY key COLLATE BINARY", select.statement,
                 error))
        return false;
    sqlite3_stmt* row = select.statement;
    int result;
    while ((result = sqlite3_step(row)) == SQLITE_ROW) {
        auto key = reinterpret_cast<char const*>(sqlite3_column_text(row, 0));
        auto keyBytes = static_cast<std::size_t>(sqlite3_column_bytes(row, 0));
        auto history = reinterpret_cast<char const*>(sqlite3_column_text(row, 3));
        sink.Take(UsageRowView{std::string_view(key != nullptr ? key : "", keyBytes),
                          static_cast<UsageDataType>(sqlite3_column_int64(row, 1)),
                          static_cast<std::uint32_t>(sqlite3_column_int64(row, 2)), history != nullptr ? history : ""});
    }
    if (result == SQLITE_DONE) return true;
    error = LastError();
    return false;
}

bool UsageStoreFile::Save(std::vector<std::string> const& deletions, std::vector<UsageRow> const& rows,
                          std::string& error) {
    auto step = [&](sqlite3_stmt* statement) {
        bool done = sqlite3_step(statement) == SQLITE_DONE;
        if (!done) error = LastError();
        sqlite3_reset(statement);
        return done;
    };
    bool ok = Execute("BEGIN IMMEDIATE", error);
    for (auto it = deletions.begin(); ok && it != deletions.end(); ++it) {
        sqlite3_bind_text(delete_, 1, it->data(), static_cast<int>(it->size()), SQLITE_STATIC);
        ok = step(delete_);
    }
    std::string history;
    for (auto it = rows.begin(); ok && it != rows.end(); ++it) {
        history = FormatHistoryText(it->history);
        sqlite3_bind_text(upsert_, 1, it->key.data(), static_cast<int>(it->key.size()), SQLITE_STATIC);
        sqlite3_bind_int64(upsert_, 2, it->type);
        sqlite3_bind_int64(upsert_, 3, it->value);
        sqlite3_bind_text(upsert_, 4, history.data(), static_cast<int>(history.size()), SQLITE_STATIC);
        ok = step(upsert_);
    }
    ok = ok && Execute("COMMIT", error);
    if (!ok && sqlite3_get_autocommit(db_) == 0) sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
    return ok;
}
