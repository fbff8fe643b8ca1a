// Why an evaluation failed and where: the kind (its number is the exit number
// that TryGetErrorMessage gives), the column of the expression's character
// that the failure points at, and a one-line description.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>

namespace evaluator {

enum class FailureKind : unsigned int {
    EmptyExpression = 1,      // nothing but blanks
    UnexpectedCharacter = 2,  // a character that starts no token
    InvalidNumber = 3,        // "2e", or a literal beyond the range of a double
    MissingOperand = 4,       // an operator or "(" without a value behind it
    MissingParenthesis = 5,   // ")" expected
    TrailingText = 6,         // a whole expression, then more
    NestedTooDeeply = 7,      // too many levels of parentheses and calls
    UnknownFunction = 8,
    WrongArgumentCount = 9,
    UnknownName = 10,         // a variable that is not defined
    TypeMismatch = 11,        // a boolean where a number belongs, or the reverse
    DivisionByZero = 12,      // "/" and "%"
    InvalidDate = 13,         // DateToDays and DaysToDate outside the calendar
    NotFinite = 14,           // a result that is infinite or not a number
};

struct EvaluationFailure {
    FailureKind kind;
    std::size_t column;
    std::wstring description;
    std::wstring missingName = {};  // the name, for UnknownName
};

// Throws the failure with its description joined from the parts. Out of line,
// so that the parser's recursive functions keep small stack frames.
[[noreturn]] void Fail(FailureKind kind, std::size_t column, std::initializer_list<std::wstring_view> description);

}  // namespace evaluator
