#include "Functions.h"

#include <algorithm>
#include <cmath>
#include <cwctype>
#include <limits>
#include <string>

#include "CalendarDays.h"
#include "EvaluationFailure.h"

namespace evaluator {
namespace {

constexpr std::size_t kAny = std::numeric_limits<std::size_t>::max();

constexpr FunctionInfo kFunctions[] = {
    {FunctionId::Int, L"INT", 1, 1, L"INT(x)", L"x rounded down to a whole number"},
    {FunctionId::Abs, L"ABS", 1, 1, L"ABS(x)", L"Absolute value of x"},
    {FunctionId::Round, L"ROUND", 1, 1, L"ROUND(x)", L"x rounded to the nearest whole number, halves away from zero"},
    {FunctionId::Floor, L"FLOOR", 1, 1, L"FLOOR(x)", L"Largest whole number not above x"},
    {FunctionId::Ceil, L"CEIL", 1, 1, L"CEIL(x)", L"Smallest whole number not below x"},
    {FunctionId::Min, L"MIN", 2, kAny, L"MIN(a, b, ...)", L"Smallest of two or more numbers"},
    {FunctionId::Max, L"MAX", 2, kAny, L"MAX(a, b, ...)", L"Largest of two or more numbers"},
    {FunctionId::If, L"IF", 3, 3, L"IF(c, a, b)", L"a if the boolean c is true, else b"},
    {FunctionId::DateToDays, L"DateToDays", 1, 1, L"DateToDays(date)",
     L"Days since 30-Dec-1899 of a usage log date such as 20240815"},
    {FunctionId::DaysToDate, L"DaysToDate", 1, 1, L"DaysToDate(days)",
     L"Usage log date (such as 20240815) of a number of days since 30-Dec-1899"},
};

bool EqualsIgnoringCase(std::wstring_view a, std::wstring_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](wchar_t x, wchar_t y) {
               return std::towupper(static_cast<std::wint_t>(x)) == std::towupper(static_cast<std::wint_t>(y));
           });
}

double DateToDays(double date, std::size_t column) {
    auto const days = DayCountOfDateNumber(date);
    if (!days) {
        Fail(FailureKind::InvalidDate, column, {L"DateToDays: not a valid date (YYYYMMDD)"});
    }
    return static_cast<double>(*days);
}

double DaysToDate(double days, std::size_t column) {
    auto const date = DateNumberOfDayCount(days);
    if (!date) Fail(FailureKind::InvalidDate, column, {L"DaysToDate: day count outside years 1 to 9999"});
    return static_cast<double>(*date);
}

}  // namespace

std::span<FunctionInfo const> AllFunctions() { return kFunctions; }

FunctionInfo const* FindFunction(std::wstring_view name) {
    for (auto const& function : kFunctions) {
        if (EqualsIgnoringCase(name, function.name)) return &function;
    }
    return nullptr;
}

std::wstring ArgumentCountText(FunctionInfo const& function) {
    if (function.mostArguments == kAny) return L"takes two or more arguments";
    return L"takes " + std::to_wstring(function.fewestArguments) +
           (function.fewestArguments == 1 ? L" argument" : L" arguments");
}

double ApplyFunction(FunctionInfo const& function, std::span<double const> arguments, std::size_t column) {
    switch (function.id) {
        case FunctionId::Int:
        case FunctionId::Floor:
            return std::floor(arguments[0]);
        case FunctionId::Abs:
            return std::fabs(arguments[0]);
        case FunctionId::Round:
            return std::round(arguments[0]);
        case FunctionId::Ceil:
            return std::ceil(arguments[0]);
        case FunctionId::Min:
            return *std::min_element(arguments.begin(), arguments.end());
        case FunctionId::Max:
            return *std::max_element(arguments.begin(), arguments.end());
        case FunctionId::DateToDays:
            return DateToDays(arguments[0], column);
        case FunctionId::DaysToDate:
            return DaysToDate(arguments[0], column);
        case FunctionId::If:
            break;
    }
    return std::nan("");  // IF never comes here: it is compiled into branches
}

}  // namespace evaluator
