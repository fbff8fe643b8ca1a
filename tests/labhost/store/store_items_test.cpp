// The usage store in memory, where commands do not show it: its index under
// random creations and deletions, lookups in a repeated order, kinds and
// history, references that outlive their item, unsaved counts and automatic
// timers. Keys, patterns and listings are the UsageLog transcripts' part;
// concurrent changes are checked through commands (UsageLogConcurrency) and
// saves (StoreFile).
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cwctype>
#include <cstdio>
#include <map>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

#include "UsageLog.h"
#include "labhost/store/UsageStore.h"

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

TEST(StoreLookupOrderConcurrency, LookupsInARepeatedOrderFindTheirItemWhileItemsMoveAndOtherLookupsInterleave) {
    // A store remembers the order of lookups and tries the remembered item
    // first. Here the order repeats pass after pass while deletions move
    // items into other places, keys are named in other letter case, another
    // store is asked between two lookups, and a second thread walks the same
    // keys backwards. Every value is distinct, so a wrong item shows.
    unsigned int const seed = 4211;
    std::printf("order and churn: seed %u\n", seed);
    std::mt19937 random(seed);
    auto stableKey = [](int i) { return L"Order.Stable" + std::to_wstring(i) + L".Count"; };
    auto churnKey = [](int i) { return L"Order.Churn" + std::to_wstring(i) + L".Count"; };
    int const stable = 300, churn = 100;
    UsageLog usage, other;
    for (int i = 0; i < stable; ++i) usage.Increment(stableKey(i).c_str(), i + 1);
    other.Increment(L"Order.Stable7.Count", -1);
    std::map<std::wstring, int> churned;  // the churn keys that exist, with their values
    std::vector<std::wstring> order;
    for (int i = 0; i < stable; ++i) order.push_back(stableKey(i));
    for (int i = 0; i < churn; ++i) order.push_back(churnKey(i));
    std::shuffle(order.begin(), order.end(), random);

    std::atomic<bool> done{false};
    std::atomic<int> wrongBackwards{0};
    std::thread backwards([&] {
        while (!done) {
            for (int i = stable - 1; i >= 0; --i) {
                int value = 0;
                if (!usage.TryGetUsageValue(stableKey(i).c_str(), value) || value != i + 1) ++wrongBackwards;
            }
        }
    });
    int nextValue = 1000;
    // In a function of its own, so that a failed assertion still stops the other thread.
    auto walk = [&] {
        for (int pass = 0; pass < 40; ++pass) {
            for (std::size_t n = 0; n < order.size(); ++n) {
                std::wstring key = order[n];
                if (random() % 4 == 0) {
                    for (wchar_t& c : key) c = random() % 2 ? std::towupper(c) : std::towlower(c);
                }
                int value = 0;
                bool found = usage.TryGetUsageValue(key.c_str(), value);
                auto expected = churned.find(order[n]);
                bool isStable = order[n].find(L"Stable") != std::wstring::npos;
                ASSERT_EQ(found, isStable || expected != churned.end()) << pass << " " << WString(key).ToUtf8();
                if (isStable) {
                    EXPECT_EQ(value, std::stoi(order[n].substr(12)) + 1) << pass << " " << WString(key).ToUtf8();
                } else if (found) {
                    EXPECT_EQ(value, expected->second) << pass << " " << WString(key).ToUtf8();
                }
                if (n % 50 == 0) {
                    EXPECT_EQ(other.GetUsageValue(L"order.stable7.count", 1), -1);
                }
            }
            // Churn between passes: deleted keys leave gaps that the last item fills.
            for (int c = 0; c < 30; ++c) {
                std::wstring key = churnKey(static_cast<int>(random() % churn));
                if (churned.erase(key) == 1) {
                    EXPECT_TRUE(usage.TryDeleteItem(key.c_str()));
                } else {
                    usage.Increment(key.c_str(), nextValue);
                    churned[key] = nextValue++;
                }
            }
        }
    };
    walk();
    done = true;
    backwards.join();
    EXPECT_EQ(wrongBackwards, 0);
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
