#include "foundation/msg_svc/spin_wait.h"

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace foundation::msg_svc::threadutil {

namespace {

SpinWait::Clock::rep ticks(SpinWait::Clock::time_point when) {
    return when.time_since_epoch().count();
}

// How many more threads want to run than there are cores: the fourth field
// of /proc/loadavg, "running/total", counts the threads that run or wait for
// a core on the whole machine, spinners included. Read at most once a
// millisecond, by whichever spinner comes first; where there is no such
// file, the spinners' own clock is the only judge.
class Crowding {
  public:
    long excess(SpinWait::Clock::time_point now) {
        SpinWait::Clock::rep due = nextSample_.load(std::memory_order_relaxed);
        if (ticks(now) >= due && file_ >= 0 &&
            nextSample_.compare_exchange_strong(due, ticks(now + kSampleEvery),
                                                std::memory_order_relaxed)) {
            excess_.store(runnable() - cores_, std::memory_order_relaxed);
        }
        return excess_.load(std::memory_order_relaxed);
    }

  private:
    static constexpr std::chrono::milliseconds kSampleEvery{1};

    long runnable() const {
        char text[128];
        const ssize_t length = ::pread(file_, text, sizeof text - 1, 0);
        if (length <= 0) {
            return 0;
        }
        text[length] = '\0';
        const char* field = text;
        for (int skip = 0; skip < 3 && field != nullptr; ++skip) {
            field = std::strchr(field, ' ');
            field = field != nullptr ? field + 1 : nullptr;
        }
        return field != nullptr ? std::strtol(field, nullptr, 10) : 0;
    }

    const int file_ = ::open("/proc/loadavg", O_RDONLY | O_CLOEXEC);
    const long cores_ = std::thread::hardware_concurrency();
    std::atomic<SpinWait::Clock::rep> nextSample_{0};
    std::atomic<long> excess_{0};
};

Crowding& crowding() {
    static auto* const instance = new Crowding;  // never destroyed: spinners may outlive exit
    return *instance;
}

}  // namespace

SpinWait::Spin SpinWait::howToSpin(Clock::time_point now) const {
    static const bool severalCores = std::thread::hardware_concurrency() > 1;
    if (!severalCores || ticks(now) < sleepUntil_.load(std::memory_order_relaxed)) {
        return Spin::No;
    }
    const long excess = crowding().excess(now);
    return excess <= 0 ? Spin::Pause : excess == 1 ? Spin::Yield : Spin::No;
}

void SpinWait::yieldCore() {
    ::sched_yield();
}

void SpinWait::caught(Spin how, Clock::time_point now) {
    // Read first: in a burst this runs on every round trip, and a store each
    // time would take the cache line from the other callers' cores.
    if (nextPause_.load(std::memory_order_relaxed) == kFirstPause.count()) {
        return;
    }
    constexpr Clock::duration kMissesKept = std::chrono::seconds(1);
    if (how == Spin::Pause ||
        ticks(now) - lastDescheduled_.load(std::memory_order_relaxed) > kMissesKept.count()) {
        nextPause_.store(kFirstPause.count(), std::memory_order_relaxed);
    }
}

void SpinWait::missed(Clock::time_point now, bool descheduled) {
    if (descheduled) {
        lastDescheduled_.store(ticks(now), std::memory_order_relaxed);
    }
    const Clock::rep pause = nextPause_.load(std::memory_order_relaxed);
    sleepUntil_.store(ticks(now) + pause, std::memory_order_relaxed);
    nextPause_.store(std::min(2 * pause, kLongestPause.count()), std::memory_order_relaxed);
}

}  // namespace foundation::msg_svc::threadutil
