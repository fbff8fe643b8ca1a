// An expression compiled into instructions for a small stack machine, with
// the names it uses in the order of their first appearance.
//
// Compiling checks everything that does not depend on the values of names:
// syntax, nesting, functions and their argument counts. Running checks types,
// division by zero, dates and infinite results. "&&", "||" and IF work out
// only the operand they need, so "x != 0 && 1 / x > 2" cannot divide by zero.
// Neither recursion nor the machine depends on the length of an expression;
// the parser's recursion is bounded by the nesting limit.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "ExpressionEvaluator.h"
#include "Functions.h"
#include "Lexer.h"

namespace evaluator {

// Levels of parentheses and function calls that an expression may nest.
constexpr std::size_t kMaxNesting = 100;

struct Instruction {
    enum class Operation {
        PushNumber,      // number
        PushName,        // operand: index of the name
        Unary,           // symbol: Minus, Plus or Not
        Binary,          // symbol: an arithmetic, comparison or equality operator
        Call,            // function, operand: argument count
        AndThen,         // "&&": a false left operand is the result; jump to operand
        OrElse,          // "||": a true left operand is the result; jump to operand
        RequireBoolean,  // the right operand of "&&" and "||"
        BranchIfFalse,   // IF's condition; jump to operand when false
        Jump,            // to operand
    };

    Operation operation;
    std::size_t column;  // what a failure of this instruction points at
    Symbol symbol = Symbol::Plus;
    double number = 0;
    std::size_t operand = 0;
    FunctionInfo const* function = nullptr;
};

struct NameUse {
    std::wstring name;
    std::size_t column;  // of its first appearance
};

struct Program {
    std::vector<Instruction> instructions;
    std::vector<NameUse> names;
};

// Throws EvaluationFailure.
Program Compile(std::wstring_view expression, NameCharacters const& nameCharacters);

// Runs a program with a value for each of its names, in the order of
// Program::names. Throws EvaluationFailure.
EEToken Run(Program const& program, std::vector<EEToken const*> const& nameValues);

}  // namespace evaluator
