#include "UsageStoreFile.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <cstdlib>

namespace {

constexpr int FormatVersion = 1;
// Long enough to wait out a reader's checkpoint, short enough that a keeper
// whose save fails goes on and retries at its next interval.
constexpr int BusyTimeoutMs = 1000;

char const* const CreateSchema =
    "BEGIN;"
    "CREATE TABLE usage_store_format(version INTEGER NOT NULL);"
    "INSERT INTO usage_store_format VALUES(1);"
    "CREATE TABLE usage_item(key TEXT PRIMARY KEY COLLATE NOCASE, type INTEGER NOT NULL,"
    " value INTEGER NOT NULL, history TEXT NOT NULL DEFAULT '');"
    "COMMIT;";

std::vector<int> ParseHistory(char const* text) {
    std::vector<int> history;
    while (text != nullptr && *text != '\0') {
        char* end = nullptr;
        history.push_back(static_cast<int>(std::strtol(text, &end, 10)));
        if (end == text) break;
        text = *end == ',' ? end + 1 : end;
    }
    return history;
}

// Closes a statement at the end of a scope.
struct StatementGuard {
    sqlite3_stmt* statement = nullptr;
    ~StatementGuard() { sqlite3_finalize(statement); }
};

}  // namespace

std::wstring FormatUsageHistory(std::vector<int> const& history) {
    std::wstring text;
    for (int date : history) {
        if (!text.empty()) text += L',';
        text += std::to_wstring(date);
    }
    return text;
}

UsageStoreFile::UsageStoreFile(sqlite3* db, std::string path) : db_(db), path_(std::move(path)) {}

UsageStoreFile::~UsageStoreFile() {
    sqlite3_finalize(upsert_);
    sqlite3_finalize(delete_);
    sqlite3_close(db_);
}

std::string UsageStoreFile::LastError() const {
    return db_ != nullptr ? sqlite3_errmsg(db_) : "out of memory";
}

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

std::unique_ptr<UsageStoreFile> UsageStoreFile::Open(std::string const& path, std::vector<UsageRow>& rows,
                                                     std::string& error) {
    error.clear();
    struct stat info;
    bool const exists = ::stat(path.c_str(), &info) == 0;
    int flags = SQLITE_OPEN_READWRITE | (exists ? 0 : SQLITE_OPEN_CREATE);
    sqlite3* db = nullptr;
    int result = sqlite3_open_v2(path.c_str(), &db, flags, nullptr);
    std::unique_ptr<UsageStoreFile> file(new UsageStoreFile(db, path));
    if (result != SQLITE_OK) {
        error = file->LastError();
        return nullptr;
    }
    sqlite3_busy_timeout(db, BusyTimeoutMs);

    if (exists) {
        // Only reads until the file is known to be ours.
        StatementGuard marker;
        bool isStore = file->Prepare("SELECT version FROM usage_store_format", marker.statement, error) &&
                       sqlite3_step(marker.statement) == SQLITE_ROW &&
                       sqlite3_column_int(marker.statement, 0) == FormatVersion;
        if (!isStore) {
            error = "not a usage store" + (error.empty() ? "" : " (" + error + ")");
            return nullptr;
        }
    }
    if (!file->Execute("PRAGMA journal_mode=WAL", error) || !file->Execute("PRAGMA synchronous=FULL", error) ||
        (!exists && !file->Execute(CreateSchema, error)) || !file->ReadRows(rows, error) ||
        !file->Prepare("INSERT INTO usage_item(key, type, value, history) VALUES(?1, ?2, ?3, ?4)"
                       " ON CONFLICT(key) DO UPDATE SET key = ?1, type = ?2, value = ?3, history = ?4",
                       file->upsert_, error) ||
        !file->Prepare("DELETE FROM usage_item WHERE key = ?1", file->delete_, error)) {
        return nullptr;
    }
    return file;
}

bool UsageStoreFile::ReadRows(std::vector<UsageRow>& rows, std::string& error) {
    StatementGuard select;
    if (!Prepare("SELECT key, type, value, history FROM usage_item", select.statement, error)) return false;
    int result;
    while ((result = sqlite3_step(select.statement)) == SQLITE_ROW) {
        auto text = reinterpret_cast<char const*>(sqlite3_column_text(select.statement, 0));
        rows.push_back(UsageRow{WString::FromUtf8(text != nullptr ? text : "").str,
                                static_cast<UsageDataType>(sqlite3_column_int64(select.statement, 1)),
                                static_cast<std::uint32_t>(sqlite3_column_int64(select.statement, 2)),
                                ParseHistory(reinterpret_cast<char const*>(sqlite3_column_text(select.statement, 3)))});
    }
    if (result == SQLITE_DONE) return true;
    error = LastError();
    return false;
}

bool UsageStoreFile::Save(std::vector<std::wstring> const& deletions, std::vector<UsageRow> const& rows,
                          std::string& error) {
    auto step = [&](sqlite3_stmt* statement) {
        bool done = sqlite3_step(statement) == SQLITE_DONE;
        if (!done) error = LastError();
        sqlite3_reset(statement);
        sqlite3_clear_bindings(statement);
        return done;
    };
    bool ok = Execute("BEGIN IMMEDIATE", error);
    for (auto it = deletions.begin(); ok && it != deletions.end(); ++it) {
        std::string key = WString(*it).ToUtf8();
        sqlite3_bind_text(delete_, 1, key.c_str(), static_cast<int>(key.size()), SQLITE_TRANSIENT);
        ok = step(delete_);
    }
    for (auto it = rows.begin(); ok && it != rows.end(); ++it) {
        std::string key = WString(it->key).ToUtf8();
        std::string history = WString(FormatUsageHistory(it->history)).ToUtf8();
        sqlite3_bind_text(upsert_, 1, key.c_str(), static_cast<int>(key.size()), SQLITE_TRANSIENT);
        sqlite3_bind_int64(upsert_, 2, it->type);
        sqlite3_bind_int64(upsert_, 3, it->value);
        sqlite3_bind_text(upsert_, 4, history.c_str(), static_cast<int>(history.size()), SQLITE_TRANSIENT);
        ok = step(upsert_);
    }
    ok = ok && Execute("COMMIT", error);
    if (!ok && sqlite3_get_autocommit(db_) == 0) sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
    return ok;
}
