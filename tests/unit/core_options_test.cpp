// Command lines: words, options and arguments, and the reads of options.
#include <gtest/gtest.h>

#include "test_support.h"

#include "CommandBase.h"

namespace {
ParsedCommandLine Parse(wchar_t const* line) {
    ParsedCommandLine parsed;
    EXPECT_TRUE(TryParseCommandLine(WString(line), parsed));
    return parsed;
}

}  // namespace

TEST(CoreOptions, SortsWordsIntoOptionsAndArguments) {
    ParsedCommandLine line = Parse(L"  UsageLog  X=5 -u-30 \"Control.My Key\" -1 -vHU -?  ");
    EXPECT_EQ(line.name.str, L"UsageLog");
    ASSERT_EQ(line.arguments.count, 3u);
    EXPECT_EQ(line.arguments.At(0).text.str, L"X=5");
    EXPECT_EQ(line.arguments.At(1).text.str, L"Control.My Key");
    EXPECT_EQ(line.arguments.At(2).text.str, L"-1");
    EXPECT_TRUE(line.wantsHelp);
    int seconds = 0;
    EXPECT_TRUE(line.options.TryGetInt(L"u", 27, seconds, INT32_MIN, INT32_MAX));
    EXPECT_EQ(seconds, -30);
    WString type;
    EXPECT_TRUE(line.options.TryGetString(L"v", 9, type, 1, 8));
    EXPECT_EQ(type.str, L"HU");
    EXPECT_FALSE(line.options.ContainsUnusedOptions());

    ParsedCommandLine empty;
    EXPECT_FALSE(TryParseCommandLine(WString(L"   "), empty));
}

TEST(CoreOptions, MalformedOptionsRaiseTheReadersNumber) {
    ParsedCommandLine line = Parse(L"X -e5 -a -d0 -w0.005 -y7x -bb -k -k");
    EXPECT_EQ(ThrownNumber([&] { line.options.TryGetFlag(L"e", 5); }), 5u);
    WString increment(L"unchanged");
    EXPECT_TRUE(line.options.TryGetString(L"a", 16, increment, 0, 16));
    EXPECT_EQ(increment.str, L"");
    int interval = 0;
    EXPECT_EQ(ThrownNumber([&] { line.options.TryGetInt(L"d", 6, interval, 1, 7200); }), 6u);
    double wait = 0;
    EXPECT_EQ(ThrownNumber([&] { line.options.TryGetDouble(L"w", 14, wait, 0.01, 3600.0); }), 14u);
    int count = 0;
    EXPECT_EQ(ThrownNumber([&] { line.options.TryGetInt(L"y", 7, count, 1, 100); }), 7u);
    EXPECT_EQ(ThrownNumber([&] { line.options.TryGetFlag(L"b", 22); }), 22u);
    EXPECT_EQ(ThrownNumber([&] { line.options.TryGetFlag(L"k", 7); }), 7u);  // given twice
    EXPECT_FALSE(line.options.ContainsUnusedOptions());

    bool present = line.options.TryGetFlag(L"z", 29);
    EXPECT_FALSE(present);
}

TEST(CoreOptions, UnreadOptionsAndArgumentBounds) {
    ParsedCommandLine line = Parse(L"GetFormattedUsageData 4 -x -D2.5");
    double poll = 0;
    EXPECT_FALSE(line.options.TryGetDouble(L"d", 3, poll, 0.1, 3600.0));  // letters keep their case
    EXPECT_TRUE(line.options.ContainsUnusedOptions());
    EXPECT_TRUE(line.options.TryGetDouble(L"D", 3, poll, 0.1, 3600.0));
    EXPECT_DOUBLE_EQ(poll, 2.5);
    EXPECT_TRUE(line.options.ContainsUnusedOptions());
    line.options.TryGetFlag(L"x", 9);
    EXPECT_FALSE(line.options.ContainsUnusedOptions());

    Argument& argument = line.arguments.At(0);
    EXPECT_EQ(ThrownNumber([&] { argument.GetInt(6, 0, 3); }), 6u);
    EXPECT_EQ(argument.GetInt(6, 0, 4), 4);
    EXPECT_EQ(ThrownNumber([&] { Argument(WString(L"abcdef")).GetString(11, 5, 5); }), 11u);
    EXPECT_EQ(Argument(WString(L"flush")).GetString(11, 5, 5).str, L"flush");
}
