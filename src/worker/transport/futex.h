// Sleeping on a 32-bit word that two processes share.
#pragma once

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <optional>

namespace vxpy::transport {

using FutexWord = std::atomic<std::uint32_t>;
static_assert(sizeof(FutexWord) == 4 && FutexWord::is_always_lock_free);

// Sleeps while the word still holds `seen`, at most `timeout` when given.
// Returns early on a wake, a signal or a spurious wake-up: callers re-check.
// Not the private variant: the word lives in memory mapped by two processes.
inline void futexWait(FutexWord& word, std::uint32_t seen,
                      const std::chrono::nanoseconds* timeout = nullptr) {
    timespec limit{};
    if (timeout != nullptr) {
        limit.tv_sec = static_cast<time_t>(timeout->count() / 1'000'000'000);
        limit.tv_nsec = static_cast<long>(timeout->count() % 1'000'000'000);
    }
    ::syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&word), FUTEX_WAIT, seen,
              timeout != nullptr ? &limit : nullptr, nullptr, 0);
}

// Changes the word and wakes every sleeper on it.
inline void futexWakeAll(FutexWord& word) {
    word.fetch_add(1, std::memory_order_seq_cst);
    ::syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&word), FUTEX_WAKE, INT32_MAX, nullptr,
              nullptr, 0);
}

// Wakes the sleepers of `wake` when `sleepers` says there are any. The
// waker publishes, then reads the count; a sleeper raises its count, then
// looks at what is published (SpinWait::wait, then sleepOn). All four are
// sequentially consistent, so one of the two sees the other.
template <class Count>
void wakeIfAsleep(const std::atomic<Count>& sleepers, FutexWord& wake) {
    if (sleepers.load(std::memory_order_seq_cst) != 0) {
        futexWakeAll(wake);
    }
}

// Sleeps on `wake` until `ready()`, or until the deadline when one is given.
template <class Ready>
void sleepOn(FutexWord& wake, Ready& ready,
             std::optional<std::chrono::steady_clock::time_point> deadline = std::nullopt) {
    for (;;) {
        const std::uint32_t seen = wake.load(std::memory_order_seq_cst);
        if (ready()) {
            return;
        }
        if (!deadline) {
            futexWait(wake, seen);
            continue;
        }
        const std::chrono::nanoseconds left = *deadline - std::chrono::steady_clock::now();
        if (left <= std::chrono::nanoseconds::zero()) {
            return;
        }
        futexWait(wake, seen, &left);
    }
}

}  // namespace vxpy::transport
