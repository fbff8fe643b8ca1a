// EEToken: a value of an expression and its text.
#include <charconv>
#include <cmath>
#include <string>

#include "ExpressionEvaluator.h"

namespace {

// Beyond this a whole number is written with an exponent rather than as
// twenty-odd digits.
constexpr double kLargestWrittenOut = 1e21;

std::wstring Widen(char const* begin, char const* end) { return std::wstring(begin, end); }

// The shortest "%g"-style text that reads back to the same double. to_chars
// and from_chars do not depend on the locale, so the decimal point stays ".".
std::wstring ShortestText(double value) {
    char text[64];
    char* end = text;
    for (int precision = 1; precision <= 17; ++precision) {
        end = std::to_chars(text, text + sizeof text, value, std::chars_format::general, precision).ptr;
        double readBack = 0;
        std::from_chars(text, end, readBack);
        if (readBack == value) break;
    }
    return Widen(text, end);
}

std::wstring NumberText(double value) {
    if (std::isfinite(value) && value == std::floor(value) && std::fabs(value) < kLargestWrittenOut) {
        char text[32];
        // Adding 0 turns -0 into 0.
        char* const end = std::to_chars(text, text + sizeof text, value + 0.0, std::chars_format::fixed, 0).ptr;
        return Widen(text, end);
    }
    return ShortestText(value);
}

}  // namespace

EEToken::EEToken() : kind(Kind::Empty), number(0), boolean(false) {}

EEToken EEToken::FromNumber(double value) {
    EEToken token;
    token.kind = Kind::Number;
    token.number = value;
    return token;
}

EEToken EEToken::FromBoolean(bool value) {
    EEToken token;
    token.kind = Kind::Boolean;
    token.boolean = value;
    return token;
}

WString EEToken::ToString() const {
    switch (kind) {
        case Kind::Boolean: return WString(boolean ? L"true" : L"false");
        case Kind::Number: return WString(NumberText(number));
        case Kind::Empty: break;
    }
    return WString();
}

bool EEToken::TryCast(bool& value) const {
    if (kind != Kind::Boolean) return false;
    value = boolean;
    return true;
}
