// The object API of the client against the raw commands it stands on, each
// pair measured in alternating blocks of the same run, so that a change in
// the machine's load falls on both sides:
//  - a call through an Object of `lambda x: x` with 1.0, against a raw
//    pyInvokeFastInput of the same function (results kept on both sides, and
//    once more with the Object's result dropped);
//  - attr() results dropped, against raw pyGetMember calls whose results are
//    kept.
// Counters: the mean microseconds of each side and their ratio. Beside them,
// how soon interrupt() ends a call that sleeps in Python, against a Ping.
#include <benchmark/benchmark.h>
#include <vxpy/client.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <future>
#include <thread>
#include <vector>

#include "started_session.h"

namespace {

namespace vd = foundation::veltradata;
using vxbench::session;
using Clock = std::chrono::steady_clock;

constexpr int kBlock = 1000;

template <class Body>
double microsecondsPerRun(Body&& body) {
    const auto begin = Clock::now();
    for (int i = 0; i < kBlock; ++i) {
        body();
    }
    return std::chrono::duration<double, std::micro>(Clock::now() - begin).count() / kBlock;
}

// Runs the two sides in alternating blocks of kBlock; each benchmark
// iteration is one block of each.
template <class Object, class Baseline>
void alternate(benchmark::State& state, Object&& object, Baseline&& baseline) {
    double objectTotal = 0;
    double baselineTotal = 0;
    for (auto _ : state) {
        baselineTotal += microsecondsPerRun(baseline);
        objectTotal += microsecondsPerRun(object);
    }
    const double runs = static_cast<double>(state.iterations());
    state.counters["object_us"] = objectTotal / runs;
    state.counters["baseline_us"] = baselineTotal / runs;
    state.counters["ratio"] = objectTotal / baselineTotal;
}

double loadAverage() {
    double load = 0;
    std::ifstream("/proc/loadavg") >> load;
    return load;
}

// The arguments of pyInvokeFastInput that call the callable with 1.0.
std::vector<vd::Array> rawCallWithOne(const vxpy::Object& callable) {
    vd::ArrayFactory f;
    return {f.createScalar(callable.address()),
            f.createCellArray({1, 2}, {f.createCellArray({1, 1}, {f.createScalar(1.0)}),
                                       f.createStructArray({0, 0}, {})})};
}

void BM_CallKeptVsRawInvokeFastInput(benchmark::State& state) {
    vxpy::Session& python = session();
    const vxpy::Object identity = python.eval("lambda x: x");
    const std::vector<vd::Array> raw = rawCallWithOne(identity);
    std::vector<vxpy::Object> kept;
    kept.reserve(static_cast<std::size_t>(kBlock) * 64);
    alternate(
        state, [&] { kept.push_back(identity(1.0)); },
        [&] { benchmark::DoNotOptimize(python.call("pyInvokeFastInput", raw)); });
    state.counters["load"] = loadAverage();
}
BENCHMARK(BM_CallKeptVsRawInvokeFastInput)->Iterations(10)->Unit(benchmark::kMillisecond);

void BM_CallDroppedVsRawInvokeFastInput(benchmark::State& state) {
    vxpy::Session& python = session();
    const vxpy::Object identity = python.eval("lambda x: x");
    const std::vector<vd::Array> raw = rawCallWithOne(identity);
    alternate(
        state, [&] { benchmark::DoNotOptimize(identity(1.0).address()); },
        [&] { benchmark::DoNotOptimize(python.call("pyInvokeFastInput", raw)); });
    state.counters["load"] = loadAverage();
}
BENCHMARK(BM_CallDroppedVsRawInvokeFastInput)->Iterations(10)->Unit(benchmark::kMillisecond);

// 10 blocks of 1000: 10 000 attr() results dropped against 10 000 raw
// pyGetMember calls whose results are kept.
void BM_AttrDroppedVsRawGetMemberKept(benchmark::State& state) {
    vxpy::Session& python = session();
    python.exec("class Holder:\n    pass\nholder = Holder()\nholder.value = 2.5\n");
    const vxpy::Object holder = python.eval("holder");
    vd::ArrayFactory f;
    const std::vector<vd::Array> raw = {f.createScalar(holder.address()),
                                        f.createCharArray("value")};
    alternate(
        state, [&] { benchmark::DoNotOptimize(holder.attr("value").address()); },
        [&] { benchmark::DoNotOptimize(python.call("pyGetMember", raw)); });
    state.counters["load"] = loadAverage();
}
BENCHMARK(BM_AttrDroppedVsRawGetMemberKept)->Iterations(10)->Unit(benchmark::kMillisecond);

double median(std::vector<double> samples) {
    std::nth_element(samples.begin(), samples.begin() + samples.size() / 2, samples.end());
    return samples[samples.size() / 2];
}

// From interrupt() to the KeyboardInterrupt in the thread whose call sleeps.
void BM_InterruptOfASleep(benchmark::State& state) {
    vxpy::Session& python = session();
    const vxpy::Object sleep = python.eval("__import__('time').sleep");
    std::vector<double> interrupts;
    std::vector<double> pings;
    for (auto _ : state) {
        std::promise<Clock::time_point> ended;
        std::thread sleeping([&] {
            try {
                sleep(60);
            } catch (const vxpy::PythonError&) {
            }
            ended.set_value(Clock::now());
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(100));  // it sleeps in Python
        auto end = ended.get_future();
        auto sent = Clock::now();
        python.interrupt();
        // An interrupt reaches only a call in flight: once more, should the
        // call not have been sent yet.
        while (end.wait_for(std::chrono::seconds(1)) != std::future_status::ready) {
            sent = Clock::now();
            python.interrupt();
        }
        const std::chrono::duration<double, std::milli> took = end.get() - sent;
        sleeping.join();
        state.SetIterationTime(took.count() / 1000);
        interrupts.push_back(took.count());
        pings.push_back(microsecondsPerRun([&] { python.call("Ping", {}); }));
    }
    state.counters["interrupt_ms"] = median(interrupts);
    state.counters["ping_us"] = median(pings);
    state.counters["load"] = loadAverage();
}
BENCHMARK(BM_InterruptOfASleep)->Iterations(10)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
