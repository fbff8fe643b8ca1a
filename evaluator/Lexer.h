// Splits an expression into tokens, one at a time: numbers, names, operators,
// parentheses and commas, each with the column where it starts.
//
// A number is decimal: digits with an optional fraction and exponent ("1",
// "1.5", ".5", "2e3", "2.5E-3"). A name is a run of name characters that does
// not begin with a digit. Blanks, tabs, CR and LF separate tokens. A character
// that starts no token throws EvaluationFailure.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "EvaluationFailure.h"

namespace evaluator {

enum class Symbol {
    Or, And, Equal, NotEqual, Less, LessEqual, Greater, GreaterEqual,
    Plus, Minus, Times, Divide, Remainder, Not, LeftParenthesis, RightParenthesis, Comma,
};

// The symbol as it is written, for messages.
wchar_t const* SymbolText(Symbol symbol);

// The characters that may make up a name. The characters of operators,
// parentheses, commas and blanks never do, even when a set names them, so
// that "a-b" is always a subtraction.
class NameCharacters {
public:
    explicit NameCharacters(std::wstring_view characters);
    static NameCharacters Default();  // ASCII letters, digits, "_" and "."
    bool Contains(wchar_t character) const;

private:
    std::wstring sorted_;
};

struct Token {
    enum class Type { Number, Name, Symbol, End };

    Type type = Type::End;
    std::size_t column = 0;
    double number = 0;
    Symbol symbol = Symbol::Comma;
    std::wstring_view name;
};

class Lexer {
public:
    // Both must outlive the lexer.
    Lexer(std::wstring_view text, NameCharacters const& nameCharacters);

    // The next token; Type::End, with the text's length as column, at the end.
    Token Next();

private:
    void SkipBlanks();
    Token ReadNumber();
    Token ReadName();
    Token ReadSymbol();
    bool IsDigitAt(std::size_t position) const;

    std::wstring_view text_;
    NameCharacters const& nameCharacters_;
    std::size_t position_ = 0;
};

}  // namespace evaluator
