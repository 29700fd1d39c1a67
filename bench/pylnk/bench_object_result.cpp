// The reply that every call of a Python function from the host gets: the
// object result of pyInvokeFast of a function returning a float, its class
// already described once, against Ping in the same run. Both are sent
// through feval_dispatcher with arrays made once, so that the caller adds
// nothing of its own; blocks of the two take turns, and the figures are
// medians over the blocks: the time per call of a block, and the median of
// its single calls (which leaves out the calls that found the other side
// asleep). pyInvoke of the same function, whose reply is the address alone,
// shows what the call itself costs. Heap allocations are counted by
// replacing the global operator new of the process (the library's included;
// the interpreter allocates with malloc and is not counted).
//   bench_object_result [blocks]      (default 15)
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "service/feval_dispatcher.h"
#include "support/session.h"

namespace {

std::atomic<long long> allocations{0};

void* counted(std::size_t size, std::size_t alignment = 0) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    size = size == 0 ? 1 : size;
    void* block =
        alignment > alignof(std::max_align_t)
            ? std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment)
            : std::malloc(size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

}  // namespace

void* operator new(std::size_t size) {
    return counted(size);
}
void* operator new[](std::size_t size) {
    return counted(size);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return counted(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
    return counted(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return counted(size);
    } catch (...) {
        return nullptr;
    }
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return counted(size);
    } catch (...) {
        return nullptr;
    }
}
void operator delete(void* block) noexcept {
    std::free(block);
}
void operator delete[](void* block) noexcept {
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}
void operator delete[](void* block, std::size_t) noexcept {
    std::free(block);
}
void operator delete(void* block, std::align_val_t) noexcept {
    std::free(block);
}
void operator delete[](void* block, std::align_val_t) noexcept {
    std::free(block);
}
void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
    std::free(block);
}
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept {
    std::free(block);
}

namespace {

namespace vd = foundation::veltradata;
using Clock = std::chrono::steady_clock;
using interprocess::pylnk::server::libpylnk::feval_dispatcher;

constexpr int kCallsPerBlock = 20'000;

struct Figures {
    double micros = 0;        // per call, over the block
    double medianMicros = 0;  // of the single calls of the block
    double allocations = 0;   // per call
};

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// One block of calls of one command with the same arguments.
Figures block(const std::string& name, std::vector<vd::Array>& arguments) {
    vd::Array reply[1];
    static std::vector<double> single(kCallsPerBlock);  // made before counting
    const long long before = allocations.load();
    const auto start = Clock::now();
    auto last = start;
    for (int i = 0; i < kCallsPerBlock; ++i) {
        feval_dispatcher(name, 1, reply, arguments.size(), arguments.data());
        const auto now = Clock::now();
        single[i] = std::chrono::duration<double, std::micro>(now - last).count();
        last = now;
    }
    const long long made = allocations.load() - before;
    const double elapsed = std::chrono::duration<double, std::micro>(last - start).count();
    return {elapsed / kCallsPerBlock, median(single), static_cast<double>(made) / kCallsPerBlock};
}

double loadAverage() {
    double load = -1;
    if (std::FILE* file = std::fopen("/proc/loadavg", "r")) {
        if (std::fscanf(file, "%lf", &load) != 1) {
            load = -1;
        }
        std::fclose(file);
    }
    return load;
}

}  // namespace

int main(int argc, char** argv) {
    const int blocks = argc > 1 ? std::max(1, std::atoi(argv[1])) : 15;
    vxtest::startSystemPython();
    vxtest::exec("def half(): return 0.5");
    std::vector<vd::Array> ping;
    std::vector<vd::Array> invoke = {vxtest::addressArray(vxtest::eval("half")),
                                     vxtest::addressArray(vxtest::tupleOf({}))};
    // The first call describes float whole; every later one finds it cached.
    block("pyInvokeFast", invoke);
    block("Ping", ping);

    std::printf("load average before: %.2f\n", loadAverage());
    std::vector<double> pingMicros, callMicros, fastMicros, pingAllocations, fastAllocations;
    std::vector<double> pingSingle, callSingle, fastSingle;
    for (int i = 0; i < blocks; ++i) {
        const Figures p = block("Ping", ping);
        const Figures c = block("pyInvoke", invoke);
        const Figures f = block("pyInvokeFast", invoke);
        pingMicros.push_back(p.micros);
        callMicros.push_back(c.micros);
        fastMicros.push_back(f.micros);
        pingSingle.push_back(p.medianMicros);
        callSingle.push_back(c.medianMicros);
        fastSingle.push_back(f.medianMicros);
        pingAllocations.push_back(p.allocations);
        fastAllocations.push_back(f.allocations);
    }
    std::printf("load average after: %.2f\n", loadAverage());
    const double pingNew = median(pingAllocations);
    const double fastNew = median(fastAllocations);
    std::printf("%-40s %13s %13s %12s\n", "", "us/call", "median call", "new/call");
    std::printf("%-40s %13.2f %13.2f %12.1f\n", "Ping", median(pingMicros), median(pingSingle),
                pingNew);
    std::printf("%-40s %13.2f %13.2f\n", "pyInvoke of half() (the address alone)",
                median(callMicros), median(callSingle));
    std::printf("%-40s %13.2f %13.2f %12.1f\n", "pyInvokeFast of half() -> 0.5", median(fastMicros),
                median(fastSingle), fastNew);
    std::printf(
        "pyInvokeFast/Ping: %.2f times (median call %.2f; at most 2), allocations beyond Ping: "
        "%.1f (at most 4)\n",
        median(fastMicros) / median(pingMicros), median(fastSingle) / median(pingSingle),
        fastNew - pingNew);
    vxtest::call("pyClose");
    return 0;
}
