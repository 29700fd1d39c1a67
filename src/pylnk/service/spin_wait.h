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
//     replyWait().spin([&] { return isReady(future); });
//     future.get();  // returns at once when the spin saw the reply
//
// Spinning helps only while each spinner has a core of its own; when more
// threads want to run than there are cores, a spinner holds back the very
// thread it waits for. So a side whose spin ended without the other side
// sleeps at once for a while: 1 ms after a miss, doubled with every further
// miss up to 64 ms, and back to 1 ms after a spin that caught the other
// side. A spinner that finds it lost its core in the middle of the spin (the
// clock jumped) makes both sides sleep at once for 64 ms. A machine with one
// core never spins.
#pragma once

#include <atomic>
#include <chrono>

namespace pylnk {

class SpinWait {
  public:
    using Clock = std::chrono::steady_clock;

    explicit SpinWait(std::chrono::nanoseconds limit) : limit_(limit) {}
    SpinWait(const SpinWait&) = delete;
    SpinWait& operator=(const SpinWait&) = delete;

    // Checks ready() again and again, with a CPU pause between checks, for
    // at most the limit, and returns its last answer; the caller then sleeps
    // in its blocking wait if that was false. With a zero limit, or while
    // this side sleeps at once, ready() is asked once.
    template <class Ready>
    bool spin(Ready&& ready) {
        if (ready()) {
            return true;
        }
        if (limit_ <= std::chrono::nanoseconds::zero()) {
            return false;
        }
        Clock::time_point last = Clock::now();
        if (!spinningPays(last)) {
            return false;
        }
        const Clock::time_point end = last + limit_;
        for (;;) {
            cpuPause();
            if (ready()) {
                caught();
                return true;
            }
            const Clock::time_point now = Clock::now();
            if (now - last > kDescheduledGap) {
                lostTheCore(now);
                return ready();
            }
            if (now >= end) {
                missed(now);
                return false;
            }
            last = now;
        }
    }

  private:
    // A gap this long between two checks means the spinner was not running.
    static constexpr std::chrono::microseconds kDescheduledGap{20};
    // How long a side sleeps at once after a miss, at first and at most.
    static constexpr Clock::duration kFirstPause = std::chrono::milliseconds(1);
    static constexpr Clock::duration kLongestPause = std::chrono::milliseconds(64);

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
    static void lostTheCore(Clock::time_point now);

    const std::chrono::nanoseconds limit_;
    std::atomic<Clock::rep> sleepUntil_{0};                   // this side spins again from then on
    std::atomic<Clock::rep> nextPause_{kFirstPause.count()};  // after the next miss
};

// The Python thread waiting for the next request, and a caller waiting for
// its reply. Their limits are set in spin_wait.cpp, the only file that the
// CMake option VX_SPIN_WAIT changes (off: both zero, the sleeping hand-offs
// kept measurable).
SpinWait& requestWait();
SpinWait& replyWait();

}  // namespace pylnk
