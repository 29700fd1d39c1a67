// Dates and durations to the host, each figure beside its baseline from the
// same run: pyDatetimeGetData and pyTimeDeltaGetData of 10^6-element arrays
// against NumPy's own astype(object) of the same arrays, called through the
// library as well.
#include <benchmark/benchmark.h>

#include "baselines.h"
#include "support/session.h"

using namespace vxtest;

namespace {

constexpr size_t kElements = 1'000'000;

// Milliseconds over some 60 years on both sides of 1970, one NaT.
Address values(const char* kind) {
    exec(std::string("import numpy\n") + "values_" + kind + " = numpy.random.default_rng(1)" +
         ".integers(-2 * 10**12, 2 * 10**12, " + std::to_string(kElements) + ").view('" + kind +
         "8[ms]')\n" + "values_" + kind + "[7] = 'NaT'\n");
    return eval(std::string("values_") + kind);
}

void BM_DatetimeGetDataOfArray(benchmark::State& state) {
    const vd::Array array = addressArray(values("M"));
    call("pyDatetimeGetData", {array});  // the first use of NumPy's loops is no part of the figure
    for (auto _ : state) {
        benchmark::DoNotOptimize(call("pyDatetimeGetData", {array}));
    }
}

void BM_TimeDeltaGetDataOfArray(benchmark::State& state) {
    const vd::Array array = addressArray(values("m"));
    call("pyTimeDeltaGetData", {array});
    for (auto _ : state) {
        benchmark::DoNotOptimize(call("pyTimeDeltaGetData", {array}));
    }
}

// The baseline: NumPy making a datetime object of each element.
void BM_NumpyAstypeObject(benchmark::State& state) {
    values("M");
    exec("def as_objects():\n    return values_M.astype(object)\n");
    const Address asObjects = eval("as_objects");
    release(invoke(asObjects, {}));
    for (auto _ : state) {
        release(invoke(asObjects, {}));
    }
}

BENCHMARK(BM_DatetimeGetDataOfArray)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TimeDeltaGetDataOfArray)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_NumpyAstypeObject)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    return vxbench::runWithPython(argc, argv);
}
