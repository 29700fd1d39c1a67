// Spin, then sleep: how two threads that hand work to each other wait.
//
// A round trip is two hand-offs, the request to the serving thread and the
// reply back. When the waiting side sleeps, each hand-off costs a wake-up
// across cores (several to tens of microseconds), far more than a small
// command itself. So a waiter first checks, for a short bounded time, whether
// the other side has come, and only then sleeps in its ordinary blocking wait.
// In a burst of commands both sides stay awake and a hand-off costs what two
// cores need to see each other's writes.
//
// Spinning helps only while each spinner has a core of its own. When more
// threads want to run than there are cores, a spinner holds back the thread
// it waits for, or others, and a fair scheduler charges it the time it burnt
// by waking it later afterwards. So a side spins only while the kernel's
// count of threads that want to run (sampled at most once a millisecond) is
// no more than the cores; with one thread more than the cores it spins
// giving its core away between checks (a round trip between processes has
// three threads: the host's caller, the worker's server and the Python
// thread, and a thread that yields lets the one it waits for run at once
// where two of them share a core, which costs a switch, not a wake-up).
// With more than that, it sleeps. A yield that gave the core to another
// program's busy thread costs a time slice; so while a side keeps losing its
// core (again within a second) a yielding catch does not shorten the pause. A side whose spin found
// it was off its core all the same (the clock jumped), or ended without the other side while the
// other side was awake (busy with a long command, say), sleeps at once for
// 1 ms, doubled with every further such spin up to 64 ms and back to 1 ms
// after a spin that caught the other side. A spin that waited for a sleeping
// other side to wake up proves nothing and changes nothing.
//
// The one policy serves the library's queue and the connection between the
// host's client and the worker process. Each side counts its sleepers in a
// word that the other side reads; across processes the two words live in
// the shared segment, where they also tell a sender whether the receiver
// must be woken.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

namespace foundation::msg_svc::threadutil {

class SpinWait {
  public:
    using Clock = std::chrono::steady_clock;
    using Counter = std::atomic<std::int32_t>;
    static_assert(Counter::is_always_lock_free, "the counters may live in shared memory");

    // `asleep` counts this side's sleepers; `otherAsleep` is the same count
    // of the side that this one waits for.
    SpinWait(std::chrono::nanoseconds limit, Counter& asleep, const Counter& otherAsleep)
        : limit_(limit), asleep_(asleep), otherAsleep_(otherAsleep) {}
    SpinWait(const SpinWait&) = delete;
    SpinWait& operator=(const SpinWait&) = delete;

    // Returns once ready() is true: checks it for at most the spin limit,
    // then calls sleep(), a blocking wait that returns once ready() is true
    // (or whatever else ends the wait). While sleep() runs, this side's
    // sleeper count is raised; it is raised before sleep() looks at ready()
    // again, so a waker that publishes first and reads the count after sees
    // either the sleeper or a ready() that sleep() sees.
    template <class Ready, class Sleep>
    void wait(Ready&& ready, Sleep&& sleep) {
        if (spin(ready)) {
            return;
        }
        asleep_.fetch_add(1, std::memory_order_seq_cst);
        sleep();
        asleep_.fetch_sub(1, std::memory_order_seq_cst);
    }

    // True when this side has a sleeper that a waker must wake.
    bool anyAsleep() const { return asleep_.load(std::memory_order_seq_cst) != 0; }

    // The spin alone: true once ready() is true, false when the spin ends
    // without it.
    template <class Ready>
    bool spin(Ready& ready) {
        if (ready()) {
            return true;
        }
        if (limit_ <= std::chrono::nanoseconds::zero()) {
            return false;
        }
        const Clock::time_point start = Clock::now();
        const Spin how = howToSpin(start);
        if (how == Spin::No) {
            return false;
        }
        const bool otherAwake = otherAsleep_.load(std::memory_order_relaxed) == 0;
        Clock::time_point last = start;
        for (;;) {
            if (how == Spin::Yield) {
                yieldCore();
            } else {
                cpuPause();
            }
            if (ready()) {
                caught(how, start);
                return true;
            }
            const Clock::time_point now = Clock::now();
            if (now - last > kDescheduledGap) {
                missed(now, true);
                return ready();
            }
            if (now - start >= limit_) {
                if (otherAwake) {
                    missed(now, false);
                }
                return false;
            }
            last = now;
        }
    }

  private:
    // A gap this long between two checks means the spinner was off its core.
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

    enum class Spin { No, Pause, Yield };
    Spin howToSpin(Clock::time_point now) const;
    static void yieldCore();
    void caught(Spin how, Clock::time_point now);
    void missed(Clock::time_point now, bool descheduled);

    const std::chrono::nanoseconds limit_;
    Counter& asleep_;                                         // threads of this side in sleep()
    const Counter& otherAsleep_;                              // the same of the other side
    std::atomic<Clock::rep> sleepUntil_{0};                   // this side spins again from then on
    std::atomic<Clock::rep> nextPause_{kFirstPause.count()};  // after the next miss
    std::atomic<Clock::rep> lastDescheduled_{0};              // when a spin last lost its core
};

}  // namespace foundation::msg_svc::threadutil
