// One direction of the shared segment as a byte stream: a single-producer,
// single-consumer ring. The writer copies bytes in and publishes how many it
// has written in all; the reader copies them out and publishes how many it
// has taken. A side that finds nothing to do (no bytes, no room) waits by
// the platform's one policy: it spins while that pays, then sleeps on a
// futex word in the segment, after saying so in its sleeper count; the other
// side wakes the word only when that count says someone sleeps.
//
// The other side's position is a claim: a reader that is told of more bytes
// than the ring holds, or a writer that is told of room it never gave, ends
// the connection (WireError) rather than read or write outside the ring.
// close() ends every wait of this side at once (ConnectionClosed), whatever
// the other side does or fails to do.
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <optional>
#include <span>

#include "transport/segment.h"
#include "wire/wire_codec.h"

namespace vxpy::transport {

class RingStream : public wire::ByteStream {
  public:
    using Clock = std::chrono::steady_clock;

    struct Waits {
        std::chrono::nanoseconds reader;  // spin limit of a reader waiting for bytes
        std::chrono::nanoseconds writer;  // spin limit of a writer waiting for room
    };

    // `reads` and `writes` may both be given (the two directions of one side)
    // or one of them; `otherSide` counts the sleepers of the thread that
    // fills what this side's reader waits for. A side that sleeps looks at
    // `peerSocket` every kLivenessCheck for the other side's end, so that a
    // peer that died in the middle of a frame never leaves it waiting (-1:
    // no such check).
    RingStream(RingControl* reads, std::byte* readBytes, RingControl* writes, std::byte* writeBytes,
               std::size_t capacity, const SpinWait::Counter& otherSide, Waits waits,
               int peerSocket = -1);

    static constexpr std::chrono::milliseconds kLivenessCheck{50};

    // wire::ByteStream
    void read(void* out, std::size_t size, bool atStart) override;
    void write(std::span<const iovec> pieces) override;

    // True when at least one byte waits to be read; never blocks.
    bool readable() const;
    // Waits until a byte waits to be read, at most until `deadline`; false
    // when the deadline came first.
    bool awaitBytes(Clock::time_point deadline);

    // Ends every wait of this side, now and later.
    void close();
    bool closed() const { return closed_.load(std::memory_order_acquire); }

    // Sleeps on `wake` until ready(), the deadline, or the peer's end (which
    // closes this side).
    template <class Ready>
    void sleep(FutexWord& wake, Ready& ready,
               std::optional<Clock::time_point> deadline = std::nullopt) {
        for (;;) {
            const Clock::time_point slice = Clock::now() + kLivenessCheck;
            sleepOn(wake, ready, deadline ? std::min(*deadline, slice) : slice);
            if (ready() || (deadline && Clock::now() >= *deadline)) {
                return;
            }
            if (peerGone()) {
                close();
                return;
            }
        }
    }

  private:
    std::uint64_t available() const;  // checked
    std::uint64_t room() const;       // checked
    void waitForBytes(std::optional<Clock::time_point> deadline);
    void waitForRoom();
    void throwIfClosed() const;
    bool peerGone() const;

    RingControl* reads_;
    std::byte* readBytes_;
    RingControl* writes_;
    std::byte* writeBytes_;
    const std::size_t capacity_;
    const int peerSocket_;
    std::uint64_t taken_ = 0;    // this side's reading position
    std::uint64_t written_ = 0;  // this side's writing position
    std::optional<SpinWait> readerWait_;
    std::optional<SpinWait> writerWait_;
    std::atomic<bool> closed_{false};
};

}  // namespace vxpy::transport
