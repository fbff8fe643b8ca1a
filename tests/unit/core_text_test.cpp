// The host's text, number parsing and date arithmetic.
#include <gtest/gtest.h>

#include "test_support.h"

#include "ExitCode.h"
#include "UsageLog.h"
#include "WString.h"

TEST(CoreText, FormatsEveryConversion) {
    EXPECT_EQ(WString::Format(L"%s=%u; %d %x %%", L"Key", 4294967295u, -3, 255u).str, L"Key=4294967295; -3 ff %");
    WString line(L"Temperature ");
    line.AppendFormat(L"%d(%.2f), Tray %d(%.1f)", 25, 24.8699, 20, 18.25);
    EXPECT_EQ(line.str, L"Temperature 25(24.87), Tray 20(18.2)");
    EXPECT_EQ(WString::Format(L"Dock %s", L"").str, L"Dock ");
    EXPECT_EQ(WString::Format(L"%5d|%-3u|", 42, 7u).str, L"   42|7  |");
}

TEST(CoreText, ComparesWithAndWithoutLetterCase) {
    WString key(L"Control.Chip.Dock.Date");
    EXPECT_TRUE(key.Equals(L"control.chip.DOCK.date", true));
    EXPECT_FALSE(key.Equals(L"control.chip.DOCK.date", false));
    EXPECT_TRUE(key.StartsWith(WString(L"CONTROL."), true));
    EXPECT_TRUE(key.EndsWith(WString(L".date"), true));
    EXPECT_FALSE(key.EndsWith(WString(L"x.Control.Chip.Dock.Date"), true));
    EXPECT_TRUE(key.StartsWith(L'C'));
    EXPECT_TRUE(key.EndsWith(L'e'));
    EXPECT_FALSE(WString().StartsWith(L'C'));

    WString message(L"$(A) and $(a) and $(B)");
    message.Replace(WString(L"$(a)"), WString(L"1"), true);
    EXPECT_EQ(message.str, L"1 and 1 and $(B)");
}

TEST(CoreText, CutsTrimsAndWalksTokens) {
    WString text(L"X=");
    EXPECT_EQ(text.Substring(2, -1).str, L"");
    EXPECT_EQ(text.Substring(0, 1).str, L"X");
    EXPECT_EQ(WString(L"Control.Date").Substring(8, -1).str, L"Date");
    EXPECT_EQ(WString(L" \t value \r\n").Trim().str, L"value");
    EXPECT_EQ(WString(L"abcabc").IndexOf(L"c", 3), 5);
    EXPECT_EQ(WString(L"abc").IndexOf(L"x", 0), -1);

    WString commands(L" ;UsageLog -c A; ;;UsageLog -c B");
    EXPECT_EQ(commands.StrTok(L";").str, L" ");
    EXPECT_EQ(commands.StrTok(L";").str, L"UsageLog -c A");
    EXPECT_EQ(commands.StrTok(L";").str, L" ");
    EXPECT_EQ(commands.StrTok(L";").str, L"UsageLog -c B");
    EXPECT_EQ(commands.StrTok(L";").str, L"");

    WString joined;
    joined.AppendWithSeparator(WString(L"a"), L";");
    joined.AppendWithSeparator(WString(L"b"), L";");
    EXPECT_EQ(joined.str, L"a;b");
}

TEST(CoreText, ParsesNumbersStrictly) {
    EXPECT_EQ(WString(L"43200").GetUInt(3, 3, 43200), 43200u);
    EXPECT_EQ(ThrownNumber([] { WString(L"43201").GetUInt(3, 3, 43200); }), 3u);
    EXPECT_EQ(ThrownNumber([] { WString(L"2").GetUInt(3, 3, 43200); }), 3u);
    EXPECT_EQ(ThrownNumber([] { WString(L"12a").GetUInt(11, 0, 2147483647); }), 11u);
    EXPECT_EQ(ThrownNumber([] { WString(L"").GetUInt(11, 0, 2147483647); }), 11u);
    EXPECT_EQ(ThrownNumber([] { WString(L"-1").GetUInt(11, 0, 2147483647); }), 11u);
    EXPECT_EQ(ThrownNumber([] { WString(L"99999999999999999999").GetUInt(11, 0, 4294967295u); }), 11u);
    unsigned int value = 0;
    EXPECT_TRUE(WString(L"4294967294").TryGetUInt(value, 0, 0xFFFFFFFE, nullptr));
    EXPECT_FALSE(WString(L"4294967295").TryGetUInt(value, 0, 0xFFFFFFFE, nullptr));
    int signedValue = 0;
    EXPECT_TRUE(WString(L"-2147483648").TryGetInt(signedValue, INT32_MIN, INT32_MAX, nullptr));
    EXPECT_EQ(signedValue, INT32_MIN);
    EXPECT_FALSE(WString(L"+5").TryGetInt(signedValue, 0, 100, nullptr));
    EXPECT_FALSE(WString(L" 5").TryGetInt(signedValue, 0, 100, nullptr));
}

TEST(CoreText, Utf8RoundTripAndSortOrder) {
    std::wstring wide = L"Temp \u00b0C \u4e2d \U0001F600";
    EXPECT_EQ(WString::FromUtf8(WString(wide).ToUtf8()).str, wide);
    EXPECT_EQ(WString("Gr\xc3\xbc\xc3\x9f").str, L"Gr\u00fc\u00df");
    EXPECT_EQ(WString::FromUtf8("a\xff" "b").str, L"a\ufffd" L"b");

    WStringArray keys;
    for (wchar_t const* key : {L"b", L"B", L"a.c", L"a", L"_x"}) keys.Add(WString(key));
    keys.Sort(nullptr);
    std::wstring order;
    for (unsigned int i = 0; i < keys.count; ++i) order += keys[i].str + L" ";
    EXPECT_EQ(order, L"B _x a a.c b ");
    EXPECT_EQ(keys.IndexOf(WString(L"A.C"), true, 0), 3);
    EXPECT_EQ(keys.IndexOf(WString(L"A.C"), false, 0), -1);
}

TEST(CoreText, DatesAndDayCounts) {
    EXPECT_EQ(DateTime(18991230, 0).ToDays(), 0);
    EXPECT_EQ(DateTime(19000101, 0).ToDays(), 2);
    EXPECT_EQ(DateTime(20240815, 0).ToDays(), 45519);
    EXPECT_EQ(DateTime::FromDays(45519).ToDateInt(), 20240815);
    EXPECT_EQ(DateTime(20240229, 0).ToDateInt(), 20240229);
    EXPECT_EQ(DateTime(0, 0).ToDateInt(), 0);

    DateTime date;
    EXPECT_FALSE(date.TrySetValue(20230229, 0));
    EXPECT_FALSE(date.TrySetValue(20241301, 0));
    EXPECT_FALSE(date.TrySetValue(20240100, 0));
    EXPECT_FALSE(date.TrySetValue(-20240101, 0));
    EXPECT_TRUE(date.TrySetValue(21000228, 0));
    EXPECT_FALSE(date.TrySetValue(21000229, 0));
    try {
        DateTime invalid(20240230, 0);
        ADD_FAILURE() << "an invalid date was accepted";
    } catch (ExitCode const& code) {
        EXPECT_EQ(code.kind, 1);
        EXPECT_EQ(code.number, HostExit::InvalidDate);
    }
}
