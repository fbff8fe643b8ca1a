// The functions of the expression language: their names (found without
// regard to letter case), how many arguments they take, their help lines and,
// for all but IF, what they compute from their numbers. IF is compiled into
// branches, so that only the chosen value is worked out.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace evaluator {

enum class FunctionId { Int, Abs, Round, Floor, Ceil, Min, Max, If, DateToDays, DaysToDate };

struct FunctionInfo {
    FunctionId id;
    wchar_t const* name;
    std::size_t fewestArguments;
    std::size_t mostArguments;
    wchar_t const* signature;    // for the help text
    wchar_t const* description;  // for the help text
};

std::span<FunctionInfo const> AllFunctions();
FunctionInfo const* FindFunction(std::wstring_view name);

// "takes 1 argument", "takes two or more arguments": the end of a message.
std::wstring ArgumentCountText(FunctionInfo const& function);

// The value of a function other than IF. Throws EvaluationFailure (at
// `column`) for a date outside the calendar.
double ApplyFunction(FunctionInfo const& function, std::span<double const> arguments, std::size_t column);

}  // namespace evaluator
