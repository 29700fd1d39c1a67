#include "service/spin_wait.h"

#include <algorithm>
#include <atomic>
#include <thread>

namespace pylnk {

#if VX_SPIN_WAIT
// From bench_roundtrip on two cores. A small command takes a few
// microseconds from push to reply, so the caller's 30 cover it with room to
// spare, while a longer command costs the caller at most 30 wasted. Between
// two commands of a burst the Python thread waits for whatever the host does
// with the reply: about a microsecond in process, a socket round trip (some
// tens) when the host is another process, which its 50 cover. Idle, both
// sides sleep after at most that long.
const std::chrono::nanoseconds kRequestSpinLimit = std::chrono::microseconds(50);
const std::chrono::nanoseconds kReplySpinLimit = std::chrono::microseconds(30);
#else
const std::chrono::nanoseconds kRequestSpinLimit{0};
const std::chrono::nanoseconds kReplySpinLimit{0};
#endif

namespace spin_detail {

namespace {

// The pause after a miss: the first, doubled with every further miss up to
// the longest. A miss costs at most a spin limit, so the first pause keeps
// the cost of misses on a crowded machine to a few percent.
constexpr SpinClock::rep kFirstPause =
    std::chrono::duration_cast<SpinClock::duration>(std::chrono::milliseconds(1)).count();
constexpr SpinClock::rep kLongestPause =
    std::chrono::duration_cast<SpinClock::duration>(std::chrono::milliseconds(64)).count();

constinit std::atomic<SpinClock::rep> sleepEarlyUntil{0};
constinit std::atomic<SpinClock::rep> nextPause{kFirstPause};

SpinClock::rep ticks(SpinClock::time_point when) {
    return when.time_since_epoch().count();
}

}  // namespace

bool spinningPays(SpinClock::time_point now) {
    static const bool severalCores = std::thread::hardware_concurrency() > 1;
    return severalCores && ticks(now) >= sleepEarlyUntil.load(std::memory_order_relaxed);
}

void caught() {
    // Read first: in a burst both sides pass here, and a store each time
    // would move the cache line between their cores.
    if (nextPause.load(std::memory_order_relaxed) != kFirstPause) {
        nextPause.store(kFirstPause, std::memory_order_relaxed);
    }
}

void missed(SpinClock::time_point now) {
    const SpinClock::rep pause = nextPause.load(std::memory_order_relaxed);
    sleepEarlyUntil.store(ticks(now) + pause, std::memory_order_relaxed);
    nextPause.store(std::min(2 * pause, kLongestPause), std::memory_order_relaxed);
}

void lostTheCore(SpinClock::time_point now) {
    sleepEarlyUntil.store(ticks(now) + kLongestPause, std::memory_order_relaxed);
    nextPause.store(kLongestPause, std::memory_order_relaxed);
}

}  // namespace spin_detail

}  // namespace pylnk
