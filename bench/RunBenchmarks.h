#pragma once

#include <benchmark/benchmark.h>

namespace ambrel::bench {

// What BENCHMARK_MAIN() does, for the benchmark programs that set something up first in a
// main() of their own.
inline int runBenchmarks(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

} // namespace ambrel::bench
