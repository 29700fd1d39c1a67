// The worker's connection against the library in process, and the two
// transports against each other, all in one run:
//   bench_worker [runs]     (default 5)
//
//  1. In process first, before any worker exists (the library linked into
//     this program, as a host's own worker would load it): Ping, a walk of
//     a 10 000-float list (pySequenceGet, pyFloatGetData, Release per
//     element), and 256 MiB there and back (a host matrix viewed by Python
//     with pyCreateMemoryView and summed by NumPy; a NumPy matrix read with
//     pyBufferGetData).
//  2. The same through a session on shared memory and on the socket, each in
//     its own worker, taking turns over the runs.
//  3. Per transport: the CPU time of this process and of the worker over
//     one idle second after a burst, and bursts of Ping beside two busy
//     threads of this program.
//  4. 100 rounds of 64 MiB there and back on shared memory: the memfd
//     mappings of both processes and this process's resident memory after.
//  5. Beside them: a 64-byte round trip over a socket pair between two
//     threads, and python3-rpyc's trivial remote call over a socket pair.
// Figures are medians over the runs; the last lines hold them to their
// targets.
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vxpy/client.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/memory.h"
#include "support/session.h"

namespace {

namespace vd = foundation::veltradata;
using Clock = std::chrono::steady_clock;
using Arrays = std::vector<vd::Array>;
// One command, in process or through a session; the first reply array.
using Command = std::function<vd::Array(const std::string&, const Arrays&)>;

constexpr int kPings = 20'000;
constexpr std::size_t kWalk = 10'000;
constexpr std::size_t kRows = 4096, kColumns = 8192;  // 256 MiB of doubles
constexpr int kMatrixRounds = 4;
constexpr int kBurst = 2'000;
constexpr int kBusyBursts = 7;
constexpr int kLargeRounds = 100;
constexpr std::size_t kLargeRows = 8192;  // with 1024 columns: 64 MiB

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

double microsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

vd::ArrayFactory factory;

vd::Array text(const std::string& value) {
    return factory.createCharArray(value);
}
vd::Array number(std::uint64_t value) {
    return factory.createScalar(value);
}

// Python through the commands alone, as any host would drive it.
class Driver {
  public:
    explicit Driver(Command command) : command_(std::move(command)) {
        globals_ = run("pyCreateDict");
        const vd::Array builtins = run("pyCreateBuiltinModule");
        exec_ = run("pyGetMember", {builtins, text("exec")});
        eval_ = run("pyGetMember", {builtins, text("eval")});
    }

    vd::Array run(const std::string& name, const Arrays& args = {}) { return command_(name, args); }

    // The object that a call returns, from its object result; released by the caller.
    vd::Array call(const vd::Array& callable, const Arrays& args) {
        const vd::Array tuple = run("pyCreateTuple", {number(args.size())});
        for (std::size_t i = 0; i < args.size(); ++i) {
            run("pyTupleSet", {tuple, number(i), args[i]});
        }
        const vd::Array result = run("pyInvokeFast", {callable, tuple});
        run("Release", {tuple});
        return vd::StructArray(result)[0]["object"];
    }
    void exec(const std::string& code) {
        run("Release", {call(exec_, {run("pyCreateUnicode", {text(code)}), globals_})});
    }
    vd::Array eval(const std::string& expression) {
        return call(eval_, {run("pyCreateUnicode", {text(expression)}), globals_});
    }

  private:
    Command command_;
    vd::Array globals_, exec_, eval_;
};

double pingMicros(Driver& python) {
    std::vector<double> samples(kPings);
    for (double& sample : samples) {
        const auto start = Clock::now();
        python.run("Ping");
        sample = microsSince(start);
    }
    return median(samples);
}

// Microseconds per element of a walk over a list of floats.
double walkMicros(Driver& python) {
    const vd::Array list = python.eval("[float(i) for i in range(" + std::to_string(kWalk) + ")]");
    const auto start = Clock::now();
    double sum = 0;
    for (std::size_t i = 0; i < kWalk; ++i) {
        const vd::Array item = python.run("pySequenceGet", {list, number(i)});
        sum += vd::TypedArray<double>(python.run("pyFloatGetData", {item}))[0];
        python.run("Release", {item});
    }
    const double micros = microsSince(start) / kWalk;
    python.run("Release", {list});
    if (sum != static_cast<double>(kWalk) * (kWalk - 1) / 2) {
        std::fprintf(stderr, "the walk summed to %g\n", sum);
    }
    return micros;
}

vd::TypedArray<double> hostMatrix(std::size_t rows, std::size_t columns) {
    vd::TypedArray<double> matrix = factory.createArray<double>({rows, columns});
    std::fill_n(const_cast<double*>(static_cast<const double*>(matrix.getReadOnlyData())),
                rows * columns, 0.25);
    return matrix;
}

// Milliseconds of one 256 MiB round: there (viewed and summed) and back.
double matrixMillis(Driver& python) {
    python.exec("import numpy");
    const vd::Array sum = python.eval("lambda v: float(numpy.asarray(v).sum())");
    const vd::Array made = python.eval("numpy.ones((" + std::to_string(kRows) + ", " +
                                       std::to_string(kColumns) + "))");
    const vd::TypedArray<double> matrix = hostMatrix(kRows, kColumns);
    std::vector<double> samples;
    for (int round = 0; round <= kMatrixRounds; ++round) {
        const auto start = Clock::now();
        const vd::Array view = python.run("pyCreateMemoryView", {matrix});
        python.run("Release", {python.call(sum, {view})});
        python.run("Release", {view});
        const vd::Array back = python.run("pyBufferGetData", {made});
        if (back.getNumberOfElements() != kRows * kColumns) {
            std::fprintf(stderr, "the matrix came back with another size\n");
        }
        if (round > 0) {  // the first round maps and faults in what the others reuse
            samples.push_back(microsSince(start) / 1000);
        }
    }
    python.run("Release", {sum});
    python.run("Release", {made});
    return median(samples);
}

// Nanoseconds on a core of every thread of process `pid`.
std::uint64_t cpuNanos(int pid) {
    std::uint64_t total = 0;
    std::error_code ignored;
    const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
    for (const auto& task : std::filesystem::directory_iterator(tasks, ignored)) {
        std::ifstream stat(task.path() / "schedstat");
        std::uint64_t onCpu = 0;
        stat >> onCpu;
        total += onCpu;
    }
    return total;
}

// Percent of a core that each process used over one idle second after a burst.
std::pair<double, double> idlePercent(Driver& python, int worker) {
    for (int i = 0; i < kBurst; ++i) {
        python.run("Ping");
    }
    const std::uint64_t host0 = cpuNanos(::getpid()), worker0 = cpuNanos(worker);
    std::this_thread::sleep_for(std::chrono::seconds(1));
    return {(cpuNanos(::getpid()) - host0) / 1e7, (cpuNanos(worker) - worker0) / 1e7};
}

// Milliseconds of a burst of Pings while two threads of this program keep
// their cores busy.
double busyBurstMillis(Driver& python) {
    std::atomic<bool> stop{false};
    std::vector<std::thread> busy;
    for (int t = 0; t < 2; ++t) {
        busy.emplace_back([&stop] {
            volatile std::uint64_t spin = 0;
            while (!stop.load(std::memory_order_relaxed)) {
                spin = spin + 1;
            }
        });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const auto start = Clock::now();
    for (int i = 0; i < kBurst; ++i) {
        python.run("Ping");
    }
    const double millis = microsSince(start) / 1000;
    stop = true;
    for (auto& thread : busy) {
        thread.join();
    }
    return millis;
}


std::size_t residentBytes() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmRSS:", 0) == 0) {
            return std::stoul(line.substr(6)) * 1024;
        }
    }
    return 0;
}

struct Large {
    double hostMappings, workerMappings, residentGrowth;  // MiB
};

Large largeRounds(Driver& python, int worker) {
    python.exec("import numpy");
    const vd::Array made = python.eval("numpy.ones((" + std::to_string(kLargeRows) + ", 1024))");
    const std::size_t before = residentBytes();
    for (int round = 0; round < kLargeRounds; ++round) {
        const vd::TypedArray<double> matrix = hostMatrix(kLargeRows, 1024);
        python.run("Release", {python.run("pyCreateMemoryView", {matrix})});
        const vd::Array back = python.run("pyBufferGetData", {made});
    }
    python.run("Ping");  // what came back is given back with the next request
    const double mib = 1 << 20;
    return {vxtest::memfdMappedBytes(::getpid()) / mib, vxtest::memfdMappedBytes(worker) / mib,
            (static_cast<double>(residentBytes()) - static_cast<double>(before)) / mib};
}

double socketPairMicros() {
    int pair[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, pair) != 0) {
        return 0;
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
    std::vector<double> samples(kPings);
    for (double& sample : samples) {
        const auto start = Clock::now();
        if (::send(pair[0], message.data(), message.size(), 0) != 64 ||
            ::recv(pair[0], message.data(), message.size(), MSG_WAITALL) != 64) {
            break;
        }
        sample = microsSince(start);
    }
    ::shutdown(pair[0], SHUT_RDWR);
    echo.join();
    ::close(pair[0]);
    ::close(pair[1]);
    return median(samples);
}

// python3-rpyc: a service with one trivial method, served by a forked
// process over a socket pair; the client times the calls itself. 0 when
// rpyc is absent.
double rpycMicros() {
    static constexpr const char* kRun = R"(import os, socket, statistics, sys, time
try:
    import rpyc
    from rpyc.core.stream import SocketStream
    from rpyc.utils.factory import connect_stream
except ImportError:
    print(0); sys.exit(0)
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
for _ in range(20000):
    t = time.perf_counter()
    ping()
    samples.append(time.perf_counter() - t)
print(statistics.median(samples) * 1e6)
)";
    const std::string command = "/usr/bin/python3 -c '" + std::string(kRun) + "' 2>/dev/null";
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command.c_str(), "r"), ::pclose);
    std::array<char, 64> line{};
    if (!pipe || std::fgets(line.data(), line.size(), pipe.get()) == nullptr) {
        return 0;
    }
    return std::atof(line.data());
}

std::string loadAverage() {
    std::ifstream file("/proc/loadavg");
    std::string text;
    std::getline(file, text);
    return text;
}

}  // namespace

int main(int argc, char** argv) {
    const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 5;
    std::printf("load average before: %s\n", loadAverage().c_str());
    std::map<std::string, std::vector<double>> figures;

    // 1. In process, before any worker exists.
    vxtest::startSystemPython();
    {
        Driver python(
            [](const std::string& name, const Arrays& args) { return vxtest::call(name, args); });
        for (int run = 0; run < runs; ++run) {
            figures["in process: Ping (us)"].push_back(pingMicros(python));
            figures["in process: walk (us per element)"].push_back(walkMicros(python));
        }
        figures["in process: 256 MiB there and back (ms)"].push_back(matrixMillis(python));
    }

    // 2. and 3. Through sessions, the transports taking turns.
    struct Side {
        const char* name;
        std::unique_ptr<vxpy::Session> session;
        std::unique_ptr<Driver> python;
    };
    std::vector<Side> sides;
    for (const auto& [name, transport] : {std::pair{"shared memory", vxpy::Transport::SharedMemory},
                                          std::pair{"socket", vxpy::Transport::Socket}}) {
        vxpy::Options options;
        options.transport = transport;
        Side side{name, std::make_unique<vxpy::Session>(options), nullptr};
        side.session->start(vxpy::Interpreter::find("/usr/bin/python3"));
        vxpy::Session* session = side.session.get();
        side.python =
            std::make_unique<Driver>([session](const std::string& command, const Arrays& args) {
                return session->call(command, args).at(0);
            });
        sides.push_back(std::move(side));
    }
    // 4. Many large rounds on shared memory, first, so that nothing else
    // has used shareable memory before them.
    const Large large = largeRounds(*sides[0].python, sides[0].session->pid());
    figures["shared memory: 100 x 64 MiB, host memfd mappings (MiB)"].push_back(large.hostMappings);
    figures["shared memory: 100 x 64 MiB, worker memfd mappings (MiB)"].push_back(
        large.workerMappings);
    figures["shared memory: 100 x 64 MiB, host resident growth (MiB)"].push_back(
        large.residentGrowth);

    for (int run = 0; run < runs; ++run) {
        for (Side& side : sides) {
            const std::string name = side.name;
            figures[name + ": Ping (us)"].push_back(pingMicros(*side.python));
            figures[name + ": walk (us per element)"].push_back(walkMicros(*side.python));
        }
    }
    for (Side& side : sides) {
        const std::string name = side.name;
        figures[name + ": 256 MiB there and back (ms)"].push_back(matrixMillis(*side.python));
        for (int run = 0; run < runs; ++run) {
            const auto [host, worker] = idlePercent(*side.python, side.session->pid());
            figures[name + ": idle CPU, host (%)"].push_back(host);
            figures[name + ": idle CPU, worker (%)"].push_back(worker);
        }
    }
    for (int burst = 0; burst < kBusyBursts; ++burst) {
        for (Side& side : sides) {
            figures[std::string(side.name) + ": 2000 Pings beside two busy threads (ms)"].push_back(
                busyBurstMillis(*side.python));
        }
    }

    // 5. Baselines of other kinds.
    figures["baseline: 64-byte socket-pair round trip (us)"].push_back(socketPairMicros());
    figures["baseline: python3-rpyc trivial remote call (us)"].push_back(rpycMicros());

    for (const auto& [name, values] : figures) {
        std::printf("%-62s %10.3f   (of %zu)\n", name.c_str(), median(values), values.size());
    }
    const auto m = [&](const std::string& name) { return median(figures[name]); };
    const double ping = m("shared memory: Ping (us)");
    std::printf("\ntargets:\n");
    std::printf("  Ping, shared memory / in process          %6.2f  (at most 4)\n",
                ping / m("in process: Ping (us)"));
    std::printf("  Ping, shared memory / socket              %6.2f  (at most 0.2)\n",
                ping / m("socket: Ping (us)"));
    std::printf("  walk, shared memory / in process          %6.2f  (at most 5)\n",
                m("shared memory: walk (us per element)") / m("in process: walk (us per element)"));
    std::printf("  256 MiB, shared memory / in process       %6.2f  (at most 1.3)\n",
                m("shared memory: 256 MiB there and back (ms)") /
                    m("in process: 256 MiB there and back (ms)"));
    std::printf("  idle CPU, host / worker (%%)               %6.2f / %.2f  (each under 1)\n",
                m("shared memory: idle CPU, host (%)"), m("shared memory: idle CPU, worker (%)"));
    std::printf("  busy-thread burst, shared memory / socket %6.2f  (at most 1.2)\n",
                m("shared memory: 2000 Pings beside two busy threads (ms)") /
                    m("socket: 2000 Pings beside two busy threads (ms)"));
    std::printf(
        "  100 x 64 MiB: mappings host / worker (MiB) %.0f / %.0f (each at most 512), "
        "resident growth %.0f MiB (under 512)\n",
        large.hostMappings, large.workerMappings, large.residentGrowth);
    std::printf("load average after: %s\n", loadAverage().c_str());
    for (Side& side : sides) {
        side.python.reset();
        side.session->close();
    }
    vxtest::call("pyClose");
    return 0;
}
