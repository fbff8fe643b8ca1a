// Precedence climbing over the tokens of the lexer. One call of ParseBinary
// covers all binary levels, and prefix operators are gathered in a loop, so
// the recursion grows with the nesting of parentheses and calls only.
#include <map>
#include <utility>

#include "Program.h"

namespace evaluator {
namespace {

using Operation = Instruction::Operation;

// Binding strength of a binary operator, loosest 0; -1 for other symbols.
int BinaryLevel(Symbol symbol) {
    switch (symbol) {
        case Symbol::Or: return 0;
        case Symbol::And: return 1;
        case Symbol::Equal:
        case Symbol::NotEqual: return 2;
        case Symbol::Less:
        case Symbol::LessEqual:
        case Symbol::Greater:
        case Symbol::GreaterEqual: return 3;
        case Symbol::Plus:
        case Symbol::Minus: return 4;
        case Symbol::Times:
        case Symbol::Divide:
        case Symbol::Remainder: return 5;
        default: return -1;
    }
}

bool IsPrefix(Symbol symbol) { return symbol == Symbol::Minus || symbol == Symbol::Plus || symbol == Symbol::Not; }

class Compiler {
public:
    Compiler(std::wstring_view expression, NameCharacters const& nameCharacters) : lexer_(expression, nameCharacters) {
        Advance();
    }

    Program CompileWhole() {
        if (current_.type == Token::Type::End) {
            Fail(FailureKind::EmptyExpression, current_.column, {L"Empty expression"});
        }
        ParseBinary(0);
        if (current_.type != Token::Type::End) {
            Fail(FailureKind::TrailingText, current_.column, {L"Unexpected text after the expression"});
        }
        return std::move(program_);
    }

private:
    class NestingLevel {
    public:
        NestingLevel(Compiler& compiler, std::size_t column) : compiler_(compiler) {
            if (++compiler_.nesting_ > kMaxNesting) {
                Fail(FailureKind::NestedTooDeeply, column, {L"Expression nested too deeply"});
            }
        }
        ~NestingLevel() { --compiler_.nesting_; }
        NestingLevel(NestingLevel const&) = delete;
        NestingLevel& operator=(NestingLevel const&) = delete;

    private:
        Compiler& compiler_;
    };

    void Advance() { current_ = lexer_.Next(); }

    bool IsSymbol(Symbol symbol) const { return current_.type == Token::Type::Symbol && current_.symbol == symbol; }

    std::size_t Emit(Operation operation, std::size_t column, Symbol symbol = Symbol::Plus, double number = 0,
                     std::size_t operand = 0, FunctionInfo const* function = nullptr) {
        program_.instructions.push_back({operation, column, symbol, number, operand, function});
        return program_.instructions.size() - 1;
    }

    void JumpHere(std::size_t jump) { program_.instructions[jump].operand = program_.instructions.size(); }

    void ParseBinary(int lowestLevel) {
        ParseOperand();
        while (current_.type == Token::Type::Symbol && BinaryLevel(current_.symbol) >= lowestLevel) {
            Token const op = current_;
            int const level = BinaryLevel(op.symbol);
            Advance();
            if (op.symbol == Symbol::And || op.symbol == Symbol::Or) {
                std::size_t const shortCut =
                    Emit(op.symbol == Symbol::And ? Operation::AndThen : Operation::OrElse, op.column, op.symbol);
                ParseBinary(level + 1);
                Emit(Operation::RequireBoolean, op.column, op.symbol);
                JumpHere(shortCut);
            } else {
                ParseBinary(level + 1);
                Emit(Operation::Binary, op.column, op.symbol);
            }
        }
    }

    void ParseOperand() {
        std::vector<Token> prefixes;
        while (current_.type == Token::Type::Symbol && IsPrefix(current_.symbol)) {
            prefixes.push_back(current_);
            Advance();
        }
        ParsePrimary();
        for (auto prefix = prefixes.rbegin(); prefix != prefixes.rend(); ++prefix) {
            Emit(Operation::Unary, prefix->column, prefix->symbol);
        }
    }

    void ParsePrimary() {
        switch (current_.type) {
            case Token::Type::Number:
                Emit(Operation::PushNumber, current_.column, Symbol::Plus, current_.number);
                Advance();
                return;
            case Token::Type::Name: {
                Token const name = current_;
                Advance();
                if (IsSymbol(Symbol::LeftParenthesis)) {
                    ParseCall(name);
                } else {
                    Emit(Operation::PushName, name.column, Symbol::Plus, 0, NameIndex(name));
                }
                return;
            }
            case Token::Type::Symbol:
                if (current_.symbol == Symbol::LeftParenthesis) {
                    NestingLevel const level(*this, current_.column);
                    Advance();
                    ParseBinary(0);
                    ExpectClosingParenthesis();
                    return;
                }
                Fail(FailureKind::MissingOperand, current_.column,
                     {L"Expected a number, a name or '(' before '", SymbolText(current_.symbol), L"'"});
            case Token::Type::End:
                break;
        }
        Fail(FailureKind::MissingOperand, current_.column, {L"Unexpected end of the expression"});
    }

    // At the "(" behind the function's name. IF becomes: condition,
    // BranchIfFalse to the third argument, second argument, Jump to the end.
    void ParseCall(Token const& name) {
        FunctionInfo const* const function = FindFunction(name.name);
        if (function == nullptr) {
            Fail(FailureKind::UnknownFunction, name.column, {L"Unknown function '", name.name, L"'"});
        }
        NestingLevel const level(*this, current_.column);
        Advance();
        bool const isIf = function->id == FunctionId::If;
        std::size_t arguments = 0;
        std::size_t branch = 0;
        std::size_t jump = 0;
        if (!IsSymbol(Symbol::RightParenthesis)) {
            while (true) {
                ParseBinary(0);
                ++arguments;
                if (isIf && arguments == 1) branch = Emit(Operation::BranchIfFalse, name.column);
                if (isIf && arguments == 2) {
                    jump = Emit(Operation::Jump, name.column);
                    JumpHere(branch);
                }
                if (!IsSymbol(Symbol::Comma)) break;
                Advance();
            }
        }
        ExpectClosingParenthesis();
        if (arguments < function->fewestArguments || arguments > function->mostArguments) {
            Fail(FailureKind::WrongArgumentCount, name.column, {function->name, L" ", ArgumentCountText(*function)});
        }
        if (isIf) {
            JumpHere(jump);
        } else {
            Emit(Operation::Call, name.column, Symbol::Plus, 0, arguments, function);
        }
    }

    void ExpectClosingParenthesis() {
        if (!IsSymbol(Symbol::RightParenthesis)) {
            Fail(FailureKind::MissingParenthesis, current_.column, {L"Missing ')'"});
        }
        Advance();
    }

    std::size_t NameIndex(Token const& name) {
        auto const [entry, added] = indexOfName_.try_emplace(std::wstring(name.name), program_.names.size());
        if (added) program_.names.push_back({entry->first, name.column});
        return entry->second;
    }

    Lexer lexer_;
    Token current_;
    Program program_;
    std::map<std::wstring, std::size_t> indexOfName_;
    std::size_t nesting_ = 0;
};

}  // namespace

Program Compile(std::wstring_view expression, NameCharacters const& nameCharacters) {
    return Compiler(expression, nameCharacters).CompileWhole();
}

}  // namespace evaluator
