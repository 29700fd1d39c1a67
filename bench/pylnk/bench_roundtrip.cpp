// The round trip of a command through feval_dispatcher, with the library as
// built (callers and the Python thread spin briefly before they sleep)
// against the same library with spinning off (bench/spin-off, loaded through
// LD_LIBRARY_PATH), in the same run. Each measurement runs in child
// processes, the two libraries taking turns; the figures are medians over
// the runs.
//   bench_roundtrip [runs]      (default 7)
//
// Beside them, two hand-offs between bare threads of the benchmark: a
// busy-wait one (the floor of any hand-off between cores) and a
// promise/future through a mutex and condition variable (sleeping, as the
// library's was).
#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <future>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <thread>
#include <vector>

#include "service/feval_dispatcher.h"
#include "support/session.h"

using namespace vxtest;
using Clock = std::chrono::steady_clock;
using interprocess::pylnk::server::libpylnk::feval_dispatcher;

namespace {

constexpr int kPings = 20'000;
constexpr int kWalkLength = 10'000;
constexpr int kWalks = 3;
constexpr int kBusyThreads = 2;
constexpr int kOversubscribedPings = 2'000;
constexpr int kOversubscribedBursts = 7;

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double microsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

// Median of `count` timed calls of body, in microseconds.
template <class Body>
double medianMicros(int count, Body&& body) {
    std::vector<double> samples(static_cast<size_t>(count));
    for (double& sample : samples) {
        const auto start = Clock::now();
        body();
        sample = microsSince(start);
    }
    return median(std::move(samples));
}

// --- hand-offs between bare threads ------------------------------------------

void cpuPause() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
}

// A request and its reply through one flag that both threads watch.
double busyWaitHandOff() {
    std::atomic<int> turn{0};  // 1: a request is there, 0: answered, -1: stop
    std::thread server([&turn] {
        for (;;) {
            int seen;
            while ((seen = turn.load(std::memory_order_acquire)) == 0) {
                cpuPause();
            }
            if (seen < 0) {
                return;
            }
            turn.store(0, std::memory_order_release);
        }
    });
    const double result = medianMicros(kPings, [&turn] {
        turn.store(1, std::memory_order_release);
        while (turn.load(std::memory_order_acquire) != 0) {
            cpuPause();
        }
    });
    turn.store(-1, std::memory_order_release);
    server.join();
    return result;
}

// The promise of a request through a queue with a mutex and a condition
// variable, answered by a thread that sleeps between requests.
double sleepingHandOff() {
    std::mutex mutex;
    std::condition_variable ready;
    std::promise<int>* request = nullptr;
    bool stop = false;
    std::thread server([&] {
        for (;;) {
            std::unique_lock<std::mutex> lock(mutex);
            ready.wait(lock, [&] { return request != nullptr || stop; });
            if (stop) {
                return;
            }
            std::exchange(request, nullptr)->set_value(1);
        }
    });
    const double result = medianMicros(kPings, [&] {
        std::promise<int> reply;
        std::future<int> answer = reply.get_future();
        {
            std::lock_guard<std::mutex> lock(mutex);
            request = &reply;
        }
        ready.notify_one();
        answer.get();
    });
    {
        std::lock_guard<std::mutex> lock(mutex);
        stop = true;
    }
    ready.notify_one();
    server.join();
    return result;
}

// --- through the library -------------------------------------------------------

void ping() {
    static const std::string name = "Ping";
    vd::Array out;
    feval_dispatcher(name, 1, &out, 0, nullptr);
}

// Element by element, as the host reads a list back: pySequenceGet,
// pyFloatGetData and Release for each element.
double walkMillis(Address list) {
    const auto start = Clock::now();
    double sum = 0;
    for (std::uint64_t i = 0; i < kWalkLength; ++i) {
        const vd::Array element = call("pySequenceGet", {addressArray(list), uint64Array(i)});
        sum += vd::TypedArray<double>(call("pyFloatGetData", {element}))[0];
        call("Release", {element});
    }
    const double took = microsSince(start) / 1000;
    if (sum != 0.5 * kWalkLength * (kWalkLength - 1)) {
        std::cerr << "the walk read wrong values\n";
        std::exit(1);
    }
    return took;
}

double processCpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// CPU time of the whole process over one idle second after a burst, once
// the spin limits have long passed, in percent of that second.
double idleCpuPercent() {
    for (int i = 0; i < 1000; ++i) {
        ping();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    const double cpuBefore = processCpuSeconds();
    const auto start = Clock::now();
    std::this_thread::sleep_for(std::chrono::seconds(1));
    const double wall = microsSince(start) * 1e-6;
    return 100 * (processCpuSeconds() - cpuBefore) / wall;
}

// Bursts of Pings while busy threads of this process want every core: the
// median burst (under such load a burst is fast or several times slower,
// from one to the next, so one burst says little).
double oversubscribedBurstMillis() {
    std::atomic<bool> stop{false};
    std::vector<std::thread> busy;
    for (int i = 0; i < kBusyThreads; ++i) {
        busy.emplace_back([&stop] {
            while (!stop.load(std::memory_order_relaxed)) {
            }
        });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    std::vector<double> bursts;
    for (int round = 0; round < kOversubscribedBursts; ++round) {
        const auto start = Clock::now();
        for (int i = 0; i < kOversubscribedPings; ++i) {
            ping();
        }
        bursts.push_back(microsSince(start) / 1000);
    }
    stop = true;
    for (auto& thread : busy) {
        thread.join();
    }
    return median(bursts);
}

// The file that this process loaded as libvxippylnk.so.
std::string loadedLibrary() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&feval_dispatcher), &info) == 0 || !info.dli_fname) {
        return "?";
    }
    return info.dli_fname;
}

// One run: prints "key value" lines for the parent. The busy-thread bursts
// run in a fresh process of their own, so that both libraries meet them
// with the same history (the scheduler places threads by how they woke
// each other before).
int child(const std::string& part) {
    std::cout << "library " << loadedLibrary() << "\n";
    if (part == "crowded") {
        startSystemPython();
        std::cout << "oversubscribed_ms " << oversubscribedBurstMillis() << "\n";
        call("pyClose");
        return 0;
    }
    std::cout << "busy_wait_us " << busyWaitHandOff() << "\n";
    std::cout << "sleeping_us " << sleepingHandOff() << "\n";
    startSystemPython();
    for (int i = 0; i < 2000; ++i) {
        ping();
    }
    std::cout << "ping_us " << medianMicros(kPings, ping) << "\n";
    exec("walk_list = [float(i) for i in range(" + std::to_string(kWalkLength) + ")]");
    const Address list = eval("walk_list");
    std::vector<double> walks;
    for (int i = 0; i < kWalks; ++i) {
        walks.push_back(walkMillis(list));
    }
    std::cout << "walk_ms " << median(walks) << "\n";
    std::cout << "idle_cpu_pct " << idleCpuPercent() << "\n";
    call("pyClose");
    return 0;
}

using Figures = std::map<std::string, std::vector<double>>;

// Runs one child and adds its figures; returns the library it loaded.
std::string runChild(const std::string& self, const std::string& part,
                     const std::string& libraryPath, Figures& figures) {
    const std::string command =
        (libraryPath.empty() ? "" : "LD_LIBRARY_PATH='" + libraryPath + "' ") + "'" + self +
        "' --child " + part;
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command.c_str(), "r"), ::pclose);
    std::string library;
    char line[512];
    while (pipe && std::fgets(line, sizeof line, pipe.get()) != nullptr) {
        std::istringstream fields(line);
        std::string key;
        fields >> key;
        if (key == "library") {
            fields >> library;
        } else {
            double value = 0;
            fields >> value;
            figures[key].push_back(value);
        }
    }
    if (!pipe || ::pclose(pipe.release()) != 0 || library.empty()) {
        std::cerr << "the child failed: " << command << "\n";
        std::exit(1);
    }
    return library;
}

std::string loadAverage() {
    std::ifstream file("/proc/loadavg");
    std::string one, five, fifteen;
    file >> one >> five >> fifteen;
    return one + " " + five + " " + fifteen;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::string(argv[1]) == "--child") {
        return child(argv[2]);
    }
    const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 7;
    const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
    std::cout << "load average before: " << loadAverage() << " ("
              << std::thread::hardware_concurrency() << " cores)\n";
    Figures spinning, off;
    std::string spinningLibrary, offLibrary;
    for (int run = 0; run < runs; ++run) {
        for (const char* part : {"quiet", "crowded"}) {
            spinningLibrary = runChild(self, part, "", spinning);
            offLibrary = runChild(self, part, VX_SPIN_OFF_FOLDER, off);
        }
        std::cerr << "run " << run + 1 << " of " << runs << " done\n";
    }
    std::cout << "load average after:  " << loadAverage() << "\n"
              << "spinning: " << spinningLibrary << "\nspin off: " << offLibrary << std::endl;
    if (spinningLibrary == offLibrary) {
        std::cerr << "both children loaded the same library\n";
        return 1;
    }
    for (const char* key : {"busy_wait_us", "sleeping_us"}) {
        spinning[key].insert(spinning[key].end(), off[key].begin(), off[key].end());
    }
    const auto m = [](Figures& f, const char* key) {
        return f[key].empty() ? std::nan("") : median(f[key]);
    };
    const auto row = [&](const std::string& what, const char* key) {
        std::printf("%-48s %9.2f %9.2f\n", what.c_str(), m(spinning, key), m(off, key));
    };
    std::printf("%-48s %9s %9s\n", ("medians of " + std::to_string(runs) + " runs").c_str(),
                "spinning", "spin off");
    row("Ping round trip (us)", "ping_us");
    row("walk of " + std::to_string(kWalkLength) + " floats (ms)", "walk_ms");
    row("idle CPU over 1 s after a burst (%)", "idle_cpu_pct");
    row(std::to_string(kOversubscribedPings) + " Pings beside " + std::to_string(kBusyThreads) +
            " busy threads (ms)",
        "oversubscribed_ms");
    std::printf("%-48s %9.2f  (the floor)\n", "bare threads, busy-wait hand-off (us)",
                m(spinning, "busy_wait_us"));
    std::printf("%-48s %9.2f  (promise/future, mutex, cv)\n",
                "bare threads, sleeping hand-off (us)", m(spinning, "sleeping_us"));
    std::printf(
        "targets: Ping <= 5 us: %.2f; walk >= 10x faster: %.1fx; idle < 1 %%: %.2f; "
        "oversubscribed <= 1.2x spin off: %.2fx\n",
        m(spinning, "ping_us"), m(off, "walk_ms") / m(spinning, "walk_ms"),
        m(spinning, "idle_cpu_pct"),
        m(spinning, "oversubscribed_ms") / m(off, "oversubscribed_ms"));
    return 0;
}
