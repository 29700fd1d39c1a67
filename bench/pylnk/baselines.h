// What the Python benchmarks share: the copy baseline and the main that runs
// them all against one interpreter (Debian's python3 with NumPy and pandas).
#pragma once

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "support/session.h"

namespace vxbench {

// A copy into a new allocation each time, as any copy into a new array must
// do: the first touch of fresh pages is part of the price.
inline void BM_MemcpyIntoFreshBuffer(benchmark::State& state) {
    const size_t n = static_cast<size_t>(state.range(0));
    std::vector<double> from(n, 1.0);
    for (auto _ : state) {
        void* to = std::calloc(n, sizeof(double));
        std::memcpy(to, from.data(), n * sizeof(double));
        benchmark::DoNotOptimize(to);
        std::free(to);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n * sizeof(double)));
}

inline int runWithPython(int argc, char** argv) {
    vxtest::startSystemPython();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    vxtest::call("pyClose");
    return 0;
}

}  // namespace vxbench
