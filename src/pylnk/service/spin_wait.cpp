#include "service/spin_wait.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace pylnk {

namespace {

#if VX_SPIN_WAIT
// Measured on two cores (bench_roundtrip, bench_worker). A small command
// answers within about a microsecond of its push; waking a sleeping thread
// takes 5 to 45 µs here, by the machine's state. So a caller's 50 cover a
// small command even when the Python thread first has to wake up, and a
// longer command costs the caller at most 50 µs of spinning. Between two
// commands the Python thread waits for what the host does with the reply:
// about a microsecond in process; two socket hand-offs when the host is
// another process (a _TEST_ round trip, 11 to 30 µs, up to some 60 µs while
// wake-ups are slow), which its 100 cover. Idle, both sides sleep after at
// most that long.
constexpr std::chrono::microseconds kRequestSpinLimit{100};
constexpr std::chrono::microseconds kReplySpinLimit{50};
#else
constexpr std::chrono::microseconds kRequestSpinLimit{0};
constexpr std::chrono::microseconds kReplySpinLimit{0};
#endif

SpinWait::Clock::rep ticks(SpinWait::Clock::time_point when) {
    return when.time_since_epoch().count();
}

// Whether more threads want to run than there are cores: the fourth field of
// /proc/loadavg, "running/total", counts the threads that run or wait for a
// core on the whole machine, spinners included. Read at most once a
// millisecond, by whichever spinner comes first; where there is no such
// file, the spinners' own clock is the only judge.
class Crowding {
  public:
    bool crowded(SpinWait::Clock::time_point now) {
        SpinWait::Clock::rep due = nextSample_.load(std::memory_order_relaxed);
        if (ticks(now) >= due && file_ >= 0 &&
            nextSample_.compare_exchange_strong(due, ticks(now + kSampleEvery),
                                                std::memory_order_relaxed)) {
            crowded_.store(runnable() > cores_, std::memory_order_relaxed);
        }
        return crowded_.load(std::memory_order_relaxed);
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
    std::atomic<bool> crowded_{false};
};

Crowding& crowding() {
    static auto* const instance = new Crowding;  // never destroyed: spinners may outlive exit
    return *instance;
}

// Each side knows the other, to tell whether it was asleep.
struct HandOffWaits {
    SpinWait request{kRequestSpinLimit, reply};
    SpinWait reply{kReplySpinLimit, request};
};

HandOffWaits& handOffWaits() {
    static auto* const waits = new HandOffWaits;  // never destroyed, like the queue
    return *waits;
}

}  // namespace

SpinWait& requestWait() {
    return handOffWaits().request;
}

SpinWait& replyWait() {
    return handOffWaits().reply;
}

bool SpinWait::spinningPays(Clock::time_point now) const {
    static const bool severalCores = std::thread::hardware_concurrency() > 1;
    return severalCores && ticks(now) >= sleepUntil_.load(std::memory_order_relaxed) &&
           !crowding().crowded(now);
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

}  // namespace pylnk
