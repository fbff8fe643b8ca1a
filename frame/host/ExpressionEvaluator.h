// The expression evaluator of the shared file ExpressionEvaluator.dll.
//
// Values are numbers (double) and booleans. Operators, loosest first:
// ||; &&; == !=; < <= > >=; + -; * / %; unary - + !; parentheses. Functions
// (named without regard to letter case): INT, ABS, ROUND, FLOOR, CEIL, MIN,
// MAX, IF, DateToDays, DaysToDate. A name is a variable made of the valid
// characters, not beginning with a digit. An evaluation stops at the first
// unknown name, which TryGetMissingVariableName then gives.
#pragma once

#include <memory>

#include "CommandBase.h"
#include "ExitCode.h"
#include "WString.h"

class EEToken {
public:
    enum class Kind { Empty, Number, Boolean };

    EEToken();
    static EEToken FromNumber(double value);
    static EEToken FromBoolean(bool value);

    // "true"/"false"; a whole number without a decimal point; any other number
    // in the shortest form that reads back to the same double.
    WString ToString() const;
    // Booleans only.
    bool TryCast(bool& value) const;

    Kind kind;
    double number;
    bool boolean;
};

class ExpressionEvaluator {
public:
    ExpressionEvaluator(CommandBase* owner, unsigned int flags);
    ~ExpressionEvaluator();
    ExpressionEvaluator(ExpressionEvaluator const&) = delete;
    ExpressionEvaluator& operator=(ExpressionEvaluator const&) = delete;

    void SetVariable(WString const& name, bool value);
    void SetVariable(WString const& name, double value);
    void SetVariable(WString const& name, EEToken& value);
    void SetValidChars(wchar_t const* characters);

    bool TryEvaluate(WString const& expression, EEToken& result);
    bool TryGetMissingVariableName(WString& name) const;
    // After a failed TryEvaluate: a code, the description, and a line of
    // blanks with "^" under the failing column of the expression.
    bool TryGetErrorMessage(ExitCode& code, WString& description, WString& marker) const;

    static void DisplaySupportedOperatorsAndFunctionsHelpText(Pipe& pipe, bool unused, wchar_t const* operatorsHeading,
                                                              wchar_t const* functionsHeading);

    struct Impl;

private:
    std::unique_ptr<Impl> impl_;
};
