// The host's text services where commands rely on their edges: UTF-8 in
// and out, the order of a sort, and the calendar's refusal of a date that
// does not exist (its arithmetic is checked through the evaluator's
// DateToDays and DaysToDate, strict number reads through command lines).
#include <gtest/gtest.h>

#include "ExitCode.h"
#include "UsageLog.h"
#include "WString.h"

TEST(CoreText, Utf8AndTheOrderOfASort) {
    std::wstring wide = L"Temp \u00b0C \u4e2d \U0001F600";
    EXPECT_EQ(WString::FromUtf8(WString(wide).ToUtf8()).str, wide);
    EXPECT_EQ(WString::FromUtf8("a\xff" "b").str, L"a\ufffd" L"b");

    // By character code: capitals, then "_", then small letters.
    WStringArray keys;
    for (wchar_t const* key : {L"b", L"B", L"a.c", L"a", L"_x"}) keys.Add(WString(key));
    keys.Sort(nullptr);
    std::wstring order;
    for (unsigned int i = 0; i < keys.count; ++i) order += keys[i].str + L" ";
    EXPECT_EQ(order, L"B _x a a.c b ");
    keys.Sort(WString::SortCompareAscending);
    EXPECT_EQ(keys[1].str, L"_x");
}

TEST(CoreText, AnInvalidDateIsAHostFailure) {
    try {
        DateTime invalid(20240230, 0);
        ADD_FAILURE() << "an invalid date was accepted";
    } catch (ExitCode const& code) {
        EXPECT_EQ(code.kind, 1);
        EXPECT_EQ(code.number, 118u);
    }
}
