#include "service/spin_wait.h"

#include <algorithm>
#include <thread>

namespace pylnk {

namespace {

#if VX_SPIN_WAIT
// From bench_roundtrip on two cores. A small command takes a few
// microseconds from push to reply, so the caller's 30 cover it with room to
// spare, while a longer command costs the caller at most 30 wasted. Between
// two commands of a burst the Python thread waits for whatever the host does
// with the reply: about a microsecond in process, a socket round trip (some
// tens) when the host is another process, which its 50 cover. Idle, both
// sides sleep after at most that long.
constexpr std::chrono::microseconds kRequestSpinLimit{50};
constexpr std::chrono::microseconds kReplySpinLimit{30};
#else
constexpr std::chrono::microseconds kRequestSpinLimit{0};
constexpr std::chrono::microseconds kReplySpinLimit{0};
#endif

// Until then both sides sleep at once: a spinner lost its core.
constinit std::atomic<SpinWait::Clock::rep> everyoneSleepsUntil{0};

SpinWait::Clock::rep ticks(SpinWait::Clock::time_point when) {
    return when.time_since_epoch().count();
}

}  // namespace

SpinWait& requestWait() {
    static auto* const wait = new SpinWait(kRequestSpinLimit);  // never destroyed, like the queue
    return *wait;
}

SpinWait& replyWait() {
    static auto* const wait = new SpinWait(kReplySpinLimit);
    return *wait;
}

bool SpinWait::spinningPays(Clock::time_point now) const {
    static const bool severalCores = std::thread::hardware_concurrency() > 1;
    return severalCores && ticks(now) >= sleepUntil_.load(std::memory_order_relaxed) &&
           ticks(now) >= everyoneSleepsUntil.load(std::memory_order_relaxed);
}

void SpinWait::caught() {
    // Read first: in a burst this runs on every round trip, and a store each
    // time would take the cache line from the other callers' cores.
    if (nextPause_.load(std::memory_order_relaxed) != kFirstPause.count()) {
        nextPause_.store(kFirstPause.count(), std::memory_order_relaxed);
    }
}

void SpinWait::missed(Clock::time_point now) {
    const Clock::rep pause = nextPause_.load(std::memory_order_relaxed);
    sleepUntil_.store(ticks(now) + pause, std::memory_order_relaxed);
    nextPause_.store(std::min(2 * pause, kLongestPause.count()), std::memory_order_relaxed);
}

void SpinWait::lostTheCore(Clock::time_point now) {
    everyoneSleepsUntil.store(ticks(now + kLongestPause), std::memory_order_relaxed);
}

}  // namespace pylnk
