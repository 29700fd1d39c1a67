// Python data to the host, each beside its baseline from the same run: the
// numeric data of a 10^7-element double array.array copied into a new host
// array by pyNumericConversion, against memcpy of the same bytes into a
// fresh buffer; and pyDataFrameGetData of a frame of 10^6 rows and 10
// float64 columns, against pandas' own DataFrame.to_numpy(copy=True) of the
// same frame, called through the library as well.
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

constexpr size_t kRows = 1'000'000;
constexpr size_t kColumns = 10;

// The frame of argument 0 is the one pandas makes of a dict of columns (one
// block, each column contiguous), that of argument 1 a frame over a
// C-ordered matrix (each column strided). Made once, on first use.
std::string frameOf(int64_t layout) {
    static const bool made = [] {
        exec(
            "import numpy, pandas\n"
            "matrix = numpy.random.default_rng(1).random((" +
            std::to_string(kRows) + ", " + std::to_string(kColumns) +
            "))\n"
            "frames = [pandas.DataFrame({f'c{i}': matrix[:, i].copy() for i in range(" +
            std::to_string(kColumns) + ")}), pandas.DataFrame(matrix)]\n");
        return true;
    }();
    return made ? "frames[" + std::to_string(layout) + "]" : "";
}

void BM_DataFrameGetDataOfFloatColumns(benchmark::State& state) {
    const vd::Array frame = addressArray(eval(frameOf(state.range(0))));
    call("pyDataFrameGetData", {frame});
    for (auto _ : state) {
        benchmark::DoNotOptimize(call("pyDataFrameGetData", {frame}));
    }
    state.SetBytesProcessed(
        static_cast<int64_t>(state.iterations() * kRows * kColumns * sizeof(double)));
}

// The baseline: the bound method frame.to_numpy with (None, True), through
// pyInvokeFast; the copy it returns is released at once.
void BM_DataFrameToNumpyCopy(benchmark::State& state) {
    const vd::Array method = addressArray(eval(frameOf(state.range(0)) + ".to_numpy"));
    const vd::Array arguments = addressArray(eval("(None, True)"));
    auto once = [&] {
        release(addressOf(field(call("pyInvokeFast", {method, arguments}), "object")));
    };
    once();
    for (auto _ : state) {
        once();
    }
    state.SetBytesProcessed(
        static_cast<int64_t>(state.iterations() * kRows * kColumns * sizeof(double)));
}

BENCHMARK(BM_DataFrameGetDataOfFloatColumns)
    ->Arg(0)
    ->Arg(1)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DataFrameToNumpyCopy)->Arg(0)->Arg(1)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    return vxbench::runWithPython(argc, argv);
}
