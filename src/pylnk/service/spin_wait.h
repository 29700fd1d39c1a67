// Spin, then sleep: how the callers and the Python thread wait for each other.
//
// A round trip of a command is two hand-offs, the request to the Python
// thread and the reply back. When the waiting side sleeps, each hand-off
// costs a wake-up across cores (several to tens of microseconds), far more
// than a small command itself. So a waiter first checks, for a short bounded
// time, whether the other side has come, and only then sleeps in its
// ordinary blocking wait. In a burst of commands both sides stay awake and a
// hand-off costs what two cores need to see each other's writes.
//
// Spinning helps only while each spinner has a core of its own. When more
// threads want to run than there are cores, a spinner holds back the thread
// it waits for, or others, and a fair scheduler charges it the time it burnt
// by waking it later afterwards. So a side spins only while the kernel's
// count of threads that want to run (sampled at most once a millisecond) is
// no more than the cores. A side whose spin found it was off its core all
// the same (the clock jumped), or ended without the other side while the
// other side was awake (busy with a long command, say), sleeps at once for
// 1 ms, doubled with every further such spin up to 64 ms and back to 1 ms
// after a spin that caught the other side. A spin that waited for a sleeping
// other side to wake up proves nothing and changes nothing.
#pragma once

#include <atomic>
#include <chrono>

namespace pylnk {

class SpinWait {
  public:
    using Clock = std::chrono::steady_clock;

    // `other` is the side that this one waits for.
    SpinWait(std::chrono::nanoseconds limit, const SpinWait& other)
        : limit_(limit), other_(other) {}
    SpinWait(const SpinWait&) = delete;
    SpinWait& operator=(const SpinWait&) = delete;

    // Returns once ready() is true: checks it for at most the spin limit,
    // then calls sleep(), a blocking wait that returns once ready() is true.
    template <class Ready, class Sleep>
    void wait(Ready&& ready, Sleep&& sleep) {
        if (spin(ready)) {
            return;
        }
        asleep_.fetch_add(1, std::memory_order_relaxed);
        sleep();
        asleep_.fetch_sub(1, std::memory_order_relaxed);
    }

  private:
    // A gap this long between two checks means the spinner was off its core.
    static constexpr std::chrono::microseconds kDescheduledGap{20};
    // How long a side sleeps at once after a miss, at first and at most.
    static constexpr Clock::duration kFirstPause = std::chrono::milliseconds(1);
    static constexpr Clock::duration kLongestPause = std::chrono::milliseconds(64);

    template <class Ready>
    bool spin(Ready& ready) {
        if (ready()) {
            return true;
        }
        if (limit_ <= std::chrono::nanoseconds::zero()) {
            return false;
        }
        const Clock::time_point start = Clock::now();
        if (!spinningPays(start)) {
            return false;
        }
        const bool otherAwake = other_.asleep_.load(std::memory_order_relaxed) == 0;
        Clock::time_point last = start;
        for (;;) {
            cpuPause();
            if (ready()) {
                caught();
                return true;
            }
            const Clock::time_point now = Clock::now();
            if (now - last > kDescheduledGap) {
                missed(now);
                return ready();
            }
            if (now - start >= limit_) {
                if (otherAwake) {
                    missed(now);
                }
                return false;
            }
            last = now;
        }
    }

    static void cpuPause() {
#if defined(__x86_64__) || defined(__i386__)
        __builtin_ia32_pause();
#elif defined(__aarch64__)
        asm volatile("yield");
#endif
    }

    bool spinningPays(Clock::time_point now) const;
    void caught();
    void missed(Clock::time_point now);

    const std::chrono::nanoseconds limit_;
    const SpinWait& other_;
    std::atomic<int> asleep_{0};                              // threads of this side in sleep()
    std::atomic<Clock::rep> sleepUntil_{0};                   // this side spins again from then on
    std::atomic<Clock::rep> nextPause_{kFirstPause.count()};  // after the next miss
};

// The Python thread waiting for the next request, and a caller waiting for
// its reply. Their spin limits are set in spin_wait.cpp, the only file that
// the CMake option VX_SPIN_WAIT changes (off: both zero, the sleeping
// hand-offs kept measurable).
SpinWait& requestWait();
SpinWait& replyWait();

}  // namespace pylnk
