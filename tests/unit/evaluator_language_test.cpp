// The expression language from the outside: values, operators, functions,
// dates, names and the text of results.
#include <gtest/gtest.h>

#include <string>

#include "ExpressionEvaluator.h"

namespace {

// "<text of the result>", or "fail <exit number> @<column>" with the column
// read off the marker line.
std::string Evaluate(ExpressionEvaluator& evaluator, wchar_t const* expression) {
    EEToken result;
    if (evaluator.TryEvaluate(WString(expression), result)) return result.ToString().ToUtf8();
    ExitCode code;
    WString description;
    WString marker;
    if (!evaluator.TryGetErrorMessage(code, description, marker)) return "fail without details";
    return "fail " + std::to_string(code.number) + " @" + std::to_string(marker.Length() - 1);
}

// With "true" and "false" defined, as the schedule file's sections have them.
std::string Evaluate(wchar_t const* expression) {
    ExpressionEvaluator evaluator(nullptr, 0);
    evaluator.SetVariable(WString(L"true"), true);
    evaluator.SetVariable(WString(L"false"), false);
    return Evaluate(evaluator, expression);
}

// Exit numbers of the failure kinds, as the evaluator documents them.
constexpr char const* kTypeMismatch = "fail 11";

bool StartsWith(std::string const& text, char const* prefix) { return text.rfind(prefix, 0) == 0; }

TEST(EvaluatorLanguage, PrecedenceAndAssociativity) {
    EXPECT_EQ(Evaluate(L"2 + 3 * 4"), "14");
    EXPECT_EQ(Evaluate(L"(2 + 3) * 4"), "20");
    EXPECT_EQ(Evaluate(L"10 - 4 - 3"), "3");
    EXPECT_EQ(Evaluate(L"64 / 4 / 2"), "8");
    EXPECT_EQ(Evaluate(L"17 % 5 * 2"), "4");
    EXPECT_EQ(Evaluate(L"-7 % 3"), "-1");
    EXPECT_EQ(Evaluate(L"-2 * -3"), "6");
    EXPECT_EQ(Evaluate(L"- -+2"), "2");
    EXPECT_EQ(Evaluate(L"1 + 2 < 4 == 3 > 2"), "true");
    EXPECT_EQ(Evaluate(L"true || false && false"), "true");
    EXPECT_EQ(Evaluate(L"!(1 > 2) && 2 >= 2 && 2 <= 1 == false"), "true");
    EXPECT_EQ(Evaluate(L"1 != 2 && true != false"), "true");
    EXPECT_EQ(Evaluate(L"365 / 2 - 60 < 123"), "true");
}

TEST(EvaluatorLanguage, NumberLiteralsAndTheirText) {
    EXPECT_EQ(Evaluate(L"26"), "26");
    EXPECT_EQ(Evaluate(L"1.5"), "1.5");
    EXPECT_EQ(Evaluate(L".5"), "0.5");
    EXPECT_EQ(Evaluate(L"2e3"), "2000");
    EXPECT_EQ(Evaluate(L"2.5E-3"), "0.0025");
    EXPECT_EQ(Evaluate(L"-3"), "-3");
    EXPECT_EQ(Evaluate(L"0 * -1"), "0");
    EXPECT_EQ(Evaluate(L"0.1"), "0.1");
    EXPECT_EQ(Evaluate(L"0.1 + 0.2"), "0.30000000000000004");
    EXPECT_EQ(Evaluate(L"1 / 3"), "0.3333333333333333");
    EXPECT_EQ(Evaluate(L"1e15"), "1000000000000000");
    EXPECT_EQ(Evaluate(L"1e21"), "1e+21");
    EXPECT_EQ(Evaluate(L"1e-7"), "1e-07");
    EXPECT_TRUE(StartsWith(Evaluate(L"2e"), "fail 3 @0"));
    EXPECT_TRUE(StartsWith(Evaluate(L"1e999"), "fail 3 @0"));
}

TEST(EvaluatorLanguage, TypesMustFitTheirOperators) {
    EXPECT_TRUE(StartsWith(Evaluate(L"true + 1"), kTypeMismatch));
    EXPECT_TRUE(StartsWith(Evaluate(L"-true"), kTypeMismatch));
    EXPECT_TRUE(StartsWith(Evaluate(L"!1"), kTypeMismatch));
    EXPECT_TRUE(StartsWith(Evaluate(L"1 && true"), kTypeMismatch));
    EXPECT_TRUE(StartsWith(Evaluate(L"false || 0"), kTypeMismatch));
    EXPECT_TRUE(StartsWith(Evaluate(L"1 == true"), kTypeMismatch));
    EXPECT_TRUE(StartsWith(Evaluate(L"1 < 2 < 3"), kTypeMismatch));
    EXPECT_TRUE(StartsWith(Evaluate(L"ABS(true)"), kTypeMismatch));
    EXPECT_TRUE(StartsWith(Evaluate(L"IF(1, 2, 3)"), kTypeMismatch));
    EXPECT_EQ(Evaluate(L"true == (1 < 2)"), "true");
    EXPECT_EQ(Evaluate(L"5 / 0"), "fail 12 @2");
    EXPECT_EQ(Evaluate(L"5 % 0"), "fail 12 @2");
    EXPECT_EQ(Evaluate(L"1e300 * 1e300"), "fail 14 @6");
    // The operand that decides is enough: the other is not worked out.
    EXPECT_EQ(Evaluate(L"false && 1 / 0 > 1"), "false");
    EXPECT_EQ(Evaluate(L"true || 1 / 0 > 1"), "true");
    EXPECT_EQ(Evaluate(L"IF(false, 1 / 0, 7)"), "7");
}

TEST(EvaluatorLanguage, Functions) {
    EXPECT_EQ(Evaluate(L"INT(2.7) + INT(-2.5)"), "-1");
    EXPECT_EQ(Evaluate(L"ABS(-4.5)"), "4.5");
    EXPECT_EQ(Evaluate(L"ROUND(2.5) * 10 + ROUND(-2.5)"), "27");
    EXPECT_EQ(Evaluate(L"ROUND(2.4999)"), "2");
    EXPECT_EQ(Evaluate(L"FLOOR(-0.5)"), "-1");
    EXPECT_EQ(Evaluate(L"CEIL(0.1)"), "1");
    EXPECT_EQ(Evaluate(L"MIN(3, -1, 2)"), "-1");
    EXPECT_EQ(Evaluate(L"max(3, 9)"), "9");
    EXPECT_EQ(Evaluate(L"If(2 > 1, true, 5)"), "true");
    EXPECT_EQ(Evaluate(L"IF(2 < 1, true, 5)"), "5");
    EXPECT_EQ(Evaluate(L"ABS(2, 3)"), "fail 9 @0");
    EXPECT_EQ(Evaluate(L"1 + INT()"), "fail 9 @4");
    EXPECT_EQ(Evaluate(L"MAX(1)"), "fail 9 @0");
    EXPECT_EQ(Evaluate(L"IF(true, 1)"), "fail 9 @0");
    EXPECT_EQ(Evaluate(L"IF(true, 1, 2, 3)"), "fail 9 @0");
    EXPECT_EQ(Evaluate(L"DateToDays()"), "fail 9 @0");
    EXPECT_EQ(Evaluate(L"2 * SQRT(4)"), "fail 8 @4");
}

TEST(EvaluatorLanguage, DatesAndDayCounts) {
    EXPECT_EQ(Evaluate(L"DateToDays(18991230)"), "0");
    EXPECT_EQ(Evaluate(L"DateToDays(19000101)"), "2");
    EXPECT_EQ(Evaluate(L"DateToDays(19700101)"), "25569");
    EXPECT_EQ(Evaluate(L"DateToDays(20240815)"), "45519");
    EXPECT_EQ(Evaluate(L"DateToDays(20240229) - DateToDays(20231231)"), "60");
    EXPECT_EQ(Evaluate(L"DateToDays(00010101)"), "-693593");
    EXPECT_EQ(Evaluate(L"DaysToDate(0)"), "18991230");
    EXPECT_EQ(Evaluate(L"DaysToDate(45519)"), "20240815");
    EXPECT_EQ(Evaluate(L"DaysToDate(45519.75)"), "20240815");
    EXPECT_EQ(Evaluate(L"DaysToDate(-1)"), "18991229");
    EXPECT_EQ(Evaluate(L"DaysToDate(DateToDays(20000229) + 1)"), "20000301");
    EXPECT_EQ(Evaluate(L"DaysToDate(DateToDays(99991231))"), "99991231");
    for (auto const* invalid : {L"DateToDays(20240230)", L"DateToDays(0)", L"DateToDays(20241301)",
                                L"DateToDays(20230229)", L"DateToDays(19000229)", L"DateToDays(20240815.5)",
                                L"DateToDays(-20240815)", L"DaysToDate(DateToDays(99991231) + 1)"}) {
        EXPECT_EQ(Evaluate(invalid), "fail 13 @0") << "for " << WString(invalid).ToUtf8();
    }
    EXPECT_EQ(Evaluate(L"DateToDays(20000229)"), "36585");  // 2000 is a leap year
}

TEST(EvaluatorLanguage, VariablesAndMissingNames) {
    ExpressionEvaluator evaluator(nullptr, 0);
    evaluator.SetValidChars(L"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_.:");
    evaluator.SetVariable(WString(L"now"), 45519.0);
    evaluator.SetVariable(WString(L"true"), true);
    evaluator.SetVariable(WString(L"false"), false);
    WString missing;
    EXPECT_EQ(Evaluate(evaluator, L"now-DateToDays(Service.MaintenanceDate)"), "fail 10 @15");
    ASSERT_TRUE(evaluator.TryGetMissingVariableName(missing));
    EXPECT_EQ(missing.ToUtf8(), "Service.MaintenanceDate");
    evaluator.SetVariable(WString(L"Service.MaintenanceDate"), 20240301.0);
    EXPECT_EQ(Evaluate(evaluator, L"now-DateToDays(Service.MaintenanceDate)"), "167");
    EXPECT_FALSE(evaluator.TryGetMissingVariableName(missing));

    // First met, left to right, whatever would be worked out first.
    EXPECT_TRUE(StartsWith(Evaluate(evaluator, L"IF(B > 1, false || C, A)"), "fail 10 @3"));
    ASSERT_TRUE(evaluator.TryGetMissingVariableName(missing));
    EXPECT_EQ(missing.ToUtf8(), "B");
    evaluator.SetVariable(WString(L"B"), true);
    EXPECT_TRUE(StartsWith(Evaluate(evaluator, L"true || B && C + A"), "fail 10 @13"));
    ASSERT_TRUE(evaluator.TryGetMissingVariableName(missing));
    EXPECT_EQ(missing.ToUtf8(), "C");

    // Names are case-sensitive, functions are not; a ":" is a name character here.
    EXPECT_TRUE(StartsWith(Evaluate(evaluator, L"b"), "fail 10"));
    evaluator.SetVariable(WString(L"Error:1:2.Count"), 4.0);
    EXPECT_EQ(Evaluate(evaluator, L"Error:1:2.Count*2"), "8");

    // Another failure, then a success: no missing name either time.
    EXPECT_EQ(Evaluate(evaluator, L"B + 1"), "fail 11 @2");
    EXPECT_FALSE(evaluator.TryGetMissingVariableName(missing));

    EEToken token = EEToken::FromNumber(2.5);
    evaluator.SetVariable(WString(L"B"), token);
    EXPECT_EQ(Evaluate(evaluator, L"B * 2"), "5");
    ExitCode code;
    WString description;
    WString marker;
    EXPECT_FALSE(evaluator.TryGetErrorMessage(code, description, marker));
}

TEST(EvaluatorLanguage, TokensCastOnlyBooleans) {
    bool value = false;
    EXPECT_TRUE(EEToken::FromBoolean(true).TryCast(value));
    EXPECT_TRUE(value);
    EXPECT_FALSE(EEToken::FromNumber(1).TryCast(value));
    EXPECT_FALSE(EEToken().TryCast(value));
    EXPECT_TRUE(value);
    EXPECT_EQ(EEToken::FromBoolean(false).ToString().ToUtf8(), "false");
}

TEST(EvaluatorLanguage, HelpExampleOfTheScheduleFile) {
    ExpressionEvaluator evaluator(nullptr, 0);
    evaluator.SetVariable(WString(L"now"), 45519.0);
    evaluator.SetVariable(WString(L"Service.MaintenanceDate"), 20230815.0);
    EEToken days;
    ASSERT_TRUE(evaluator.TryEvaluate(WString(L"now-DateToDays(Service.MaintenanceDate)"), days));
    EXPECT_EQ(days.ToString().ToUtf8(), "366");
    evaluator.SetVariable(WString(L"DaysSinceMaintenance"), days);
    EXPECT_EQ(Evaluate(evaluator, L"INT(DaysSinceMaintenance/7)"), "52");
    EXPECT_EQ(Evaluate(evaluator, L"DaysSinceMaintenance > 365 / 2"), "true");
    EXPECT_EQ(Evaluate(evaluator, L"DaysSinceMaintenance > 365 / 2 - 60"), "true");
}

}  // namespace
