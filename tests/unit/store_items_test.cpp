// The usage store in memory, where commands do not show it: its index under
// random creations and deletions, kinds and history, references that
// outlive their item, unsaved counts and automatic timers. Keys, patterns
// and listings are the UsageLog transcripts' part; concurrent changes are
// checked through commands (UsageLogConcurrency) and saves (StoreFile).
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cwctype>
#include <cstdio>
#include <map>
#include <random>
#include <stdexcept>
#include <thread>

#include "UsageLog.h"
#include "runtime/UsageStore.h"

TEST(StoreItems, IndexAgreesWithAPlainMapThroughRandomCreationsAndDeletions) {
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
            ++model[folded];
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
        // The same low bytes beyond a byte's range name another key.
        std::wstring shadow = key;
        for (wchar_t& c : shadow) c |= 0x100;
        EXPECT_EQ(usage.TryGetUsageValue(shadow.c_str(), value), model.count(FoldAsciiCase(shadow)) == 1)
            << WString(shadow).ToUtf8();
    }
}

TEST(StoreItems, KindsStayHistoryGrowsAsDocumentedAndUnsavedItemsCountOnce) {
    UsageLog usage;
    usage.SetDate(L"Tool.Date", 20200101u, false);
    usage.InitializeCounter(L"tool.date");  // an existing item keeps its kind
    usage.Increment(L"Tool.Date", 1);       // another kind's operation changes its value only
    UsageReference date = usage.GetCounterReference(L"Tool.Date");
    EXPECT_EQ(date.GetDataType(), UsageType::Date);
    EXPECT_EQ(date.GetValueOrHistoryChangeTrigger(true), 20200102);  // no history: the value
    // SetValue extends a date's history only once it has one; SetDate only when asked.
    date.SetValue(20200201);
    EXPECT_FALSE(date.HasHistory());
    date.AddDateToHistory(20200201);
    int const first = date.GetValueOrHistoryChangeTrigger(true);
    date.SetValue(20200301);
    int const second = date.GetValueOrHistoryChangeTrigger(true);
    usage.SetDate(L"TOOL.DATE", 20200401u, true);
    usage.SetDate(L"Tool.Date", 20200501u, false);
    EXPECT_EQ(date.GetHistory().str, L"20200201,20200301,20200401");
    EXPECT_EQ(date.GetValue(), 20200501);
    EXPECT_TRUE(first != second && second != date.GetValueOrHistoryChangeTrigger(true));

    UsageLog fresh;
    fresh.Increment(L"Made.And.Deleted", 1);
    fresh.TryDeleteItem(L"Made.And.Deleted");
    fresh.Increment(L"Changed.Twice", 1);
    fresh.Increment(L"Changed.Twice", 1);
    EXPECT_EQ(fresh.Store().UnsavedItemCount(), 1u);
}

TEST(StoreItems, ReferencesOutliveDeletion) {
    UsageLog usage;
    usage.Increment(L"Spy.Count", 4);
    UsageReference first = usage.GetItemReference(L"Spy.Count", 1), second(first);
    second.SetValue(6);
    EXPECT_TRUE(usage.TryDeleteItem(L"SPY.COUNT"));
    EXPECT_FALSE(usage.TryDeleteItem(L"Spy.Count"));
    first.SetValue(9);  // ignored: the item is gone
    EXPECT_EQ(second.GetValue(), 6);
    EXPECT_EQ(second.GetKey().str, L"Spy.Count");
    usage.Increment(L"spy.count", 1);  // created again: a new item
    EXPECT_EQ(usage.GetUsageValue(L"Spy.Count", 1), 1);
    EXPECT_EQ(first.GetValue(), 6);
}

// The timer is what is measured: 1.3 s pass while it runs. Times are read
// around each step, so whatever the machine's load the booked seconds lie
// between what the earliest and the latest readings allow.
TEST(StoreTimers, CommitBooksWholeSecondsAndTheEndTheRoundedRest) {
    using Clock = std::chrono::steady_clock;
    auto seconds = [](Clock::duration span) { return std::chrono::duration<double>(span).count(); };
    UsageLog usage;
    usage.IncrementTimer(L"Run.Time", 100);
    Clock::time_point before = Clock::now(), after, committed, ended;
    try {
        UsageTimer timer = usage.CreateAutomaticTimer(L"run.time");
        after = Clock::now();
        std::this_thread::sleep_until(before + std::chrono::milliseconds(1300));
        committed = Clock::now();
        usage.CommitAllTimers();
        EXPECT_GE(usage.GetUsageValue(L"Run.Time", 1) - 100, static_cast<int>(seconds(committed - after)));
        EXPECT_LE(usage.GetUsageValue(L"Run.Time", 1) - 100, static_cast<int>(seconds(Clock::now() - before)));
        UsageTimer moved(std::move(timer));
        throw std::runtime_error("stopped");  // the moved timer books on the way out
    } catch (std::runtime_error const&) {
        ended = Clock::now();
    }
    int const total = usage.GetUsageValue(L"Run.Time", 1) - 100;
    EXPECT_GE(total, std::lround(seconds(committed - after)));
    EXPECT_LE(total, std::lround(seconds(ended - before)));
    usage.CommitAllTimers();
    EXPECT_EQ(usage.GetUsageValue(L"Run.Time", 1) - 100, total) << "an ended timer books nothing more";
}
