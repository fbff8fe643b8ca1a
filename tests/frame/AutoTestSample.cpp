// A small plug-in file with no command and two automatic tests: one that
// passes and one that fails on purpose, so that a host can show both results.
#include "../../frame/AutomaticTest.h"

namespace {

void TextSplitsIntoTokens(TestCommand& test) {
    WString text(L"a,b,,c");
    test.Check(text.StrTok(L",").str == L"a", L"first token");
    test.Check(text.StrTok(L",").str == L"b", L"second token");
    test.Check(text.StrTok(L",").str == L"c", L"empty fields are skipped");
    test.Check(text.StrTok(L",").IsEmpty(), L"the walk ends with an empty token");
}

void KnownFailure(TestCommand& test) {
    test.Check(WString::ToString(7, false).str == L"8", L"seven reads as eight");
}

AddToAutomaticTestVector addTextSplitsIntoTokens(L"TextSplitsIntoTokens", L"StrTok walks a list of tokens", 0,
                                                 TextSplitsIntoTokens);
AddToAutomaticTestVector addKnownFailure(L"KnownFailure", L"A test that fails on purpose", 0, KnownFailure);

}  // namespace
