#include "EvaluationFailure.h"

namespace evaluator {

void Fail(FailureKind kind, std::size_t column, std::initializer_list<std::wstring_view> description) {
    EvaluationFailure failure{kind, column, std::wstring()};
    for (std::wstring_view part : description) failure.description += part;
    throw failure;
}

}  // namespace evaluator
