// The usage store's file: round trips, saves that write only what changed,
// failed saves, files that are not a usage store or are locked, and a save
// killed midway.
#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <thread>

#include "System.h"
#include "UsageLog.h"
#include "runtime/UsageStore.h"

namespace fs = std::filesystem;

namespace {

class StoreFile : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/store_test_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
        db_ = dir_ + "/usage.db";
    }
    void TearDown() override { fs::remove_all(dir_); }

    void Open(UsageLog& usage) {
        std::string error;
        ASSERT_TRUE(usage.Store().Open(db_, error)) << error;
    }

    std::string Query(std::string const& sql) {
        std::string command = "sqlite3 '" + db_ + "' \"" + sql + "\"";
        FILE* pipe = popen(command.c_str(), "r");
        std::string out;
        char buffer[256];
        while (pipe != nullptr && fgets(buffer, sizeof buffer, pipe) != nullptr) out += buffer;
        if (pipe != nullptr) pclose(pipe);
        return out;
    }

    std::string dir_;
    std::string db_;
};

std::string ReadFile(std::string const& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

std::wstring NumberedKey(int i) { return L"Item." + std::to_wstring(i) + L".Count"; }

}  // namespace

TEST_F(StoreFile, RoundTripKeepsValuesTypesHistoryAndDeletions) {
    {
        UsageLog usage;
        Open(usage);
        EXPECT_TRUE(fs::exists(db_));
        usage.Increment(L"Control.Chip.Count", 42);
        usage.IncrementTimer(L"Run.Time", 3600);
        usage.SetDate(L"Tool.X.Date", 20240101u, true);
        usage.GetItemReference(L"Tool.X.Date", 1).SetValue(20240815);
        usage.SetExternalDate(L"Ext.Date", DateTime::Now());
        usage.Increment(L"Gone.Count", 1);
        usage.Increment(L"Renamed.Count", 1);
        usage.Increment(L"Big.Count", -1);  // the full unsigned word
        usage.SaveChanges();
        EXPECT_EQ(usage.Store().DirtyCount(), 0u);
        EXPECT_FALSE(usage.GetItemReference(L"Run.Time", 1).IsDirty());

        EXPECT_TRUE(usage.TryDeleteItem(L"gone.count"));
        EXPECT_TRUE(usage.TryDeleteItem(L"Renamed.Count"));
        usage.SetDate(L"RENAMED.COUNT", 20230303u, false);  // re-created in other spelling and kind
        usage.SaveChanges();
    }
    EXPECT_EQ(Query("SELECT key, type, value, history FROM usage_item WHERE key = 'tool.x.date'"),
              "Tool.X.Date|4|20240815|20240101,20240815\n");
    EXPECT_EQ(Query("SELECT value FROM usage_item WHERE key = 'Big.Count'"), "4294967295\n");

    UsageLog usage;
    Open(usage);
    EXPECT_EQ(usage.Count(), 6u);
    EXPECT_FALSE(usage.ContainsKey(L"Gone.Count"));
    EXPECT_EQ(usage.GetUsageValue(L"Control.Chip.Count", 1), 42);
    EXPECT_EQ(usage.GetDataType(L"Run.Time"), UsageType::Timer);
    EXPECT_EQ(usage.GetUsageValue(L"Run.Time", 1), 3600);
    UsageReference date = usage.GetItemReference(L"tool.x.date", 1);
    EXPECT_EQ(date.GetDataType(), UsageType::Date);
    EXPECT_EQ(date.GetHistory().str, L"20240101,20240815");
    EXPECT_FALSE(date.IsDirty());
    EXPECT_EQ(usage.GetDataType(L"Ext.Date"), UsageType::Date | UsageType::External);
    EXPECT_EQ(usage.GetItemReference(L"renamed.count", 1).GetKey().str, L"RENAMED.COUNT");
    EXPECT_EQ(usage.GetDataType(L"Renamed.Count"), UsageType::Date);
    EXPECT_EQ(usage.GetUsageValue(L"Renamed.Count", 1), 20230303);
    EXPECT_EQ(usage.GetUsageValue(L"Big.Count", 1), -1);
}

TEST_F(StoreFile, SaveWritesOnlyWhatChanged) {
    UsageLog usage;
    usage.Increment(L"Before.Open", 1);  // memory without a file: nothing is saved
    usage.SaveChanges();
    EXPECT_EQ(usage.Store().DirtyCount(), 1u);

    Open(usage);  // the file's items replace what memory held
    EXPECT_EQ(usage.Count(), 0u);
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
    // Items, not changes: a saved item deleted and made again is one, an
    // item made and deleted again since the save is none.
    usage.TryDeleteItem(NumberedKey(11).c_str());
    usage.SetDate(NumberedKey(11).c_str(), 20240101u, false);
    usage.Increment(L"Made.And.Deleted", 1);
    usage.TryDeleteItem(L"Made.And.Deleted");
    EXPECT_EQ(usage.Store().UnsavedItemCount(), 4u);
    usage.TryDeleteItem(NumberedKey(11).c_str());
    EXPECT_EQ(usage.Store().UnsavedItemCount(), 4u);
    usage.SaveChanges();
    EXPECT_EQ(usage.Store().LastSaveRowCount(), 4u);
    EXPECT_EQ(usage.Store().UnsavedItemCount(), 0u);
    EXPECT_EQ(Query("SELECT count(*), sum(value) FROM usage_item"),
              "998|" + std::to_string(999 * 1000 / 2 + 1 - 8 + 2 - 10 + 5 - 11) + "\n");
}

TEST_F(StoreFile, FailedSaveKeepsChangesLogsAndRetries) {
    System::SetDataDirectory(WString::FromUtf8(dir_));
    fs::create_directories(dir_ + "/log");
    UsageLog usage;
    Open(usage);
    usage.Increment(L"Kept.Count", 1);
    usage.SaveChanges();
    usage.TryDeleteItem(L"Kept.Count");
    for (int i = 0; i < 500; ++i) usage.Increment(NumberedKey(i).c_str(), 1);

    // A full disk: no file may grow past what the store holds now.
    rlimit saved{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
    auto oldHandler = signal(SIGXFSZ, SIG_IGN);
    rlimit full = saved;
    full.rlim_cur = static_cast<rlim_t>(std::max(fs::file_size(db_), fs::file_size(db_ + "-wal")));
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
    usage.SaveChanges();
    setrlimit(RLIMIT_FSIZE, &saved);
    signal(SIGXFSZ, oldHandler);

    EXPECT_EQ(usage.Store().DirtyCount(), 501u);
    EXPECT_TRUE(usage.GetItemReference(NumberedKey(1).c_str(), 1).IsDirty());
    std::string log = ReadFile(System::errorLog.Path().ToUtf8());
    EXPECT_EQ(log.find("**"), log.rfind("**")) << log;  // exactly one line
    EXPECT_NE(log.find("**"), std::string::npos) << log;
    EXPECT_EQ(Query("SELECT count(*) FROM usage_item"), "1\n");

    usage.SaveChanges();
    EXPECT_EQ(usage.Store().DirtyCount(), 0u);
    EXPECT_EQ(Query("SELECT count(*), sum(value) FROM usage_item"), "500|500\n");
}

TEST_F(StoreFile, RefusesFilesThatAreNoUsageStoreOrCannotBeOpened) {
    std::ofstream(db_) << "[Config]\nServiceInterval=30\n";
    auto makeDatabase = [this](std::string const& name, std::string const& sql) {
        std::string path = dir_ + "/" + name;
        EXPECT_EQ(system(("sqlite3 '" + path + "' \"" + sql + "\" >/dev/null").c_str()), 0);
        return path;
    };
    std::string const marker = "CREATE TABLE usage_store_format(version INTEGER); INSERT INTO usage_store_format "
                               "VALUES(1);";
    std::vector<std::string> refused = {
        db_,
        makeDatabase("foreign.db", "CREATE TABLE usage_item(key TEXT); INSERT INTO usage_item VALUES('x');"),
        makeDatabase("marker_only.db", marker),
        makeDatabase("no_history.db", marker + "CREATE TABLE usage_item(key TEXT, type INTEGER, value INTEGER);"),
        makeDatabase("foreign_wal.db", "PRAGMA journal_mode=WAL; CREATE TABLE other(x);"),
    };
    for (std::string const& path : refused) {
        std::string before = ReadFile(path);
        UsageLog usage;
        std::string error;
        EXPECT_FALSE(usage.Store().Open(path, error));
        EXPECT_NE(error.find("not a usage store"), std::string::npos) << path << ": " << error;
        EXPECT_FALSE(usage.Store().IsOpen());
        EXPECT_TRUE(ReadFile(path) == before) << path << " was changed";
        EXPECT_FALSE(fs::exists(path + "-wal")) << path;
        EXPECT_FALSE(fs::exists(path + "-shm")) << path;
    }
    UsageLog usage;
    std::string error;
    EXPECT_FALSE(usage.Store().Open(dir_ + "/missing/usage.db", error));
    EXPECT_NE(error.find("unable to open"), std::string::npos) << error;
}

TEST_F(StoreFile, AStoreLockedByAnotherConnectionIsReportedAsLocked) {
    {
        UsageLog usage;
        Open(usage);
        usage.Increment(L"Kept.Count", 3);
        usage.SaveChanges();
    }
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open(db_.c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "PRAGMA locking_mode=EXCLUSIVE; BEGIN EXCLUSIVE; UPDATE usage_item SET value = 4;",
                           nullptr, nullptr, nullptr),
              SQLITE_OK);
    UsageLog usage;
    std::string error;
    EXPECT_FALSE(usage.Store().Open(db_, error));
    EXPECT_NE(error.find("locked"), std::string::npos) << error;
    EXPECT_EQ(error.find("not a usage store"), std::string::npos) << error;
    sqlite3_exec(other, "ROLLBACK", nullptr, nullptr, nullptr);
    sqlite3_close(other);

    Open(usage);
    EXPECT_EQ(usage.GetUsageValue(L"Kept.Count", 1), 3);
}

TEST_F(StoreFile, KilledSaveLeavesAllOldOrAllNew) {
    constexpr int Items = 100000 / LABSHELL_SLOW_FACTOR;
    {
        UsageLog usage;
        Open(usage);
        for (int i = 0; i < Items; ++i) usage.Increment(NumberedKey(i).c_str(), 1);
        usage.SaveChanges();
    }
    // The child raises every item by one and saves; it says on a pipe when its
    // save begins, and is killed at a random moment of the save.
    struct Child {
        pid_t pid;
        std::chrono::steady_clock::time_point saveStart;
    };
    auto startChild = [this] {
        int pipeEnds[2];
        if (pipe(pipeEnds) != 0) return Child{-1, {}};
        pid_t pid = fork();
        if (pid == 0) {
            close(pipeEnds[0]);
            UsageLog usage;
            std::string error;
            if (!usage.Store().Open(db_, error)) _exit(2);
            for (int i = 0; i < Items; ++i) usage.Increment(NumberedKey(i).c_str(), 1);
            if (write(pipeEnds[1], "s", 1) != 1) _exit(4);
            usage.SaveChanges();
            _exit(usage.Store().DirtyCount() == 0 ? 0 : 3);
        }
        close(pipeEnds[1]);
        char signal = 0;
        bool started = read(pipeEnds[0], &signal, 1) == 1;
        close(pipeEnds[0]);
        return Child{started ? pid : -1, std::chrono::steady_clock::now()};
    };
    auto check = [this] {
        UsageLog usage;
        Open(usage);
        int first = usage.GetUsageValue(NumberedKey(0).c_str(), 1);
        int mixed = 0;
        for (int i = 1; i < Items; ++i) mixed += usage.GetUsageValue(NumberedKey(i).c_str(), 1) != first;
        EXPECT_EQ(mixed, 0) << "values after " << first;
        return first;
    };

    Child child = startChild();
    ASSERT_GT(child.pid, 0);
    int status = 0;
    waitpid(child.pid, &status, 0);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    auto saveTime = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() -
                                                                          child.saveStart);
    int value = check();
    EXPECT_EQ(value, 2);

    unsigned int const seed = 4242;
    std::printf("kill delays: seed %u\n", seed);
    std::mt19937 random(seed);
    std::uniform_int_distribution<long long> delay(0, saveTime.count());
    for (int round = 0; round < 3; ++round) {
        child = startChild();
        ASSERT_GT(child.pid, 0);
        std::this_thread::sleep_for(std::chrono::microseconds(delay(random)));
        kill(child.pid, SIGKILL);
        waitpid(child.pid, &status, 0);
        int now = check();
        EXPECT_TRUE(now == value || now == value + 1) << now;
        value = now;
    }
}

TEST_F(StoreFile, ConcurrencySavesWhileThreadsChangeItems) {
    UsageLog usage;
    Open(usage);
    constexpr int Threads = 4, Rounds = 5000;
    std::atomic<bool> done{false};
    std::thread keeper([&] {
        while (!done.load()) usage.SaveChanges();
    });
    std::vector<std::thread> writers;
    for (int t = 0; t < Threads; ++t) {
        writers.emplace_back([&usage, t] {
            for (int i = 0; i < Rounds; ++i) {
                usage.Increment(L"Shared.Count", 1);
                usage.Increment(NumberedKey(t * Rounds + i % 50).c_str(), 1);
                if (i % 100 == 0) usage.TryDeleteItem(L"Flicker");
                if (i % 100 == 50) usage.SetDate(L"Flicker", 20240101u, true);
            }
        });
    }
    for (auto& writer : writers) writer.join();
    done.store(true);
    keeper.join();
    usage.SaveChanges();
    EXPECT_EQ(usage.Store().DirtyCount(), 0u);

    UsageLog reopened;
    Open(reopened);
    EXPECT_EQ(reopened.GetUsageValue(L"Shared.Count", 1), Threads * Rounds);
    EXPECT_EQ(reopened.GetUsageValue(NumberedKey(Rounds + 49).c_str(), 1), Rounds / 50);
    EXPECT_EQ(reopened.ContainsKey(L"Flicker"), usage.ContainsKey(L"Flicker"));
    EXPECT_EQ(reopened.Count(), usage.Count());
}
