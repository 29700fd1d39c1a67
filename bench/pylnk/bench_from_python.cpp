// Python data to the host, beside its baseline from the same run: the
// numeric data of a 10^7-element double array.array copied into a new host
// array by pyNumericConversion, against memcpy of the same bytes into a
// fresh buffer.
#include <benchmark/benchmark.h>

#include "baselines.h"
#include "support/session.h"

using namespace vxtest;

namespace {

void BM_NumericConversionOfDoubleArray(benchmark::State& state) {
    const size_t n = static_cast<size_t>(state.range(0));
    const vd::Array source =
        addressArray(eval("__import__('array').array('d', bytes(8 * " + std::to_string(n) + "))"));
    for (auto _ : state) {
        benchmark::DoNotOptimize(call("pyNumericConversion", {source}));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n * sizeof(double)));
}

BENCHMARK(BM_NumericConversionOfDoubleArray)
    ->Arg(10'000'000)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(vxbench::BM_MemcpyIntoFreshBuffer)
    ->Arg(10'000'000)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    return vxbench::runWithPython(argc, argv);
}
