// The usage store's file: round trips, saves that write only what changed,
// files that are not a usage store (another schema, truncated, random
// bytes) or are locked, and saves killed at random moments. Saves while
// runs change items: store_load_test; a full disk: store_folder_test.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>

#include "UsageLog.h"
#include "labhost/store/UsageStore.h"
#include "store_faults.h"
#include "tests/support/test_support.h"

namespace fs = std::filesystem;

namespace {

std::wstring NumberedKey(int i) { return L"Item." + std::to_wstring(i) + L".Count"; }

class StoreFile : public TempFolderTest {
protected:
    std::string Db() const { return (dir_ / "usage.db").string(); }

    void Open(UsageLog& usage) {
        std::string error;
        ASSERT_TRUE(usage.Store().Open(Db(), error)) << error;
    }

    // A store of `items` numbered counters, each `value`.
    void SaveNumbered(int items, int value) {
        UsageLog usage;
        Open(usage);
        for (int i = 0; i < items; ++i) usage.Increment(NumberedKey(i).c_str(), value);
        usage.SaveChanges();
    }

    std::string Query(std::string const& sql) {
        FILE* pipe = popen(("sqlite3 '" + Db() + "' \"" + sql + "\"").c_str(), "r");
        std::string out;
        char buffer[256];
        while (pipe != nullptr && fgets(buffer, sizeof buffer, pipe) != nullptr) out += buffer;
        if (pipe != nullptr) pclose(pipe);
        return out;
    }
};

}  // namespace

TEST_F(StoreFile, RoundTripKeepsValuesTypesAndHistory) {
    {
        UsageLog usage;
        Open(usage);
        usage.Increment(L"Control.Chip.Count", 42);
        usage.IncrementTimer(L"Run.Time", 3600);
        usage.SetDate(L"Tool.X.Date", 20240101u, true);
        usage.GetItemReference(L"Tool.X.Date", 1).SetValue(20240815);
        usage.SetExternalDate(L"Ext.Date", DateTime::Now());
        usage.Increment(L"Big.Count", -1);  // the full unsigned word
        usage.SaveChanges();
    }
    EXPECT_EQ(Query("SELECT key, type, value, history FROM usage_item WHERE key = 'tool.x.date'"),
              "Tool.X.Date|4|20240815|20240101,20240815\n");
    EXPECT_EQ(Query("SELECT value FROM usage_item WHERE key = 'Big.Count'"), "4294967295\n");

    UsageLog usage;
    Open(usage);
    EXPECT_EQ(usage.Count(), 5u);
    EXPECT_EQ(usage.GetUsageValue(L"Control.Chip.Count", 1), 42);
    EXPECT_EQ(usage.GetDataType(L"Run.Time"), UsageType::Timer);
    EXPECT_EQ(usage.GetUsageValue(L"Run.Time", 1), 3600);
    UsageReference date = usage.GetItemReference(L"tool.x.date", 1);
    EXPECT_EQ(date.GetHistory().str, L"20240101,20240815");
    EXPECT_FALSE(date.IsDirty());
    EXPECT_EQ(usage.GetDataType(L"Ext.Date"), UsageType::Date | UsageType::External);
    EXPECT_EQ(usage.GetUsageValue(L"Big.Count", 1), -1);
}

TEST_F(StoreFile, SaveWritesOnlyWhatChanged) {
    UsageLog usage;
    Open(usage);
    for (int i = 0; i < 1000; ++i) usage.Increment(NumberedKey(i).c_str(), i);
    usage.SaveChanges();
    EXPECT_EQ(usage.Store().LastSaveRowCount(), 1000u);

    usage.Increment(NumberedKey(7).c_str(), 1);
    EXPECT_EQ(usage.Store().DirtyCount(), 1u);
    usage.SaveChanges();
    EXPECT_EQ(usage.Store().LastSaveRowCount(), 1u);

    usage.TryDeleteItem(NumberedKey(8).c_str());
    usage.Increment(NumberedKey(9).c_str(), 1);
    usage.Increment(NumberedKey(9).c_str(), 1);
    usage.GetCounterReference(NumberedKey(10).c_str()).SetValue(5);
    // Items, not changes: a saved item deleted and made again (in another
    // spelling and kind) is one, an item made and deleted again is none.
    usage.TryDeleteItem(L"item.11.count");
    usage.SetDate(L"ITEM.11.COUNT", 20240101u, false);
    usage.Increment(L"Made.And.Deleted", 1);
    usage.TryDeleteItem(L"Made.And.Deleted");
    EXPECT_EQ(usage.Store().UnsavedItemCount(), 4u);
    usage.SaveChanges();
    EXPECT_EQ(usage.Store().LastSaveRowCount(), 5u);  // item 11: its old row deleted, its new one written
    EXPECT_EQ(usage.Store().UnsavedItemCount(), 0u);
    EXPECT_EQ(Query("SELECT count(*), sum(value) FROM usage_item WHERE type = 1"),
              "998|" + std::to_string(999 * 1000 / 2 + 1 - 8 + 2 - 10 + 5 - 11) + "\n");
    EXPECT_EQ(Query("SELECT key, type, value FROM usage_item WHERE type = 4"), "ITEM.11.COUNT|4|20240101\n");
}

TEST_F(StoreFile, RefusesFilesThatAreNoUsageStoreAndLeavesThemUntouched) {
    SaveNumbered(2000, 1);
    std::string const store = Contents(Db());
    auto makeFile = [this](std::string const& name, std::string const& bytes) {
        std::ofstream(dir_ / name, std::ios::binary) << bytes;
        return (dir_ / name).string();
    };
    auto makeDatabase = [this](std::string const& name, std::string const& sql) {
        EXPECT_EQ(system(("sqlite3 '" + (dir_ / name).string() + "' \"" + sql + "\" >/dev/null").c_str()), 0);
        return (dir_ / name).string();
    };
    unsigned int const seed = 1313;
    std::printf("random bytes: seed %u\n", seed);
    std::mt19937 random(seed);
    std::string noise(store.size(), '\0');
    for (char& byte : noise) byte = static_cast<char>(random());
    std::string const marker = "CREATE TABLE usage_store_format(version INTEGER); INSERT INTO usage_store_format ";
    std::vector<std::string> refused = {
        makeFile("ini.db", "[Config]\nServiceInterval=30\n"),
        makeFile("noise.db", noise),
        makeFile("noise_after_header.db", store.substr(0, 100) + noise.substr(100)),
        makeFile("truncated_header.db", store.substr(0, 50)),
        makeFile("truncated.db", store.substr(0, store.size() / 2)),
        makeDatabase("foreign.db", "CREATE TABLE usage_item(key TEXT); INSERT INTO usage_item VALUES('x');"),
        makeDatabase("marker_only.db", marker + "VALUES(1);"),
        makeDatabase("format_2.db", marker + "VALUES(2);"),
        makeDatabase("no_history.db", marker + "VALUES(1); CREATE TABLE usage_item(key TEXT, type INT, value INT);"),
        makeDatabase("foreign_wal.db", "PRAGMA journal_mode=WAL; CREATE TABLE other(x);"),
    };
    for (std::string const& path : refused) {
        std::string before = Contents(path);
        UsageLog usage;
        std::string error;
        EXPECT_FALSE(usage.Store().Open(path, error));
        EXPECT_NE(error.find("not a usage store"), std::string::npos) << path << ": " << error;
        EXPECT_FALSE(usage.Store().IsOpen());
        EXPECT_TRUE(Contents(path) == before) << path << " was changed";
        for (char const* sibling : {"-wal", "-shm", "-journal"}) EXPECT_FALSE(fs::exists(path + sibling)) << path;
    }
    UsageLog usage;
    std::string error;
    EXPECT_FALSE(usage.Store().Open((dir_ / "missing" / "usage.db").string(), error));
    EXPECT_NE(error.find("unable to open"), std::string::npos) << error;
}

TEST_F(StoreFile, AStoreLockedByAnotherConnectionIsReportedAsLocked) {
    SaveNumbered(1, 3);
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open(Db().c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "PRAGMA locking_mode=EXCLUSIVE; BEGIN EXCLUSIVE; UPDATE usage_item SET value = 4;",
                           nullptr, nullptr, nullptr),
              SQLITE_OK);
    UsageLog usage;
    std::string error;
    EXPECT_FALSE(usage.Store().Open(Db(), error));
    EXPECT_EQ(error, "locked by another process");
    sqlite3_exec(other, "ROLLBACK", nullptr, nullptr, nullptr);
    sqlite3_close(other);

    Open(usage);
    EXPECT_EQ(usage.GetUsageValue(NumberedKey(0).c_str(), 1), 3);
}

TEST_F(StoreFile, SavesKilledAtRandomMomentsLeaveAllOldOrAllNew) {
    constexpr int Items = 100000 / LABSHELL_SLOW_FACTOR;
    SaveNumbered(Items, 1);
    // The child raises every item by one, then saves: the save is killed.
    UsageLog usage;
    auto raise = [&] {
        std::string error;
        if (!usage.Store().Open(Db(), error)) _exit(2);
        for (int i = 0; i < Items; ++i) usage.Increment(NumberedKey(i).c_str(), 1);
    };
    auto save = [&] {
        usage.SaveChanges();
        return usage.Store().DirtyCount() == 0;
    };
    int value = 1;
    KillAtRandomMoments(4242, 3, raise, save, [&](int round) {
        UsageLog saved;
        Open(saved);
        int first = saved.GetUsageValue(NumberedKey(0).c_str(), 1), mixed = 0;
        for (int i = 1; i < Items; ++i) mixed += saved.GetUsageValue(NumberedKey(i).c_str(), 1) != first;
        EXPECT_EQ(mixed, 0) << "values after " << first;
        EXPECT_TRUE(round < 0 ? first == value + 1 : first == value || first == value + 1) << first;
        value = first;
    });
}
