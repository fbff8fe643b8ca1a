// Failures of the expression evaluator: their numbers, descriptions and
// marker lines, and that no input, however long, deep or garbled, crashes,
// hangs or overflows the stack.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "ExpressionEvaluator.h"

namespace {

struct Failure {
    unsigned int number = 0;
    std::string description;
    std::string marker;
};

Failure FailureOf(wchar_t const* expression) {
    ExpressionEvaluator evaluator(nullptr, 0);
    evaluator.SetVariable(WString(L"true"), true);
    EEToken result;
    EXPECT_FALSE(evaluator.TryEvaluate(WString(expression), result)) << WString(expression).ToUtf8();
    ExitCode code;
    WString description;
    WString marker;
    EXPECT_TRUE(evaluator.TryGetErrorMessage(code, description, marker));
    return {code.number, description.ToUtf8(), marker.ToUtf8()};
}

TEST(EvaluatorFailures, SyntaxErrorsPointAtTheirColumn) {
    struct Case {
        wchar_t const* expression;
        unsigned int number;
        char const* description;
        char const* marker;
    };
    Case const cases[] = {
        {L"", 1, "Empty expression", "^"},
        {L"   ", 1, "Empty expression", "   ^"},
        {L"1 + $", 2, "Unexpected character '$'", "    ^"},
        {L"a = 1", 2, "Unexpected character '='", "  ^"},
        {L"1 \x00e9", 2, "Unexpected character U+00E9", "  ^"},
        {L"2 *", 4, "Unexpected end of the expression", "   ^"},
        {L"(1 + 2", 5, "Missing ')'", "      ^"},
        {L"MAX(1, 2", 5, "Missing ')'", "        ^"},
        {L"1 + 2)", 6, "Unexpected text after the expression", "     ^"},
        {L"1 2", 6, "Unexpected text after the expression", "  ^"},
        {L"1 * / 2", 4, "Expected a number, a name or '(' before '/'", "    ^"},
        {L"x + foo(1)", 8, "Unknown function 'foo'", "    ^"},
        {L"1 + ABS(1, 2)", 9, "ABS takes 1 argument", "    ^"},
        {L"MIN()", 9, "MIN takes two or more arguments", "^"},
        {L"x + y", 10, "Unknown name 'x'", "^"},
        {L"1 + true", 11, "Operator '+' needs two numbers", "  ^"},
        {L"IF(1, 2, 3)", 11, "IF needs a boolean condition", "^"},
        {L"true && 1", 11, "Operator '&&' needs two booleans", "     ^"},
        {L"1 / (2 - 2)", 12, "Division by zero", "  ^"},
        {L"DateToDays(20241301)", 13, "DateToDays: not a valid date (YYYYMMDD)", "^"},
        {L"\t1 +\t true", 11, "Operator '+' needs two numbers", "\t  ^"},
    };
    for (auto const& test : cases) {
        Failure const failure = FailureOf(test.expression);
        std::string const text = WString(test.expression).ToUtf8();
        EXPECT_EQ(failure.number, test.number) << text;
        EXPECT_EQ(failure.description, test.description) << text;
        EXPECT_EQ(failure.marker, test.marker) << text;
    }
}

TEST(EvaluatorFailures, ErrorDetailsOnlyAfterAFailure) {
    ExpressionEvaluator evaluator(nullptr, 0);
    ExitCode code;
    WString description;
    WString marker;
    EXPECT_FALSE(evaluator.TryGetErrorMessage(code, description, marker));
    EEToken result;
    EXPECT_FALSE(evaluator.TryEvaluate(WString(L"1 +"), result));
    EXPECT_TRUE(evaluator.TryGetErrorMessage(code, description, marker));
    EXPECT_TRUE(evaluator.TryEvaluate(WString(L"1 + 1"), result));
    EXPECT_FALSE(evaluator.TryGetErrorMessage(code, description, marker));
}

std::wstring Repeat(wchar_t const* text, std::size_t count) {
    std::wstring repeated;
    for (std::size_t index = 0; index < count; ++index) repeated += text;
    return repeated;
}

TEST(EvaluatorFailures, DepthAndLengthAreBounded) {
    ExpressionEvaluator evaluator(nullptr, 0);
    evaluator.SetVariable(WString(L"false"), false);
    EEToken result;
    // 100 levels of parentheses and calls are allowed, more are not.
    EXPECT_TRUE(evaluator.TryEvaluate(WString(Repeat(L"(", 50) + Repeat(L"ABS(", 50) + L"-1" + Repeat(L")", 100)), result));
    EXPECT_EQ(result.ToString().ToUtf8(), "1");
    for (std::size_t depth : {101u, 200u, 100000u}) {
        EXPECT_FALSE(evaluator.TryEvaluate(WString(Repeat(L"(", depth) + L"1" + Repeat(L")", depth)), result));
        ExitCode code;
        WString description;
        WString marker;
        ASSERT_TRUE(evaluator.TryGetErrorMessage(code, description, marker));
        EXPECT_EQ(description.ToUtf8(), "Expression nested too deeply");
        EXPECT_EQ(marker.Length(), 101u);
    }
    // Long flat chains and prefix runs need no depth.
    ASSERT_TRUE(evaluator.TryEvaluate(WString(L"0" + Repeat(L" + 1", 200000)), result));
    EXPECT_EQ(result.ToString().ToUtf8(), "200000");
    ASSERT_TRUE(evaluator.TryEvaluate(WString(Repeat(L"!", 100001) + L"false"), result));
    EXPECT_EQ(result.ToString().ToUtf8(), "true");
    ASSERT_TRUE(evaluator.TryEvaluate(WString(L"MAX(0" + Repeat(L", 1", 50000) + L")"), result));
    EXPECT_EQ(result.ToString().ToUtf8(), "1");
    evaluator.SetVariable(WString(L"x"), false);
    ASSERT_TRUE(evaluator.TryEvaluate(WString(L"x" + Repeat(L" || x", 100000)), result));
    EXPECT_EQ(result.ToString().ToUtf8(), "false");
}

// A random expression of the language, now and then with a piece left out
// or a stray one put in.
class RandomExpressions {
public:
    explicit RandomExpressions(unsigned int seed) : random_(seed) {}

    std::wstring Next() { return Expression(0); }

    std::wstring Piece() { return Pick(kPieces); }

    wchar_t Character() { return static_cast<wchar_t>(1 + random_() % 0x2FF); }

private:
    static constexpr wchar_t const* kOperands[] = {L"1", L"0", L".5", L"2e3", L"1e308", L"x", L"flag", L"missing",
                                                   L"true", L"false", L"45519", L"20240230", L"20240815"};
    static constexpr wchar_t const* kOperators[] = {L" + ", L"-", L"*", L" / ", L"%", L" && ", L"||",
                                                    L"==", L" != ", L"<", L" >= ", L">", L"<="};
    static constexpr wchar_t const* kFunctions[] = {L"IF(", L"MAX(", L"min(", L"DateToDays(", L"DaysToDate(",
                                                    L"INT(", L"ROUND(", L"Abs(", L"CEIL(", L"FLOOR("};
    static constexpr wchar_t const* kPieces[] = {L"(", L")", L",", L"!", L"-", L"$", L"=", L"&", L"2e", L"\t"};

    template <std::size_t N>
    std::wstring Pick(wchar_t const* const (&from)[N]) {
        return from[random_() % N];
    }

    std::wstring Expression(int depth) {
        std::wstring text;
        switch (depth > 6 ? 0 : random_() % 6) {
            case 0: text = Pick(kOperands); break;
            case 1: text = (random_() % 2 ? L"-" : L"!") + Expression(depth + 1); break;
            case 2: text = L"(" + Expression(depth + 1) + L")"; break;
            case 3: {
                text = Pick(kFunctions) + Expression(depth + 1);
                for (unsigned int more = random_() % 3; more > 0; --more) text += L", " + Expression(depth + 1);
                text += L")";
                break;
            }
            default: text = Expression(depth + 1) + Pick(kOperators) + Expression(depth + 1); break;
        }
        if (random_() % 25 == 0) text.erase(random_() % text.size(), 1);
        if (random_() % 25 == 0) text.insert(random_() % (text.size() + 1), Piece());
        return text;
    }

    std::mt19937 random_;
};

// Expressions of the language with some noise, pieces of it in any order,
// and raw characters: every input ends in a result or a failure with details.
TEST(EvaluatorFailures, RandomInputsEndCleanly) {
    RandomExpressions inputs(20240815);
    ExpressionEvaluator evaluator(nullptr, 0);
    evaluator.SetVariable(WString(L"x"), 3.0);
    evaluator.SetVariable(WString(L"flag"), true);
    evaluator.SetVariable(WString(L"true"), true);
    evaluator.SetVariable(WString(L"false"), false);
    int results = 0;
    int failures = 0;
    for (int round = 0; round < 6000; ++round) {
        std::wstring expression;
        switch (round % 3) {
            case 0: expression = inputs.Next(); break;
            case 1: for (int piece = round % 40; piece > 0; --piece) expression += inputs.Piece() + inputs.Next(); break;
            default: for (int character = round % 60; character > 0; --character) expression += inputs.Character(); break;
        }
        EEToken result;
        if (evaluator.TryEvaluate(WString(expression), result)) {
            ++results;
            EXPECT_NE(result.kind, EEToken::Kind::Empty);
        } else {
            ++failures;
            ExitCode code;
            WString description;
            WString marker;
            ASSERT_TRUE(evaluator.TryGetErrorMessage(code, description, marker));
            EXPECT_GE(code.number, 1u);
            EXPECT_LE(marker.Length(), expression.size() + 1);
            EXPECT_TRUE(marker.EndsWith(L'^'));
        }
    }
    EXPECT_GT(results, 300);
    EXPECT_GT(failures, 300);
}

TEST(EvaluatorFailures, HelpTextListsOperatorsAndFunctions) {
    std::vector<std::string> lines;
    Pipe pipe([&lines](WString const& line) { lines.push_back(line.ToUtf8()); });
    ExpressionEvaluator::DisplaySupportedOperatorsAndFunctionsHelpText(pipe, true, L"Supported operators:",
                                                                       L"Supported functions:");
    ASSERT_GE(lines.size(), 26u);
    EXPECT_EQ(lines.front(), "Supported operators:");
    EXPECT_EQ(lines[1], "  ||   Or of two booleans");
    std::size_t functions = 0;
    while (functions < lines.size() && lines[functions] != "Supported functions:") ++functions;
    ASSERT_LT(functions, lines.size());
    EXPECT_EQ(lines.size() - functions - 1, 10u);
    EXPECT_EQ(lines[functions + 7], "  MAX(a, b, ...)    Largest of two or more numbers");
}

}  // namespace
