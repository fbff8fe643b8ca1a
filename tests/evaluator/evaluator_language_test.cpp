// The expression evaluator's limits, and random input that has to end
// cleanly. Its language, results and failures are shown through the
// schedule file, by the transcript evaluator_language.
#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>

#include "ExpressionEvaluator.h"

namespace {

// As the schedule's sections have it: true and false defined, and x too.
struct Defined : ExpressionEvaluator {
    Defined() : ExpressionEvaluator(nullptr, 0) {
        SetVariable(WString(L"true"), true);
        SetVariable(WString(L"false"), false);
        SetVariable(WString(L"x"), 3.0);
    }
    // The result's text, or "fail N", the failure's description and the
    // length of its marker line; "no details" when it has none.
    std::string Evaluate(std::wstring const& expression) {
        EEToken result;
        if (TryEvaluate(WString(expression), result)) return result.ToString().ToUtf8();
        ExitCode code;
        WString description, marker;
        if (!TryGetErrorMessage(code, description, marker) || !marker.EndsWith(L'^')) return "no details";
        return "fail " + std::to_string(code.number) + " " + description.ToUtf8() + " " + std::to_string(marker.Length());
    }
};

std::wstring Repeat(wchar_t const* text, std::size_t count) {
    std::wstring repeated;
    for (std::size_t i = 0; i < count; ++i) repeated += text;
    return repeated;
}

TEST(EvaluatorLanguage, DepthIsBoundedAndLengthIsNot) {
    Defined evaluator;
    // 100 levels of parentheses and calls are allowed, more are not.
    EXPECT_EQ(evaluator.Evaluate(Repeat(L"(", 50) + Repeat(L"ABS(", 50) + L"-1" + Repeat(L")", 100)), "1");
    for (std::size_t depth : {101u, 100000u}) {
        EXPECT_EQ(evaluator.Evaluate(Repeat(L"(", depth) + L"1" + Repeat(L")", depth)),
                  "fail 7 Expression nested too deeply 101");
    }
    EXPECT_EQ(evaluator.Evaluate(L"0" + Repeat(L" + 1", 200000)), "200000");
    EXPECT_EQ(evaluator.Evaluate(Repeat(L"!", 100001) + L"false"), "true");
    EXPECT_EQ(evaluator.Evaluate(L"MAX(0" + Repeat(L", 1", 50000) + L")"), "1");
    EXPECT_EQ(evaluator.Evaluate(L"false" + Repeat(L" || false", 100000)), "false");
}

// Operands joined by operators, with now and then a stray piece or a raw
// character: every input ends in a result, or in a failure whose marker
// stands under the expression.
TEST(EvaluatorLanguage, RandomInputsEndCleanly) {
    unsigned int const seed = 20240815;
    std::printf("random expressions: seed %u\n", seed);
    std::mt19937 random(seed);
    static wchar_t const* const operands[] = {L"1", L".5", L"2e3", L"1e308", L"x", L"y", L"true", L"-x", L"!false",
                                              L"(x)", L"DateToDays(20240815)", L"DaysToDate(x)", L"IF(true, 1, x)",
                                              L"MAX(1, x, 0)", L"ROUND(x)", L"DateToDays(20240230)"};
    static wchar_t const* const operators[] = {L" + ", L"-", L"*", L" / ", L"%", L" && ", L"||", L"==", L"<", L">="};
    static wchar_t const* const strays[] = {L"(", L")", L",", L"!", L"$", L"=", L"\t", L"2e", L"IF(", L"MAX("};
    auto pick = [&random](auto const& from) { return std::wstring(from[random() % std::size(from)]); };
    int results = 0, failures = 0;
    for (int round = 0; round < 6000; ++round) {
        std::wstring expression = pick(operands);
        for (int more = round % 12; more > 0; --more) expression += pick(operators) + pick(operands);
        if (random() % 4 == 0) expression.insert(random() % (expression.size() + 1), pick(strays));
        if (random() % 8 == 0) expression.insert(random() % (expression.size() + 1), 1, wchar_t(1 + random() % 0x2FF));
        std::string outcome = Defined().Evaluate(expression);
        if (outcome.rfind("fail ", 0) != 0) {
            ++results;
            EXPECT_TRUE(!outcome.empty() && outcome != "no details") << round;
            continue;
        }
        ++failures;
        unsigned long number = std::stoul(outcome.substr(5)), marker = std::stoul(outcome.substr(outcome.rfind(' ')));
        EXPECT_TRUE(number >= 1 && number <= 14) << round << ": " << outcome;
        EXPECT_LE(marker, expression.size() + 1) << round << ": " << outcome;
    }
    EXPECT_GT(results, 300);
    EXPECT_GT(failures, 300);
}

}  // namespace
