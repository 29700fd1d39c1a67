#include "transport/ring.h"

#include <poll.h>

#include <algorithm>
#include <cstring>
#include <string>

namespace vxpy::transport {

namespace {

[[noreturn]] void badPosition(const char* what, std::uint64_t claimed, std::size_t capacity) {
    throw wire::WireError(std::string("the peer's ") + what + " (" + std::to_string(claimed) +
                          " bytes) does not fit a ring of " + std::to_string(capacity) + " bytes");
}

}  // namespace

RingStream::RingStream(RingControl* reads, std::byte* readBytes, RingControl* writes,
                       std::byte* writeBytes, std::size_t capacity,
                       const SpinWait::Counter& otherSide, Waits waits, int peerSocket)
    : reads_(reads),
      readBytes_(readBytes),
      writes_(writes),
      writeBytes_(writeBytes),
      capacity_(capacity),
      peerSocket_(peerSocket) {
    if (reads_ != nullptr) {
        taken_ = reads_->taken.load(std::memory_order_relaxed);
        readerWait_.emplace(waits.reader, reads_->readerSleepers, otherSide);
    }
    if (writes_ != nullptr) {
        written_ = writes_->written.load(std::memory_order_relaxed);
        writerWait_.emplace(waits.writer, writes_->writerSleepers, writes_->readerSleepers);
    }
}

std::uint64_t RingStream::available() const {
    const std::uint64_t written = reads_->written.load(std::memory_order_seq_cst);
    const std::uint64_t count = written - taken_;
    if (count > capacity_) {
        badPosition("write position", count, capacity_);
    }
    return count;
}

std::uint64_t RingStream::room() const {
    const std::uint64_t taken = writes_->taken.load(std::memory_order_seq_cst);
    const std::uint64_t used = written_ - taken;
    if (used > capacity_) {
        badPosition("read position", used, capacity_);
    }
    return capacity_ - used;
}

bool RingStream::readable() const {
    return !closed() && available() != 0;
}

void RingStream::throwIfClosed() const {
    if (closed()) {
        throw wire::ConnectionClosed("the connection was closed");
    }
}

void RingStream::waitForBytes(std::optional<Clock::time_point> deadline) {
    auto ready = [this] { return closed() || available() != 0; };
    readerWait_->wait(ready, [&] { sleep(reads_->readerWake, ready, deadline); });
}

bool RingStream::awaitBytes(Clock::time_point deadline) {
    waitForBytes(deadline);
    throwIfClosed();
    return available() != 0;
}

void RingStream::read(void* out, std::size_t size, bool) {
    auto* to = static_cast<std::byte*>(out);
    while (size > 0) {
        std::uint64_t count = available();
        if (count == 0) {
            waitForBytes(std::nullopt);
            throwIfClosed();
            continue;
        }
        count = std::min<std::uint64_t>(count, size);
        const std::size_t at = taken_ & (capacity_ - 1);
        const std::size_t first = std::min<std::size_t>(count, capacity_ - at);
        std::memcpy(to, readBytes_ + at, first);
        std::memcpy(to + first, readBytes_, count - first);
        taken_ += count;
        to += count;
        size -= count;
        reads_->taken.store(taken_, std::memory_order_seq_cst);
        wakeIfAsleep(reads_->writerSleepers, reads_->writerWake);
    }
}

void RingStream::waitForRoom() {
    auto ready = [this] { return closed() || room() != 0; };
    writerWait_->wait(ready, [&] { sleep(writes_->writerWake, ready); });
}

void RingStream::write(std::span<const iovec> pieces) {
    throwIfClosed();
    for (const iovec& piece : pieces) {
        const auto* from = static_cast<const std::byte*>(piece.iov_base);
        std::size_t size = piece.iov_len;
        while (size > 0) {
            std::uint64_t free = room();
            if (free == 0) {
                // Publish what is written so far, so that the reader drains it.
                writes_->written.store(written_, std::memory_order_seq_cst);
                wakeIfAsleep(writes_->readerSleepers, writes_->readerWake);
                waitForRoom();
                throwIfClosed();
                continue;
            }
            const std::uint64_t count = std::min<std::uint64_t>(free, size);
            const std::size_t at = written_ & (capacity_ - 1);
            const std::size_t first = std::min<std::size_t>(count, capacity_ - at);
            std::memcpy(writeBytes_ + at, from, first);
            std::memcpy(writeBytes_, from + first, count - first);
            written_ += count;
            from += count;
            size -= count;
        }
    }
    writes_->written.store(written_, std::memory_order_seq_cst);
    wakeIfAsleep(writes_->readerSleepers, writes_->readerWake);
}

bool RingStream::peerGone() const {
    if (peerSocket_ < 0) {
        return false;
    }
    pollfd socket{peerSocket_, POLLRDHUP, 0};
    return ::poll(&socket, 1, 0) > 0 && (socket.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0;
}

void RingStream::close() {
    closed_.store(true, std::memory_order_release);
    if (reads_ != nullptr) {
        futexWakeAll(reads_->readerWake);
    }
    if (writes_ != nullptr) {
        futexWakeAll(writes_->writerWake);
    }
}

}  // namespace vxpy::transport
