// The usage store in memory: keys, patterns, kinds, history, references,
// automatic timers and concurrent changes.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cwctype>
#include <cstdio>
#include <map>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

#include "ExitCode.h"
#include "UsageLog.h"
#include "runtime/UsageStore.h"

namespace {

std::vector<std::wstring> Sorted(WStringArray const& keys) {
    std::vector<std::wstring> list;
    for (unsigned int i = 0; i < keys.count; ++i) list.push_back(keys[i].str);
    std::sort(list.begin(), list.end());
    return list;
}

std::vector<std::wstring> Matching(UsageLog& usage, wchar_t const* pattern) {
    WStringArray keys;
    usage.GetMatchingKeys(WString(pattern), keys);
    return Sorted(keys);
}

using Keys = std::vector<std::wstring>;

}  // namespace

TEST(StoreKeys, ValidCharactersAndCaseInsensitiveLookup) {
    EXPECT_TRUE(UsageLog::IsUsageKeyNameValid(WString(L"Error.12:34:56.Count")));
    EXPECT_TRUE(UsageLog::IsUsageKeyNameValid(WString(L"Run.Cycle_10Hz")));
    for (wchar_t const* bad : {L"", L"A*", L"A?", L"A=1", L"A B", L"A-B", L"A\u00e9"})
        EXPECT_FALSE(UsageLog::IsUsageKeyNameValid(WString(bad))) << WString(bad).ToUtf8();
    WString valid = UsageLog::GetValidCharactersInUsageLogKey();
    EXPECT_EQ(valid.Length(), 26u * 2 + 10 + 3);
    EXPECT_TRUE(UsageLog::IsUsageKeyNameValid(valid));

    UsageLog usage;
    usage.InitializeCounter(L"Control.Chip.Count");
    EXPECT_TRUE(usage.ContainsKey(L"CONTROL.chip.count"));
    usage.Increment(L"control.CHIP.count", 2);
    EXPECT_EQ(usage.Count(), 1u);
    EXPECT_EQ(usage.GetUsageValue(L"Control.Chip.Count", 9), 2);
    EXPECT_EQ(usage.GetItemReference(L"CONTROL.CHIP.COUNT", 9).GetKey().str, L"Control.Chip.Count");
    EXPECT_EQ(usage.GetDataType(L"No.Such.Key"), 0u);
    int value = 77;
    EXPECT_FALSE(usage.TryGetUsageValue(L"No.Such.Key", value));
    EXPECT_EQ(value, 77);
    try {
        usage.GetUsageValue(L"No.Such.Key", 100);
        ADD_FAILURE() << "a missing key must throw";
    } catch (ExitCode const& code) {
        EXPECT_EQ(code.number, 100u);
    }
}

TEST(StoreKeys, Wildcards) {
    UsageLog usage;
    for (wchar_t const* key : {L"Control.Method.SuccessCount", L"Control.Chip.Dock.Date", L"Controller", L"Run.Time",
                               L"Error.12:34:56.Count", L"Error.Count", L"Error.1.Count.Old", L"A", L"AB"})
        usage.InitializeCounter(key);

    EXPECT_EQ(Matching(usage, L"*").size(), 9u);
    EXPECT_EQ(Matching(usage, L"control.*"), (Keys{L"Control.Chip.Dock.Date", L"Control.Method.SuccessCount"}));
    EXPECT_EQ(Matching(usage, L"Control*"),
              (Keys{L"Control.Chip.Dock.Date", L"Control.Method.SuccessCount", L"Controller"}));
    EXPECT_EQ(Matching(usage, L"*.date"), (Keys{L"Control.Chip.Dock.Date"}));
    EXPECT_EQ(Matching(usage, L"Error.*.Count"), (Keys{L"Error.12:34:56.Count"}));
    EXPECT_EQ(Matching(usage, L"Error*.Count"), (Keys{L"Error.12:34:56.Count", L"Error.Count"}));
    EXPECT_EQ(Matching(usage, L"A*"), (Keys{L"A", L"AB"}));  // "*" takes the empty run
    EXPECT_EQ(Matching(usage, L"A?"), (Keys{L"AB"}));
    EXPECT_EQ(Matching(usage, L"?"), (Keys{L"A"}));
    EXPECT_EQ(Matching(usage, L"run.time"), (Keys{L"Run.Time"}));
    EXPECT_EQ(Matching(usage, L"Run"), Keys{});
    EXPECT_EQ(Matching(usage, L"Run.Time?"), Keys{});

    WStringArray keys;
    keys.Add(WString(L"Earlier"));
    usage.GetMatchingKeys(WString(L"Run.*"), keys);
    usage.GetAllKeys(keys);
    EXPECT_EQ(keys.count, 1u + 1u + 9u);  // both append
}

TEST(StoreKeys, IndexAgreesWithAPlainMapThroughRandomCreationsAndDeletions) {
    // Many keys in few slots: long probe runs, deletions in their middle.
    // Keys of 1 to 48 characters, short ones kept in the item and long ones
    // apart, wide ones among them; characters beside the capitals' range and
    // wide ones whose low byte is a letter, which fold to nothing.
    unsigned int const seed = 977;
    std::printf("keys and operations: seed %u\n", seed);
    std::mt19937 random(seed);
    std::wstring const alphabet = L"Kk@`[{Zz.09\u00c4\u00e4\u0141\u0161";
    std::vector<std::wstring> keys(3000);
    for (std::wstring& key : keys) {
        key.resize(1 + random() % 48);
        for (wchar_t& c : key) c = alphabet[random() % alphabet.size()];
    }
    auto respelt = [&random](std::wstring key) {
        for (wchar_t& c : key)
            if (std::iswalpha(c) && c < 0x80 && random() % 2 == 0) c ^= 0x20;
        return key;
    };
    std::map<std::wstring, int> model;  // by folded key
    UsageLog usage;
    for (int step = 0; step < 60000; ++step) {
        std::wstring const& key = keys[random() % keys.size()];
        std::wstring folded = FoldAsciiCase(key);
        if (random() % 3 == 0) {
            EXPECT_EQ(usage.TryDeleteItem(respelt(key).c_str()), model.erase(folded) == 1) << step;
        } else {
            usage.Increment(respelt(key).c_str(), 1);
            model[folded] = 1 + (model.count(folded) ? model[folded] : 0);
        }
    }
    ASSERT_EQ(usage.Count(), model.size());
    for (std::wstring const& key : keys) {
        int value = -1;
        bool found = usage.TryGetUsageValue(respelt(key).c_str(), value);
        auto expected = model.find(FoldAsciiCase(key));
        ASSERT_EQ(found, expected != model.end()) << WString(key).ToUtf8();
        if (found) {
            EXPECT_EQ(value, expected->second) << WString(key).ToUtf8();
        }
    }
    EXPECT_EQ(Matching(usage, L"*").size(), model.size());
}

TEST(StoreItems, UnsavedItemsAreCountedOncePerItem) {
    UsageLog usage;
    usage.Increment(L"Made.And.Deleted", 1);
    usage.TryDeleteItem(L"Made.And.Deleted");
    EXPECT_EQ(usage.Store().UnsavedItemCount(), 0u);
    usage.Increment(L"Changed.Twice", 1);
    usage.Increment(L"Changed.Twice", 1);
    usage.SetDate(L"Dated", 20240101u, true);
    usage.GetItemReference(L"Dated", 1).AddDateToHistory(20240202);
    EXPECT_EQ(usage.Store().UnsavedItemCount(), 2u);
}

TEST(StoreItems, KindsAndHistory) {
    UsageLog usage;
    usage.Increment(L"New.Counter", 5);  // created by the increment
    EXPECT_EQ(usage.GetDataType(L"New.Counter"), UsageType::Counter);
    EXPECT_EQ(usage.GetUsageValue(L"New.Counter", 1), 5);
    usage.Increment(L"New.Counter", -7);
    EXPECT_EQ(usage.GetUsageValue(L"New.Counter", 1), -2);
    usage.IncrementTimer(L"New.Timer", 30);
    EXPECT_EQ(usage.GetDataType(L"New.Timer"), UsageType::Timer);

    usage.InitializeDate(L"Tool.Date", false);
    int today = DateTime::Now().ToDateInt();
    EXPECT_EQ(usage.GetUsageValue(L"Tool.Date", 1), today);
    usage.SetDate(L"Tool.Date", 20200101u, false);
    usage.InitializeDate(L"Tool.Date", false);  // an existing date stays
    usage.InitializeCounter(L"Tool.Date");
    EXPECT_EQ(usage.GetUsageValue(L"Tool.Date", 1), 20200101);
    EXPECT_EQ(usage.GetDataType(L"Tool.Date"), UsageType::Date);

    // Another kind under the key: the item keeps its kind, the value changes.
    usage.Increment(L"Tool.Date", 1);
    EXPECT_EQ(usage.GetUsageValue(L"Tool.Date", 1), 20200102);
    UsageReference counter = usage.GetCounterReference(L"Tool.Date");
    EXPECT_EQ(counter.GetDataType(), UsageType::Date);
    usage.SetDate(L"New.Counter", 20210101u, false);
    EXPECT_EQ(usage.GetDataType(L"New.Counter"), UsageType::Counter);
    EXPECT_EQ(usage.GetUsageValue(L"New.Counter", 1), 20210101);

    // History: SetDate with true, AddDateToHistory, then SetValue extends it.
    UsageReference date = usage.GetItemReference(L"Tool.Date", 1);
    EXPECT_FALSE(date.HasHistory());
    EXPECT_EQ(date.GetHistory().str, L"");
    int triggerWithout = date.GetValueOrHistoryChangeTrigger(true);
    EXPECT_EQ(triggerWithout, date.GetValue());
    date.SetValue(20200201);  // no history yet: the value only
    EXPECT_FALSE(date.HasHistory());
    date.AddDateToHistory(20200201);
    int trigger1 = date.GetValueOrHistoryChangeTrigger(true);
    date.SetValue(20200301);
    int trigger2 = date.GetValueOrHistoryChangeTrigger(true);
    usage.SetDate(L"tool.date", 20200401u, true);
    usage.SetDate(L"Tool.Date", 20200501u, false);  // SetDate adds only when asked
    EXPECT_EQ(date.GetHistory().str, L"20200201,20200301,20200401");
    EXPECT_EQ(date.GetValue(), 20200501);
    EXPECT_EQ(date.GetValueOrHistoryChangeTrigger(false), 20200501);
    int trigger3 = date.GetValueOrHistoryChangeTrigger(true);
    EXPECT_NE(trigger1, trigger2);
    EXPECT_NE(trigger2, trigger3);
    EXPECT_NE(trigger1, trigger3);

    // A counter with history does not grow it by SetValue.
    UsageReference counterRef = usage.GetCounterReference(L"Hist.Counter");
    counterRef.AddDateToHistory(20240101);
    counterRef.SetValue(3);
    EXPECT_EQ(counterRef.GetHistory().str, L"20240101");

    usage.SetExternalDate(L"Ext.Date", DateTime::Now());
    EXPECT_EQ(usage.GetDataType(L"Ext.Date"), UsageType::Date | UsageType::External);
    EXPECT_EQ(usage.GetUsageValue(L"Ext.Date", 1), today);
}

TEST(StoreItems, ReferencesOutliveDeletion) {
    UsageLog usage;
    usage.Increment(L"Spy.Count", 4);
    UsageReference first = usage.GetItemReference(L"Spy.Count", 1);
    UsageReference second(first);
    second.SetValue(6);
    EXPECT_EQ(first.GetValue(), 6);
    EXPECT_TRUE(first.IsDirty());

    EXPECT_TRUE(usage.TryDeleteItem(L"SPY.COUNT"));
    EXPECT_FALSE(usage.TryDeleteItem(L"Spy.Count"));
    EXPECT_FALSE(usage.ContainsKey(L"Spy.Count"));
    EXPECT_EQ(first.GetValue(), 6);
    EXPECT_EQ(first.GetKey().str, L"Spy.Count");
    first.SetValue(9);  // ignored: the item is gone
    first.AddDateToHistory(20240101);
    EXPECT_EQ(second.GetValue(), 6);
    EXPECT_FALSE(usage.ContainsKey(L"Spy.Count"));
    EXPECT_EQ(usage.Store().DirtyCount(), 0u);  // never saved: no file holds it

    usage.Increment(L"spy.count", 1);  // re-created: a new item
    EXPECT_EQ(usage.GetUsageValue(L"Spy.Count", 1), 1);
    EXPECT_EQ(first.GetValue(), 6);

    UsageReference reused = usage.GetItemReference(L"Spy.Count", 1);
    EXPECT_FALSE(usage.TryGetItemReference(L"None", reused));
    EXPECT_TRUE(reused.IsEmpty());
    EXPECT_EQ(UsageReference(nullptr).GetValue(), 0);
    EXPECT_EQ(UsageReference().GetKey().str, L"");
}

TEST(StoreTimers, BookedOnCommitAndDestructionAlsoByException) {
    UsageLog usage;
    usage.IncrementTimer(L"Run.Time", 100);
    try {
        UsageTimer outer = usage.CreateAutomaticTimer(L"run.time");
        UsageTimer created = usage.CreateAutomaticTimer(L"Measure.Time");  // made with 0
        EXPECT_EQ(usage.GetDataType(L"Measure.Time"), UsageType::Timer);
        EXPECT_EQ(usage.GetUsageValue(L"Measure.Time", 1), 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(1300));
        usage.CommitAllTimers();
        EXPECT_EQ(usage.GetUsageValue(L"Run.Time", 1), 101);  // whole seconds only
        EXPECT_EQ(usage.GetUsageValue(L"Measure.Time", 1), 1);
        UsageTimer moved(std::move(created));
        std::this_thread::sleep_for(std::chrono::milliseconds(400));
        throw std::runtime_error("stopped");
    } catch (std::runtime_error const&) {
    }
    // 1.7 s in all: the 0.7 s rest rounds to one more second.
    EXPECT_EQ(usage.GetUsageValue(L"Run.Time", 1), 102);
    EXPECT_EQ(usage.GetUsageValue(L"Measure.Time", 1), 2);
    usage.CommitAllTimers();
    EXPECT_EQ(usage.GetUsageValue(L"Run.Time", 1), 102);  // nothing runs any more
}

TEST(StoreConcurrency, ExactSumsFromEightThreads) {
    UsageLog usage;
    usage.IncrementTimer(L"Shared.Timer", 0);
    UsageTimer timer = usage.CreateAutomaticTimer(L"Shared.Timer");
    constexpr int Threads = 8, Rounds = 20000;
    std::vector<std::thread> threads;
    for (int t = 0; t < Threads; ++t) {
        threads.emplace_back([&usage, t] {
            UsageReference own = usage.GetCounterReference(WString::FromUtf8("Own." + std::to_string(t)).c_str());
            for (int i = 0; i < Rounds; ++i) {
                usage.Increment(L"Shared.Count", 1);
                own.SetValue(own.GetValue() + 1);  // only this thread writes it
                if (i % 1000 == 0) {
                    WStringArray keys;
                    usage.GetMatchingKeys(WString(L"Own.*"), keys);
                    usage.CommitAllTimers();
                    usage.SetDate(L"Shared.Date", 20240101u + static_cast<unsigned int>(t), true);
                    usage.TryDeleteItem(L"Temp");
                    usage.InitializeCounter(L"Temp");
                }
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(usage.GetUsageValue(L"Shared.Count", 1), Threads * Rounds);
    for (int t = 0; t < Threads; ++t)
        EXPECT_EQ(usage.GetUsageValue(WString::FromUtf8("Own." + std::to_string(t)).c_str(), 1), Rounds);
    EXPECT_EQ(usage.GetItemReference(L"Shared.Date", 1).GetHistory().Length(), Threads * Rounds / 1000 * 9 - 1);
}
