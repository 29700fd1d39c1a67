// Round trips through feval_dispatcher against a bare promise/future
// hand-off between two threads, and the buffer commands against memcpy.
// One interpreter for the whole run (Debian's python3 with NumPy).
#include <benchmark/benchmark.h>

#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <future>
#include <mutex>
#include <thread>

#include "baselines.h"

using namespace vxtest;

namespace {

// The baseline: what any queue-to-a-worker-thread design costs at least.
class BareHandOff {
  public:
    BareHandOff() : worker_([this] { serve(); }) {}
    ~BareHandOff() {
        send(nullptr);
        worker_.join();
    }
    void send(std::promise<int>* p) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            queue_.push_back(p);
        }
        ready_.notify_one();
    }

  private:
    void serve() {
        for (;;) {
            std::promise<int>* p;
            {
                std::unique_lock<std::mutex> lock(mutex_);
                ready_.wait(lock, [this] { return !queue_.empty(); });
                p = queue_.front();
                queue_.pop_front();
            }
            if (p == nullptr) {
                return;
            }
            p->set_value(1);
        }
    }
    std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<std::promise<int>*> queue_;
    std::thread worker_;
};

void BM_BareHandOff(benchmark::State& state) {
    BareHandOff handOff;
    for (auto _ : state) {
        std::promise<int> p;
        auto f = p.get_future();
        handOff.send(&p);
        benchmark::DoNotOptimize(f.get());
    }
}

void BM_Ping(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(call("Ping"));
    }
}

void BM_CreateNoneRelease(benchmark::State& state) {
    for (auto _ : state) {
        vd::Array none = call("pyCreateNone");
        call("Release", {none});
    }
    state.counters["round_trips_per_iteration"] = 2;
}

void BM_InvokeTrivial(benchmark::State& state) {
    exec("def trivial(): return None");
    const Address trivial = eval("trivial");
    const Address noArgs = tupleOf({});
    for (auto _ : state) {
        benchmark::DoNotOptimize(call("pyInvoke", {addressArray(trivial), addressArray(noArgs)}));
    }
}

vd::Array hostMatrix(size_t n) {
    vd::ArrayFactory f;
    // n elements as an (n/10) by 10 matrix (10 by 1 for n = 10).
    const size_t cols = n >= 100 ? 10 : 1;
    return f.createArray<double>({n / cols, cols});
}

void BM_CreateMemoryView(benchmark::State& state) {
    vd::Array host = hostMatrix(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        vd::Array view = call("pyCreateMemoryView", {host});
        call("Release", {view});
    }
}

void BM_BufferGetDataOfHostBuffer(benchmark::State& state) {
    vd::Array host = hostMatrix(static_cast<size_t>(state.range(0)));
    vd::Array view = call("pyCreateMemoryView", {host});
    for (auto _ : state) {
        benchmark::DoNotOptimize(call("pyBufferGetData", {view}));
    }
    call("Release", {view});
}

void BM_BufferGetDataOfCOrderedNumpy(benchmark::State& state) {
    const size_t n = static_cast<size_t>(state.range(0));
    const Address source = eval("__import__('numpy').ones((" + std::to_string(n / 10) + ", 10))");
    const Address buffer = addressOf(call("pyCreateBuffer", {addressArray(source)}));
    for (auto _ : state) {
        benchmark::DoNotOptimize(call("pyBufferGetData", {addressArray(buffer)}));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n * sizeof(double)));
    release(buffer);
    release(source);
}

void BM_Memcpy(benchmark::State& state) {
    const size_t n = static_cast<size_t>(state.range(0));
    std::vector<double> from(n, 1.0), to(n);
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), n * sizeof(double));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n * sizeof(double)));
}

BENCHMARK(BM_BareHandOff)->UseRealTime();
BENCHMARK(BM_Ping)->UseRealTime();
BENCHMARK(BM_CreateNoneRelease)->UseRealTime();
BENCHMARK(BM_InvokeTrivial)->UseRealTime();
BENCHMARK(BM_CreateMemoryView)->Arg(10)->Arg(100'000'000)->UseRealTime();
BENCHMARK(BM_BufferGetDataOfHostBuffer)->Arg(10)->Arg(100'000'000)->UseRealTime();
BENCHMARK(BM_BufferGetDataOfCOrderedNumpy)
    ->Arg(100'000'000)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Memcpy)->Arg(100'000'000)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(vxbench::BM_MemcpyIntoFreshBuffer)
    ->Arg(100'000'000)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    return vxbench::runWithPython(argc, argv);
}
