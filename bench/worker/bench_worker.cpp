// The out-of-process road against baselines measured in the same run:
//  - Ping through a vxpy::Session against a 64-byte round trip over a socket
//    pair between two threads (median round trips);
//  - a 256 MiB double matrix sent to the worker and read back
//    (pyCreateMemoryView, pyBufferGetData) against memcpy of 256 MiB into a
//    freshly allocated buffer;
//  - a trivial remote call of python3-rpyc over a socket pair, when installed.
#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vxpy/client.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>

#include "started_session.h"

namespace {

namespace vd = foundation::veltradata;
using vxbench::session;
using Clock = std::chrono::steady_clock;

// Times every iteration of body and reports the median as `median_us`.
template <class Body>
void medianOf(benchmark::State& state, Body&& body) {
    std::vector<double> samples;
    samples.reserve(1 << 16);
    for (auto _ : state) {
        const auto begin = Clock::now();
        body();
        const std::chrono::duration<double> took = Clock::now() - begin;
        state.SetIterationTime(took.count());
        samples.push_back(took.count() * 1e6);
    }
    std::nth_element(samples.begin(), samples.begin() + samples.size() / 2, samples.end());
    state.counters["median_us"] = samples[samples.size() / 2];
}

void BM_SocketPairRoundTrip64(benchmark::State& state) {
    int pair[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, pair) != 0) {
        state.SkipWithError("no socket pair");
        return;
    }
    std::thread echo([fd = pair[1]] {
        std::array<char, 64> message{};
        while (::recv(fd, message.data(), message.size(), MSG_WAITALL) == 64) {
            if (::send(fd, message.data(), message.size(), 0) != 64) {
                break;
            }
        }
    });
    std::array<char, 64> message{};
    medianOf(state, [&] {
        benchmark::DoNotOptimize(::send(pair[0], message.data(), message.size(), 0));
        benchmark::DoNotOptimize(::recv(pair[0], message.data(), message.size(), MSG_WAITALL));
    });
    ::shutdown(pair[0], SHUT_RDWR);
    echo.join();
    ::close(pair[0]);
    ::close(pair[1]);
}
BENCHMARK(BM_SocketPairRoundTrip64)->UseManualTime();

void BM_Ping(benchmark::State& state) {
    vxpy::Session& python = session();
    medianOf(state, [&] { benchmark::DoNotOptimize(python.call("Ping", {})); });
}
BENCHMARK(BM_Ping)->UseManualTime();

// The connection and the worker's server alone: _TEST_ is answered on the
// server thread, without the Python thread.
void BM_TestEcho(benchmark::State& state) {
    vxpy::Session& python = session();
    medianOf(state, [&] { benchmark::DoNotOptimize(python.call("_TEST_", {})); });
}
BENCHMARK(BM_TestEcho)->UseManualTime();

constexpr std::size_t kMatrixBytes = std::size_t{256} << 20;

void BM_MemcpyIntoFreshBuffer256MiB(benchmark::State& state) {
    std::vector<char> source(kMatrixBytes, 1);
    for (auto _ : state) {
        std::unique_ptr<char[]> fresh(new char[kMatrixBytes]);
        std::memcpy(fresh.get(), source.data(), kMatrixBytes);
        benchmark::DoNotOptimize(fresh.get());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kMatrixBytes));
}
BENCHMARK(BM_MemcpyIntoFreshBuffer256MiB)->Unit(benchmark::kMillisecond)->UseRealTime();

// Sent to the worker as a buffer over the host's data, and read back.
void BM_MatrixThereAndBack256MiB(benchmark::State& state) {
    vxpy::Session& python = session();
    const std::size_t count = kMatrixBytes / sizeof(double);
    vd::TypedArray<double> matrix = vd::ArrayFactory().createArray<double>({4096, count / 4096});
    std::fill_n(const_cast<double*>(static_cast<const double*>(matrix.getReadOnlyData())), count,
                0.25);
    for (auto _ : state) {
        const vd::Array view = python.call("pyCreateMemoryView", {matrix}).at(0);
        const vd::Array back = python.call("pyBufferGetData", {view}).at(0);
        if (back.getNumberOfElements() != count) {
            state.SkipWithError("the matrix came back with another size");
            break;
        }
        python.call("Release", {view});
    }
    // Effective bandwidth: the matrix crosses twice.
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * 2 * kMatrixBytes));
}
BENCHMARK(BM_MatrixThereAndBack256MiB)->Unit(benchmark::kMillisecond)->UseRealTime();

// python3-rpyc: a service with one trivial method, served by a forked
// process over a socket pair; the client times the calls itself.
constexpr const char* kRpycRun = R"(import os, socket, statistics, sys, time
try:
    import rpyc
    from rpyc.core.stream import SocketStream
    from rpyc.utils.factory import connect_stream
except ImportError:
    print('absent'); sys.exit(0)
class Trivial(rpyc.Service):
    def exposed_ping(self):
        return None
a, b = socket.socketpair()
if os.fork() == 0:
    a.close()
    connect_stream(SocketStream(b), service=Trivial).serve_all()
    os._exit(0)
b.close()
ping = connect_stream(SocketStream(a)).root.ping
for _ in range(2000):
    ping()
samples = []
for _ in range(int(sys.argv[1])):
    t = time.perf_counter()
    ping()
    samples.append(time.perf_counter() - t)
print(statistics.median(samples) * 1e6)
)";

void BM_RpycTrivialCall(benchmark::State& state) {
    const std::string command =
        "/usr/bin/python3 -c '" + std::string(kRpycRun) + "' 20000 2>/dev/null";
    for (auto _ : state) {
        std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command.c_str(), "r"), ::pclose);
        std::array<char, 64> line{};
        if (!pipe || std::fgets(line.data(), line.size(), pipe.get()) == nullptr) {
            state.SkipWithError("python3 did not answer");
            return;
        }
        if (std::string(line.data()).rfind("absent", 0) == 0) {
            state.SkipWithError("python3-rpyc is not installed (scripts/setup-deps installs it)");
            return;
        }
        const double median = std::atof(line.data());
        state.SetIterationTime(median / 1e6);
        state.counters["median_us"] = median;
    }
}
BENCHMARK(BM_RpycTrivialCall)->UseManualTime()->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
