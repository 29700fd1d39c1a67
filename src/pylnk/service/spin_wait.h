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
//     spinBriefly(kReplySpinLimit, [&] { return isReady(future); });
//     future.get();  // returns at once when the spin saw the reply
//
// Spinning helps only while each spinner has a core of its own; when more
// threads want to run than there are cores, a spinner holds back the very
// thread it waits for. So every waiter of the process sleeps at once for a
// while after a spin that ended without the other side: after a miss for a
// short while that grows as misses follow each other, and after a spin that
// found it had lost its core (the clock jumped) for the longest while. A
// spin that catches the other side makes the next pause short again. A
// machine with one core never spins.
#pragma once

#include <chrono>

namespace pylnk {

using SpinClock = std::chrono::steady_clock;

// How long each side checks before it sleeps, both zero in a build with the
// CMake option VX_SPIN_WAIT off (the sleeping hand-offs, kept measurable).
// Defined in spin_wait.cpp, the only file that the option changes.
extern const std::chrono::nanoseconds kRequestSpinLimit;  // the Python thread, for the next request
extern const std::chrono::nanoseconds kReplySpinLimit;    // a caller, for its reply

namespace spin_detail {

// A gap this long between two checks means the spinner was not running.
inline constexpr std::chrono::microseconds kDescheduledGap{20};

// False while every waiter should sleep at once (see above).
bool spinningPays(SpinClock::time_point now);
// How a spin ended, for the pause of the next ones.
void caught();
void missed(SpinClock::time_point now);
void lostTheCore(SpinClock::time_point now);

inline void cpuPause() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
}

}  // namespace spin_detail

// Checks ready() again and again, with a CPU pause between checks, for at
// most `limit`, and returns its last answer. The caller then sleeps in its
// blocking wait if the answer was false. With a zero limit, or while
// spinning does not pay, ready() is asked once.
template <class Ready>
bool spinBriefly(std::chrono::nanoseconds limit, Ready&& ready) {
    if (ready()) {
        return true;
    }
    if (limit <= std::chrono::nanoseconds::zero()) {
        return false;
    }
    SpinClock::time_point last = SpinClock::now();
    if (!spin_detail::spinningPays(last)) {
        return false;
    }
    const SpinClock::time_point end = last + limit;
    for (;;) {
        spin_detail::cpuPause();
        if (ready()) {
            spin_detail::caught();
            return true;
        }
        const SpinClock::time_point now = SpinClock::now();
        if (now - last > spin_detail::kDescheduledGap) {
            spin_detail::lostTheCore(now);
            return ready();
        }
        if (now >= end) {
            spin_detail::missed(now);
            return false;
        }
        last = now;
    }
}

}  // namespace pylnk
