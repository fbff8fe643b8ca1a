// ExpressionEvaluator: variables, the evaluation of one expression at a time
// and what is known of its failure.
//
// An evaluation compiles the expression, then looks up all its names in the
// order of their first appearance, and only then runs it. So the missing name
// that is reported is always the leftmost one, whichever branches the values
// would have taken. A failure keeps its kind, column and description until
// the next evaluation.
#include "ExpressionEvaluator.h"

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "EvaluationFailure.h"
#include "Functions.h"
#include "Program.h"

using evaluator::EvaluationFailure;
using evaluator::FailureKind;

struct ExpressionEvaluator::Impl {
    std::map<std::wstring, EEToken> variables;
    evaluator::NameCharacters nameCharacters = evaluator::NameCharacters::Default();
    std::optional<EvaluationFailure> failure;
    std::wstring marker;  // of the failure

    // The values of a program's names; throws for the first that is not defined.
    std::vector<EEToken const*> LookUpNames(evaluator::Program const& program) const {
        std::vector<EEToken const*> values;
        for (auto const& use : program.names) {
            auto const found = variables.find(use.name);
            if (found == variables.end()) {
                throw EvaluationFailure{FailureKind::UnknownName, use.column, L"Unknown name '" + use.name + L"'",
                                        use.name};
            }
            if (found->second.kind == EEToken::Kind::Empty) {
                throw EvaluationFailure{FailureKind::TypeMismatch, use.column, L"Name '" + use.name + L"' has no value"};
            }
            values.push_back(&found->second);
        }
        return values;
    }

    void Fail(EvaluationFailure const& what, std::wstring const& expression) {
        failure = what;
        // A tab stays a tab so that the "^" lines up under the printed expression.
        std::size_t const column = std::min(what.column, expression.size());
        marker.clear();
        for (std::size_t index = 0; index < column; ++index) marker += expression[index] == L'\t' ? L'\t' : L' ';
        marker += L'^';
    }
};

ExpressionEvaluator::ExpressionEvaluator(CommandBase* /*owner*/, unsigned int /*flags*/) : impl_(std::make_unique<Impl>()) {}

ExpressionEvaluator::~ExpressionEvaluator() = default;

void ExpressionEvaluator::SetVariable(WString const& name, bool value) {
    impl_->variables.insert_or_assign(name.str, EEToken::FromBoolean(value));
}

void ExpressionEvaluator::SetVariable(WString const& name, double value) {
    impl_->variables.insert_or_assign(name.str, EEToken::FromNumber(value));
}

void ExpressionEvaluator::SetVariable(WString const& name, EEToken& value) {
    impl_->variables.insert_or_assign(name.str, value);
}

void ExpressionEvaluator::SetValidChars(wchar_t const* characters) {
    impl_->nameCharacters = characters == nullptr ? evaluator::NameCharacters::Default()
                                                  : evaluator::NameCharacters(characters);
}

bool ExpressionEvaluator::TryEvaluate(WString const& expression, EEToken& result) {
    impl_->failure.reset();
    try {
        evaluator::Program const program = evaluator::Compile(expression.str, impl_->nameCharacters);
        result = evaluator::Run(program, impl_->LookUpNames(program));
        return true;
    } catch (EvaluationFailure const& failure) {
        impl_->Fail(failure, expression.str);
        return false;
    }
}

bool ExpressionEvaluator::TryGetMissingVariableName(WString& name) const {
    if (!impl_->failure || impl_->failure->kind != FailureKind::UnknownName) return false;
    name = WString(impl_->failure->missingName);
    return true;
}

bool ExpressionEvaluator::TryGetErrorMessage(ExitCode& code, WString& description, WString& marker) const {
    if (!impl_->failure) return false;
    code = ExitCode(static_cast<unsigned int>(impl_->failure->kind));
    description = WString(impl_->failure->description);
    marker = WString(impl_->marker);
    return true;
}

namespace {

struct OperatorHelp {
    wchar_t const* symbol;
    wchar_t const* description;
};

// Loosest first, as they bind.
constexpr OperatorHelp kOperators[] = {
    {L"||", L"Or of two booleans"},
    {L"&&", L"And of two booleans"},
    {L"==", L"Equal: two numbers or two booleans"},
    {L"!=", L"Not equal: two numbers or two booleans"},
    {L"<", L"Less than"},
    {L"<=", L"Less than or equal"},
    {L">", L"Greater than"},
    {L">=", L"Greater than or equal"},
    {L"+", L"Addition"},
    {L"-", L"Subtraction; in front of a number, its negation"},
    {L"*", L"Multiplication"},
    {L"/", L"Division"},
    {L"%", L"Remainder of a division, with the sign of the dividend"},
    {L"!", L"Not: the opposite of a boolean"},
    {L"( )", L"Grouping"},
};

// Lines of two columns, the first padded to its longest entry.
template <typename Entries, typename Left, typename Right>
void WriteColumns(Pipe& pipe, Entries const& entries, Left left, Right right) {
    std::size_t width = 0;
    for (auto const& entry : entries) width = std::max(width, std::wstring_view(left(entry)).size());
    for (auto const& entry : entries) {
        std::wstring line = L"  ";
        line += left(entry);
        line.append(width + 2 - std::wstring_view(left(entry)).size(), L' ');
        line += right(entry);
        pipe.DoWriteLine(WString(line));
    }
}

}  // namespace

void ExpressionEvaluator::DisplaySupportedOperatorsAndFunctionsHelpText(Pipe& pipe, bool /*unused*/,
                                                                         wchar_t const* operatorsHeading,
                                                                         wchar_t const* functionsHeading) {
    if (operatorsHeading != nullptr) pipe.DoWriteLine(WString(operatorsHeading));
    WriteColumns(pipe, kOperators, [](OperatorHelp const& entry) { return entry.symbol; },
                 [](OperatorHelp const& entry) { return entry.description; });
    if (functionsHeading != nullptr) pipe.DoWriteLine(WString(functionsHeading));
    WriteColumns(pipe, evaluator::AllFunctions(), [](evaluator::FunctionInfo const& entry) { return entry.signature; },
                 [](evaluator::FunctionInfo const& entry) { return entry.description; });
}
