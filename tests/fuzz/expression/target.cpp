// The expression evaluator through its public interface, with its own
// promises as oracles: a result or a failure, never both; a failure has a
// known kind, a description and a marker whose "^" stands within the text;
// a result is a boolean or a finite number whose text reads back to it; the
// same expression gives the same answer twice.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "../fuzz_check.h"
#include "ExpressionEvaluator.h"

namespace {

ExpressionEvaluator& Evaluator() {
    static ExpressionEvaluator* const evaluator = [] {
        auto* made = new ExpressionEvaluator(nullptr, 0);
        made->SetVariable(WString(L"now"), 45458.0);
        made->SetVariable(WString(L"Control.Chip.Count"), 42.0);
        made->SetVariable(WString(L"Tool.X.Date"), 20240229.0);
        made->SetVariable(WString(L"huge"), 1e308);
        made->SetVariable(WString(L"ready"), true);
        EEToken empty;
        made->SetVariable(WString(L"unset"), empty);
        return made;
    }();
    return *evaluator;
}

// The answer to one evaluation as text, checked on the way.
std::wstring Answer(ExpressionEvaluator& evaluator, WString const& expression) {
    EEToken result;
    bool evaluated = evaluator.TryEvaluate(expression, result);
    ExitCode code;
    WString description, marker, missing;
    bool failed = evaluator.TryGetErrorMessage(code, description, marker);
    bool named = evaluator.TryGetMissingVariableName(missing);
    fuzz::Check(evaluated != failed, "a result or a failure, never both");
    if (evaluated) {
        bool flag = false, boolean = result.kind == EEToken::Kind::Boolean;
        fuzz::Check(!named && result.TryCast(flag) == boolean, "no missing name; only booleans cast to bool");
        fuzz::Check(boolean || (result.kind == EEToken::Kind::Number && std::isfinite(result.number) &&
                                std::wcstod(result.ToString().c_str(), nullptr) == result.number),
                    "a boolean, or a finite number whose text reads back");
        return result.ToString().str;
    }
    fuzz::Check(code.number >= 1 && code.number <= 14 && !description.str.empty(), "a known failure, described");
    fuzz::Check(named == (code.number == 10), "a missing name exactly for an unknown name");
    fuzz::Check(!named || (!missing.str.empty() && expression.str.find(missing.str) != std::wstring::npos),
                "the missing name is in the text");
    std::wstring const& line = marker.str;
    fuzz::Check(!line.empty() && line.back() == L'^' && line.size() <= expression.str.size() + 1, "a marker, ^ last");
    for (std::size_t i = 0; i + 1 < line.size(); ++i)
        fuzz::Check(line[i] == (expression.str[i] == L'\t' ? L'\t' : L' '), "blanks, or the text's tabs, before the ^");
    return std::to_wstring(code.number) + description.str + line;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    WString expression = WString::FromUtf8(std::string(reinterpret_cast<char const*>(data), size));
    ExpressionEvaluator& evaluator = Evaluator();
    fuzz::Check(Answer(evaluator, expression) == Answer(evaluator, expression), "the same answer twice");
    return 0;
}
