// UsageLogCleanup in-process on a store with old keys of every kind: the
// migration list in its order, the merge rule by kind, External items,
// -q, -n, a second run that finds nothing, and a key of no valid kind.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "frame/host/System.h"
#include "runtime/Host.h"
#include "runtime/UsageStore.h"
#include "test_support.h"

namespace {

namespace fs = std::filesystem;

class ServicesCleanup : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        OpenSuiteHost("cleanup_unit", dataDir_);
    }
    static void TearDownTestSuite() { fs::remove_all(dataDir_); }

    void SetUp() override {
        DeleteAllUsageItems();
        fs::remove(dataDir_ / "log" / "error.log");
    }

    unsigned int Run(char const* line) {
        output_.clear();
        Pipe capture([this](WString const& text) { output_.push_back(text.ToUtf8()); });
        return Host::RunLine(WString(line), capture).number;
    }
    static int Value(wchar_t const* key) { return System::usage.GetUsageValue(key, 1); }
    static std::vector<std::string> Keys() {
        WStringArray keys;
        System::usage.GetAllKeys(keys);
        keys.Sort(nullptr);
        std::vector<std::string> list;
        for (unsigned int i = 0; i < keys.count; ++i) list.push_back(keys[i].ToUtf8());
        return list;
    }

    static fs::path dataDir_;
    std::vector<std::string> output_;
};

fs::path ServicesCleanup::dataDir_;

TEST_F(ServicesCleanup, MigrationListRenamesMergesAndDeletesInItsOrder) {
    auto& usage = System::usage;
    usage.Increment(L"Control.MethodNA.Run.Count", 3);
    usage.Increment(L"Control.Interactive.Run.Count", 4);
    usage.IncrementTimer(L"Control.MethodNA.Run.Time", 100);
    usage.IncrementTimer(L"Control.Interactive.Run.Time", 20);
    usage.Store().FindOrCreate(L"Control.MethodNA.Lamp.Count", UsageType::Counter | UsageType::External, 5);
    usage.SetDate(L"Control.MethodRun.Start.Date", 20240301u, false);
    usage.SetDate(L"Control.Method.Start.Date", 20230101u, false);
    usage.SetDate(L"Control.MethodRun.Stop.Date", 20230505u, true);
    usage.Store().FindOrCreate(L"Control.MethodRun.Ext.Date", UsageType::Date | UsageType::External, 20220202);
    usage.Increment(L"Run.Cycle.Count", 9);
    usage.Increment(L"Control.MethodNA.Pump.FailedCount", 2);
    usage.Increment(L"Pump.FailCount", 1);
    usage.SetDate(L"Pump.FailedDate", 20240704u, false);
    usage.SetDate(L"Control.Chip.DockWithChangeAll.Date", 20240101u, false);
    usage.Increment(L"Protocol.Steps", 1);
    usage.Increment(L"OD.Lamp", 1);
    usage.Increment(L"ODX", 1);
    usage.Increment(L"XOD", 1);
    usage.Increment(L"Error.E:1:2.Count", 1);
    usage.Increment(L"Error.E:1.Count", 1);
    usage.Increment(L"Error.E:1:2:3.Count", 1);
    usage.Increment(L"Error..Count", 1);

    ASSERT_EQ(Run("UsageLogCleanup"), 0u);
    // The steps in their order; within a step the store gives the keys in an order of its own.
    std::vector<std::vector<std::string>> steps{
        {"Merge/Rename usage key Control.MethodNA.Run.Count to Control.Interactive.Run.Count",
         "Merge/Rename usage key Control.MethodNA.Run.Time to Control.Interactive.Run.Time",
         "Merge/Rename usage key Control.MethodNA.Lamp.Count to Control.Interactive.Lamp.Count",
         "Merge/Rename usage key Control.MethodNA.Pump.FailedCount to Control.Interactive.Pump.FailedCount"},
        {"Merge/Rename usage key Control.MethodRun.Start.Date to Control.Method.Start.Date",
         "Merge/Rename usage key Control.MethodRun.Stop.Date to Control.Method.Stop.Date",
         "Merge/Rename usage key Control.MethodRun.Ext.Date to Control.Method.Ext.Date"},
        {"Merge/Rename usage key Run.Cycle.Count to Run.CycleCount"},
        {"Merge/Rename usage key Control.Interactive.Pump.FailedCount to Control.Interactive.Pump.FailCount"},
        {"Merge/Rename usage key Pump.FailedDate to Pump.FailDate"},
        {"Delete usage key Control.Chip.DockWithChangeAll.Date"},
        {"Delete usage key Protocol.Steps"},
        {"Delete usage key OD.Lamp", "Delete usage key ODX"},
        {"Delete invalid usage log error code counter: Error.E:1.Count",
         "Delete invalid usage log error code counter: Error.E:1:2:3.Count",
         "Delete invalid usage log error code counter: Error..Count"},
    };
    auto line = output_.begin();
    for (auto& step : steps) {
        ASSERT_LE(step.size(), static_cast<size_t>(output_.end() - line));
        std::vector<std::string> done(line, line + static_cast<long>(step.size()));
        line += static_cast<long>(step.size());
        std::sort(done.begin(), done.end());
        std::sort(step.begin(), step.end());
        EXPECT_EQ(done, step);
    }
    EXPECT_EQ(line, output_.end());
    EXPECT_EQ(Keys(), (std::vector<std::string>{
        "Control.Interactive.Lamp.Count", "Control.Interactive.Pump.FailCount", "Control.Interactive.Run.Count",
        "Control.Interactive.Run.Time", "Control.Method.Ext.Date", "Control.Method.Start.Date",
        "Control.Method.Stop.Date", "Error.E:1:2.Count", "Pump.FailCount", "Pump.FailDate", "Run.CycleCount", "XOD"}));
    EXPECT_EQ(Value(L"Control.Interactive.Run.Count"), 7);
    EXPECT_EQ(Value(L"Control.Interactive.Run.Time"), 120);
    EXPECT_EQ(Value(L"Control.Interactive.Lamp.Count"), 5);
    EXPECT_EQ(Value(L"Control.Method.Start.Date"), 20230101) << "the date under the new name stays";
    EXPECT_EQ(Value(L"Control.Method.Stop.Date"), 20230505);
    EXPECT_FALSE(usage.GetItemReference(L"Control.Method.Stop.Date", 1).HasHistory());
    EXPECT_EQ(Value(L"Control.Method.Ext.Date"), 20220202);
    EXPECT_EQ(usage.GetDataType(L"Control.Method.Ext.Date") & UsageType::KindMask, UsageType::Date);
    EXPECT_EQ(Value(L"Run.CycleCount"), 9);
    EXPECT_EQ(Value(L"Pump.FailDate"), 20240704);
    EXPECT_EQ(Value(L"Control.Interactive.Pump.FailCount"), 2);

    // Nothing is left under the old names.
    ASSERT_EQ(Run("UsageLogCleanup"), 0u);
    EXPECT_TRUE(output_.empty());
}

TEST_F(ServicesCleanup, QuietAndOnePrefixAndAKeyOfNoValidKind) {
    System::usage.Increment(L"Old.A.Count", 2);
    System::usage.Increment(L"New.A.Count", 1);
    System::usage.Increment(L"Old.B.Count", 1);
    ASSERT_EQ(Run("UsageLogCleanup -n Old. New. -q"), 0u);
    EXPECT_TRUE(output_.empty());
    EXPECT_EQ(Keys(), (std::vector<std::string>{"New.A.Count", "New.B.Count"}));
    EXPECT_EQ(Value(L"New.A.Count"), 3);

    // No dot is added: "New" + ".A.Count" keeps the rest of the key as it was.
    ASSERT_EQ(Run("UsageLogCleanup -n New.A Newer"), 0u);
    EXPECT_EQ(output_, std::vector<std::string>{"Merge/Rename usage key New.A.Count to Newer.Count"});

    // The first failure ends the run; what came before it stays done.
    System::usage.Increment(L"Odd.A.Count", 1);
    System::usage.Store().FindOrCreate(L"Odd.B.Count", 3, 1);
    System::usage.Increment(L"Odd.C.Count", 1);
    EXPECT_EQ(Run("UsageLogCleanup -n Odd. Even. -q"), 101u);
    EXPECT_EQ(Keys(), (std::vector<std::string>{"Even.A.Count", "New.B.Count", "Newer.Count", "Odd.B.Count",
                                                "Odd.C.Count"}));
    std::ifstream log(dataDir_ / "log" / "error.log");
    std::string line;
    std::getline(log, line);
    EXPECT_EQ(line.substr(20), "**Unsupported usage data type 0x3, for key Odd.B.Count");
}

}  // namespace
