#pragma once

#include <cstdio>
#include <cstdlib>

namespace ambrel::fuzzing {

// Stops the run with a report when a property that must hold for every input does not, so
// that libFuzzer keeps the input as a crash artifact.
inline void check(bool holds, const char* property) {
    if (!holds) {
        std::fprintf(stderr, "property broken: %s\n", property);
        std::abort();
    }
}

} // namespace ambrel::fuzzing
