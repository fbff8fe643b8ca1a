// An oracle of a fuzz target: a broken one ends the program, as a crash
// does, so that libFuzzer saves the input.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace fuzz {

inline void Check(bool holds, char const* what) {
    if (holds) return;
    std::fprintf(stderr, "oracle failed: %s\n", what);
    std::abort();
}

}  // namespace fuzz
