// Array costs against baselines measured in the same run: copying and
// release/adoption must not depend on the size, reading must keep up with
// memcpy, and an n-element double array must take 8n bytes plus a constant.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <chrono>
#include <cstring>
#include <vector>

#include "foundation/veltradata.h"

namespace {

using namespace foundation::veltradata;

constexpr std::int64_t kLarge = 100'000'000;

TypedArray<double> filled(std::size_t n) {
    ArrayFactory factory;
    auto buffer = factory.createBuffer<double>(n);
    for (std::size_t i = 0; i < n; ++i) {
        buffer[i] = static_cast<double>(i & 1023);
    }
    return factory.createArrayFromBuffer<double>({1, n}, std::move(buffer));
}

void BM_CopyArray(benchmark::State& state) {
    TypedArray<double> source =
        ArrayFactory().createArray<double>({1, std::size_t(state.range(0))});
    for (auto _ : state) {
        Array copy(source);
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(BM_CopyArray)->Arg(1)->Arg(kLarge);

// Times release() alone on an array that holds its data alone.
void BM_ReleaseUnshared(benchmark::State& state) {
    ArrayFactory factory;
    const std::size_t n = state.range(0);
    TypedArray<double> array = factory.createArray<double>({1, n});
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        auto buffer = array.release();
        const auto stop = std::chrono::steady_clock::now();
        state.SetIterationTime(std::chrono::duration<double>(stop - start).count());
        array = factory.createArrayFromBuffer<double>({1, n}, std::move(buffer));
    }
}
BENCHMARK(BM_ReleaseUnshared)->Arg(1)->Arg(kLarge)->UseManualTime();

// Times createArrayFromBuffer() alone.
void BM_CreateArrayFromBuffer(benchmark::State& state) {
    ArrayFactory factory;
    const std::size_t n = state.range(0);
    TypedArray<double> array = factory.createArray<double>({1, n});
    for (auto _ : state) {
        auto buffer = array.release();
        const auto start = std::chrono::steady_clock::now();
        array = factory.createArrayFromBuffer<double>({1, n}, std::move(buffer));
        const auto stop = std::chrono::steady_clock::now();
        state.SetIterationTime(std::chrono::duration<double>(stop - start).count());
    }
}
BENCHMARK(BM_CreateArrayFromBuffer)->Arg(1)->Arg(kLarge)->UseManualTime();

// Baseline: memcpy of the same number of bytes.
void BM_Memcpy(benchmark::State& state) {
    const std::size_t n = state.range(0);
    std::vector<double> from(n, 1.0), to(n, 0.0);
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), n * sizeof(double));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * n * sizeof(double));
}
BENCHMARK(BM_Memcpy)->Arg(kLarge)->Unit(benchmark::kMillisecond);

// Reading every element through the typed iterator, as plain range-for.
void BM_IterateRangeFor(benchmark::State& state) {
    const std::size_t n = state.range(0);
    TypedArray<double> array = filled(n);
    for (auto _ : state) {
        double sum = 0;
        for (double x : array) {
            sum += x;
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetBytesProcessed(state.iterations() * n * sizeof(double));
}
BENCHMARK(BM_IterateRangeFor)->Arg(kLarge)->Unit(benchmark::kMillisecond);

// The same with four running sums, so that the loop is bound by memory
// rather than by the latency of one chain of additions.
void BM_IterateUnrolled(benchmark::State& state) {
    const std::size_t n = state.range(0);
    TypedArray<double> array = filled(n);
    for (auto _ : state) {
        double s0 = 0, s1 = 0, s2 = 0, s3 = 0;
        auto it = array.begin();
        const auto end = array.end();
        for (; end - it >= 4; it += 4) {
            s0 += it[0];
            s1 += it[1];
            s2 += it[2];
            s3 += it[3];
        }
        for (; it != end; ++it) {
            s0 += *it;
        }
        benchmark::DoNotOptimize(s0 + s1 + s2 + s3);
    }
    state.SetBytesProcessed(state.iterations() * n * sizeof(double));
}
BENCHMARK(BM_IterateUnrolled)->Arg(kLarge)->Unit(benchmark::kMillisecond);

// Reading every element through the buffer that release() hands over (and
// giving it back, which costs nothing).
void BM_ReadReleased(benchmark::State& state) {
    ArrayFactory factory;
    const std::size_t n = state.range(0);
    TypedArray<double> array = filled(n);
    for (auto _ : state) {
        auto buffer = array.release();
        const double* p = buffer.get();
        double s0 = 0, s1 = 0, s2 = 0, s3 = 0;
        std::size_t i = 0;
        for (; i + 4 <= n; i += 4) {
            s0 += p[i];
            s1 += p[i + 1];
            s2 += p[i + 2];
            s3 += p[i + 3];
        }
        for (; i < n; ++i) {
            s0 += p[i];
        }
        benchmark::DoNotOptimize(s0 + s1 + s2 + s3);
        array = factory.createArrayFromBuffer<double>({1, n}, std::move(buffer));
    }
    state.SetBytesProcessed(state.iterations() * n * sizeof(double));
}
BENCHMARK(BM_ReadReleased)->Arg(kLarge)->Unit(benchmark::kMillisecond);

// Heap bytes taken by an n-element double array beyond its 8n bytes of data.
// glibc counts chunks parked in its per-thread cache as in use; run with
// GLIBC_TUNABLES=glibc.malloc.tcache_count=0 for exact figures.
void BM_MemoryOverhead(benchmark::State& state) {
    const std::size_t n = state.range(0);
    ArrayFactory factory;
    double overhead = 0;
    for (auto _ : state) {
        const struct mallinfo2 before = mallinfo2();
        {
            TypedArray<double> array = factory.createArray<double>({1, n});
            const struct mallinfo2 during = mallinfo2();
            const double used =
                double(during.uordblks + during.hblkhd) - double(before.uordblks + before.hblkhd);
            overhead = used - double(n * sizeof(double));
            benchmark::DoNotOptimize(array);
        }
    }
    state.counters["overhead_bytes"] = overhead;
}
BENCHMARK(BM_MemoryOverhead)->Arg(1)->Arg(1000)->Arg(kLarge)->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
