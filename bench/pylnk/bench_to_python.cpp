// Host data into Python, each figure beside its baseline from the same run:
// a call with a 10^8-element matrix argument against the same call with 10
// elements; a 10^7-element row vector into an array.array against memcpy
// into a fresh buffer; a table of 10^6 rows by 10 columns into a DataFrame
// against pandas making the same frame from NumPy arrays.
#include <benchmark/benchmark.h>

#include "baselines.h"
#include "support/conversion.h"

using namespace vxtest;

namespace {

vd::Array doubles(std::vector<size_t> dims) {
    vd::TypedArray<double> values = vd::ArrayFactory().createArray<double>(std::move(dims));
    for (size_t k = 0; k < values.getNumberOfElements(); ++k) {
        values[k] = static_cast<double>(k);
    }
    return values;
}

Address takeNothing() {
    static const Address callable = [] {
        exec("def take(*args):\n    return None\n");
        return eval("take");
    }();
    return callable;
}

void invokeWith(const vd::Array& argument) {
    const vd::Array result = invokeFastInput(takeNothing(), {argument});
    release(addressOf(field(result, "object")));
}

// n elements as an (n/10) by 10 matrix (10 by 1 for n = 10).
void BM_InvokeFastInputWithMatrix(benchmark::State& state) {
    const size_t n = static_cast<size_t>(state.range(0));
    const size_t cols = n >= 100 ? 10 : 1;
    const vd::Array matrix = doubles({n / cols, cols});
    for (auto _ : state) {
        invokeWith(matrix);
    }
}

void BM_InvokeFastInputWithRowVector(benchmark::State& state) {
    const size_t n = static_cast<size_t>(state.range(0));
    const vd::Array row = doubles({1, n});
    for (auto _ : state) {
        invokeWith(row);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n * sizeof(double)));
}

constexpr size_t kRows = 1'000'000;
constexpr size_t kColumns = 10;

void BM_TableToDataFrame(benchmark::State& state) {
    std::vector<std::pair<std::string, vd::Array>> columns;
    std::vector<vd::Array> labels;
    for (size_t c = 0; c < kColumns; ++c) {
        columns.emplace_back("c" + std::to_string(c), doubles({kRows, 1}));
        labels.push_back(chars("c" + std::to_string(c)));
    }
    const vd::ArrayFactory f;
    const vd::Array table = structOf(
        {{"VX_PylnkSP_VELTRATableAsStruct", structOf({{"tableStruct", structOf(columns)},
                                                      {"variableNames", cellOf(labels)},
                                                      {"rowNamesFound", f.createScalar(false)},
                                                      {"dimensionRow", chars("")}})}});
    invokeWith(table);  // pandas' first import is no part of the figure
    for (auto _ : state) {
        invokeWith(table);
    }
}

void BM_PandasFrameFromNumpyArrays(benchmark::State& state) {
    exec(
        "import numpy, pandas\n"
        "arrays = {'c%d' % c: numpy.arange(" +
        std::to_string(kRows) +
        ", dtype=float) for c in "
        "range(" +
        std::to_string(kColumns) +
        ")}\n"
        "def frame():\n    pandas.DataFrame(arrays)\n");
    const Address frame = eval("frame");
    invokeFastInput(frame, {});
    for (auto _ : state) {
        const vd::Array result = invokeFastInput(frame, {});
        release(addressOf(field(result, "object")));
    }
}

BENCHMARK(BM_InvokeFastInputWithMatrix)->Arg(10)->Arg(100'000'000)->UseRealTime();
BENCHMARK(BM_InvokeFastInputWithRowVector)
    ->Arg(10'000'000)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(vxbench::BM_MemcpyIntoFreshBuffer)
    ->Arg(10'000'000)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TableToDataFrame)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PandasFrameFromNumpyArrays)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    return vxbench::runWithPython(argc, argv);
}
