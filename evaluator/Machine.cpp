// The stack machine that runs a compiled expression.
#include <cmath>
#include <string>

#include "Program.h"

namespace evaluator {
namespace {

using Operation = Instruction::Operation;

[[noreturn]] void FailType(Instruction const& instruction, std::wstring const& description) {
    Fail(FailureKind::TypeMismatch, instruction.column, {description});
}

std::wstring OperatorName(Symbol symbol) { return std::wstring(L"Operator '") + SymbolText(symbol) + L"'"; }

double Finite(double value, Instruction const& instruction) {
    if (!std::isfinite(value)) {
        Fail(FailureKind::NotFinite, instruction.column, {L"Result is not a finite number"});
    }
    return value;
}

double Divide(double dividend, double divisor, Instruction const& instruction) {
    if (divisor == 0) Fail(FailureKind::DivisionByZero, instruction.column, {L"Division by zero"});
    // "%" keeps the sign of the dividend, as fmod does.
    return instruction.symbol == Symbol::Divide ? dividend / divisor : std::fmod(dividend, divisor);
}

EEToken Equality(EEToken const& left, EEToken const& right, Instruction const& instruction) {
    if (left.kind != right.kind) FailType(instruction, OperatorName(instruction.symbol) + L" needs two values of the same type");
    bool const equal = left.kind == EEToken::Kind::Number ? left.number == right.number : left.boolean == right.boolean;
    return EEToken::FromBoolean(instruction.symbol == Symbol::Equal ? equal : !equal);
}

EEToken Binary(EEToken const& left, EEToken const& right, Instruction const& instruction) {
    Symbol const symbol = instruction.symbol;
    if (symbol == Symbol::Equal || symbol == Symbol::NotEqual) return Equality(left, right, instruction);
    if (left.kind != EEToken::Kind::Number || right.kind != EEToken::Kind::Number) {
        FailType(instruction, OperatorName(symbol) + L" needs two numbers");
    }
    double const a = left.number;
    double const b = right.number;
    switch (symbol) {
        case Symbol::Less: return EEToken::FromBoolean(a < b);
        case Symbol::LessEqual: return EEToken::FromBoolean(a <= b);
        case Symbol::Greater: return EEToken::FromBoolean(a > b);
        case Symbol::GreaterEqual: return EEToken::FromBoolean(a >= b);
        case Symbol::Plus: return EEToken::FromNumber(Finite(a + b, instruction));
        case Symbol::Minus: return EEToken::FromNumber(Finite(a - b, instruction));
        case Symbol::Times: return EEToken::FromNumber(Finite(a * b, instruction));
        default: return EEToken::FromNumber(Finite(Divide(a, b, instruction), instruction));
    }
}

EEToken Unary(EEToken const& operand, Instruction const& instruction) {
    if (instruction.symbol == Symbol::Not) {
        if (operand.kind != EEToken::Kind::Boolean) FailType(instruction, OperatorName(Symbol::Not) + L" needs a boolean");
        return EEToken::FromBoolean(!operand.boolean);
    }
    if (operand.kind != EEToken::Kind::Number) FailType(instruction, OperatorName(instruction.symbol) + L" needs a number");
    return EEToken::FromNumber(instruction.symbol == Symbol::Minus ? -operand.number : operand.number);
}

// Pops the arguments of a call and pushes its value.
void Call(std::vector<EEToken>& stack, Instruction const& instruction) {
    std::vector<double> arguments;
    arguments.reserve(instruction.operand);
    for (auto argument = stack.end() - static_cast<std::ptrdiff_t>(instruction.operand); argument != stack.end(); ++argument) {
        if (argument->kind != EEToken::Kind::Number) {
            FailType(instruction, std::wstring(instruction.function->name) + L" needs numbers as arguments");
        }
        arguments.push_back(argument->number);
    }
    stack.resize(stack.size() - instruction.operand);
    stack.push_back(EEToken::FromNumber(Finite(ApplyFunction(*instruction.function, arguments, instruction.column), instruction)));
}

bool RequireBoolean(EEToken const& value, Instruction const& instruction) {
    if (value.kind != EEToken::Kind::Boolean) {
        if (instruction.operation == Operation::BranchIfFalse) FailType(instruction, L"IF needs a boolean condition");
        FailType(instruction, OperatorName(instruction.symbol) + L" needs two booleans");
    }
    return value.boolean;
}

}  // namespace

EEToken Run(Program const& program, std::vector<EEToken const*> const& nameValues) {
    std::vector<EEToken> stack;
    auto const& code = program.instructions;
    std::size_t next = 0;
    while (next < code.size()) {
        Instruction const& instruction = code[next++];
        switch (instruction.operation) {
            case Operation::PushNumber:
                stack.push_back(EEToken::FromNumber(instruction.number));
                break;
            case Operation::PushName:
                stack.push_back(*nameValues[instruction.operand]);
                break;
            case Operation::Unary:
                stack.back() = Unary(stack.back(), instruction);
                break;
            case Operation::Binary: {
                EEToken const right = stack.back();
                stack.pop_back();
                stack.back() = Binary(stack.back(), right, instruction);
                break;
            }
            case Operation::Call:
                Call(stack, instruction);
                break;
            case Operation::AndThen:
            case Operation::OrElse: {
                bool const decided = RequireBoolean(stack.back(), instruction) == (instruction.operation == Operation::OrElse);
                if (decided) {
                    next = instruction.operand;
                } else {
                    stack.pop_back();
                }
                break;
            }
            case Operation::RequireBoolean:
                RequireBoolean(stack.back(), instruction);
                break;
            case Operation::BranchIfFalse: {
                bool const condition = RequireBoolean(stack.back(), instruction);
                stack.pop_back();
                if (!condition) next = instruction.operand;
                break;
            }
            case Operation::Jump:
                next = instruction.operand;
                break;
        }
    }
    return stack.back();
}

}  // namespace evaluator
