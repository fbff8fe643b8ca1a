#include "Lexer.h"

#include <algorithm>
#include <charconv>
#include <string>
#include <type_traits>

namespace evaluator {
namespace {

constexpr std::wstring_view kSeparators = L" \t\r\n";
constexpr std::wstring_view kStructuralCharacters = L" \t\r\n()+-*/%<>=!&|,";

bool IsDigit(wchar_t character) { return character >= L'0' && character <= L'9'; }

// A character quoted when it can be printed as it is, else as U+XXXX, so that
// a message about binary garbage stays one readable line.
std::wstring DescribeCharacter(wchar_t character) {
    if (character > L' ' && character < 0x7F) return std::wstring(L"'") + character + L"'";
    static wchar_t const kHex[] = L"0123456789ABCDEF";
    auto code = static_cast<unsigned long>(static_cast<std::make_unsigned_t<wchar_t>>(character));
    std::wstring digits;
    do {
        digits.insert(digits.begin(), kHex[code % 16]);
        code /= 16;
    } while (code != 0 || digits.size() < 4);
    return L"U+" + digits;
}

struct SymbolSpelling {
    wchar_t const* text;
    Symbol symbol;
};

// Two-character symbols first, so that "<=" is not read as "<" and "=".
constexpr SymbolSpelling kSymbols[] = {
    {L"||", Symbol::Or},        {L"&&", Symbol::And},          {L"==", Symbol::Equal},
    {L"!=", Symbol::NotEqual},  {L"<=", Symbol::LessEqual},    {L">=", Symbol::GreaterEqual},
    {L"<", Symbol::Less},       {L">", Symbol::Greater},       {L"+", Symbol::Plus},
    {L"-", Symbol::Minus},      {L"*", Symbol::Times},         {L"/", Symbol::Divide},
    {L"%", Symbol::Remainder},  {L"!", Symbol::Not},           {L"(", Symbol::LeftParenthesis},
    {L")", Symbol::RightParenthesis}, {L",", Symbol::Comma},
};

}  // namespace

wchar_t const* SymbolText(Symbol symbol) {
    for (auto const& spelling : kSymbols) {
        if (spelling.symbol == symbol) return spelling.text;
    }
    return L"?";
}

NameCharacters::NameCharacters(std::wstring_view characters) {
    for (wchar_t character : characters) {
        if (kStructuralCharacters.find(character) == std::wstring_view::npos) sorted_ += character;
    }
    std::sort(sorted_.begin(), sorted_.end());
}

NameCharacters NameCharacters::Default() {
    return NameCharacters(L"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_.");
}

bool NameCharacters::Contains(wchar_t character) const {
    return std::binary_search(sorted_.begin(), sorted_.end(), character);
}

Lexer::Lexer(std::wstring_view text, NameCharacters const& nameCharacters)
    : text_(text), nameCharacters_(nameCharacters) {}

Token Lexer::Next() {
    SkipBlanks();
    if (position_ >= text_.size()) {
        Token end;
        end.column = text_.size();
        return end;
    }
    wchar_t const character = text_[position_];
    if (IsDigit(character) || (character == L'.' && IsDigitAt(position_ + 1))) return ReadNumber();
    if (nameCharacters_.Contains(character)) return ReadName();
    return ReadSymbol();
}

void Lexer::SkipBlanks() {
    while (position_ < text_.size() && kSeparators.find(text_[position_]) != std::wstring_view::npos) ++position_;
}

bool Lexer::IsDigitAt(std::size_t position) const { return position < text_.size() && IsDigit(text_[position]); }

Token Lexer::ReadNumber() {
    std::size_t const start = position_;
    while (IsDigitAt(position_)) ++position_;
    if (position_ < text_.size() && text_[position_] == L'.' && IsDigitAt(position_ + 1)) {
        ++position_;
        while (IsDigitAt(position_)) ++position_;
    }
    if (position_ < text_.size() && (text_[position_] == L'e' || text_[position_] == L'E')) {
        std::size_t digits = position_ + 1;
        if (digits < text_.size() && (text_[digits] == L'+' || text_[digits] == L'-')) ++digits;
        if (!IsDigitAt(digits)) Fail(FailureKind::InvalidNumber, start, {L"Invalid number: exponent without digits"});
        position_ = digits;
        while (IsDigitAt(position_)) ++position_;
    }
    // Everything read is ASCII, and from_chars does not depend on the locale.
    std::string const ascii(text_.begin() + start, text_.begin() + position_);
    Token token;
    token.type = Token::Type::Number;
    token.column = start;
    auto const [end, error] = std::from_chars(ascii.data(), ascii.data() + ascii.size(), token.number);
    if (error != std::errc() || end != ascii.data() + ascii.size()) {
        Fail(FailureKind::InvalidNumber, start, {L"Number out of range"});
    }
    return token;
}

Token Lexer::ReadName() {
    std::size_t const start = position_;
    while (position_ < text_.size() && nameCharacters_.Contains(text_[position_])) ++position_;
    Token token;
    token.type = Token::Type::Name;
    token.column = start;
    token.name = text_.substr(start, position_ - start);
    return token;
}

Token Lexer::ReadSymbol() {
    std::wstring_view const rest = text_.substr(position_);
    for (auto const& spelling : kSymbols) {
        std::wstring_view const text(spelling.text);
        if (rest.starts_with(text)) {
            Token token;
            token.type = Token::Type::Symbol;
            token.column = position_;
            token.symbol = spelling.symbol;
            position_ += text.size();
            return token;
        }
    }
    Fail(FailureKind::UnexpectedCharacter, position_, {L"Unexpected character ", DescribeCharacter(text_[position_])});
}

}  // namespace evaluator
