#include "transport/channel.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>

#include "transport/buffer_exchange.h"
#include "transport/ring.h"

namespace vxpy::transport {

namespace vd = foundation::veltradata;
using std::chrono::microseconds;

namespace {

// Spin limits, chosen as the library's own (hand_off_waits.cpp): a side
// waiting for an answer covers a short command; the worker waiting for the
// next request covers the host's turnaround.
constexpr microseconds kAnswerSpin{50};
constexpr microseconds kRequestSpin{100};
constexpr microseconds kRoomSpin{50};

bool pollFor(int fd, short events, int timeoutMs) {
    pollfd ready{fd, events, 0};
    int result;
    do {
        result = ::poll(&ready, 1, timeoutMs);
    } while (result < 0 && errno == EINTR);
    return result > 0;
}

// Announces a print before it is written: a client with no call waiting
// wakes and reads until it has shown as many prints as were announced, so a
// print larger than the connection holds at once is read while it is written.
void raise(int nudge) {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(nudge, &one, sizeof one);
}

int millisecondsUntil(Channel::Clock::time_point deadline) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - Channel::Clock::now());
    return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, INT32_MAX));
}

// The socket alone. In the worker one thread reads requests while another
// may wait for a print's acknowledgement: whoever needs a frame reads one,
// under the reader mutex, and a frame that is not its own is kept for the
// other (requests in the backlog, acknowledgements in a counter).
class SocketChannel : public Channel {
  public:
    SocketChannel(int fd, int nudge) : fd_(fd), nudge_(nudge), stream_(fd) {}
    ~SocketChannel() override { ::close(nudge_); }

    wire::BlockExchange* exchange() override { return nullptr; }

    void send(const wire::OutFrame& frame) override {
        std::lock_guard<std::mutex> lock(sendMutex_);
        wire::sendFrame(stream_, frame);
    }

    wire::Frame receive() override {
        for (;;) {
            std::unique_lock<std::mutex> reader(readerMutex_);
            if (std::optional<wire::Frame> kept = fromBacklog()) {
                return std::move(*kept);
            }
            wire::Frame frame = wire::receiveFrame(stream_);
            reader.unlock();
            // Taken after the reader mutex is free, so that a printer that
            // found it held is waiting by now and hears the change.
            std::lock_guard<std::mutex> state(stateMutex_);
            changed_.notify_all();
            if (frame.kind != wire::FrameKind::PrintDone) {
                return frame;
            }
            acknowledged_ = std::max(acknowledged_, frame.id);
        }
    }

    bool readable() override {
        {
            std::lock_guard<std::mutex> state(stateMutex_);
            if (!backlog_.empty()) {
                return true;
            }
        }
        return pollFor(fd_, POLLIN, 0);
    }

    bool await(Clock::time_point deadline) override {
        return readable() || pollFor(fd_, POLLIN, millisecondsUntil(deadline));
    }

    void close() override {
        ::shutdown(fd_, SHUT_RDWR);
        std::lock_guard<std::mutex> state(stateMutex_);
        closed_ = true;
        changed_.notify_all();
    }

    void acknowledgePrint(std::uint64_t id) override { send(wire::printDoneFrame(id)); }

    void print(std::uint64_t id, const std::u16string& text) override {
        std::vector<vd::Array> holder;
        raise(nudge_);
        send(wire::printFrame(id, text, holder));
        std::unique_lock<std::mutex> state(stateMutex_);
        while (acknowledged_ < id) {
            if (closed_) {
                throw wire::ConnectionClosed("the connection was closed");
            }
            if (!readerMutex_.try_lock()) {
                changed_.wait(state);  // the reader hears the acknowledgement
                continue;
            }
            std::lock_guard<std::mutex> reader(readerMutex_, std::adopt_lock);
            state.unlock();
            wire::Frame frame = wire::receiveFrame(stream_);
            state.lock();
            if (frame.kind == wire::FrameKind::PrintDone) {
                acknowledged_ = std::max(acknowledged_, frame.id);
            } else {
                backlog_.push_back(std::move(frame));
            }
            changed_.notify_all();
        }
    }

  private:
    std::optional<wire::Frame> fromBacklog() {
        std::lock_guard<std::mutex> state(stateMutex_);
        if (backlog_.empty()) {
            return std::nullopt;
        }
        wire::Frame frame = std::move(backlog_.front());
        backlog_.pop_front();
        return frame;
    }

    const int fd_;
    const int nudge_;
    wire::SocketStream stream_;
    std::mutex sendMutex_;
    std::mutex readerMutex_;
    std::mutex stateMutex_;  // guards what follows
    std::condition_variable changed_;
    std::deque<wire::Frame> backlog_;
    std::uint64_t acknowledged_ = 0;
    bool closed_ = false;
};

// Shared memory beside the socket.
class SharedMemoryChannel : public Channel {
  public:
    SharedMemoryChannel(int socket, Segment segment, int nudge, Side side)
        : segment_(std::move(segment)),
          nudge_(nudge),
          exchange_(socket),
          rings_(makeRings(segment_, side, socket)),
          printWait_(kAnswerSpin, segment_.control().prints.sleepers,
                     segment_.control().replies.readerSleepers) {}

    ~SharedMemoryChannel() override {
        exchange_.end();
        ::close(nudge_);
    }

    wire::BlockExchange* exchange() override { return &exchange_; }

    void send(const wire::OutFrame& frame) override {
        std::lock_guard<std::mutex> lock(sendMutex_);
        std::vector<std::uint64_t> loans;
        std::vector<std::uint64_t> chunks;
        if (exchange_.takeNotice(loans, chunks)) {
            wire::sendFrame(rings_, wire::noticeFrame(loans, chunks));
        }
        wire::sendFrame(rings_, frame);
    }

    wire::Frame receive() override {
        for (;;) {
            wire::Frame frame = wire::receiveFrame(rings_, &exchange_);
            if (frame.kind != wire::FrameKind::Notice) {
                return frame;
            }
            exchange_.noticed(frame.loans, frame.chunks);
        }
    }

    bool readable() override { return rings_.readable(); }

    bool await(Clock::time_point deadline) override { return rings_.awaitBytes(deadline); }

    void close() override {
        rings_.close();
        futexWakeAll(segment_.control().prints.wake);
        exchange_.end();
    }

    void acknowledgePrint(std::uint64_t id) override {
        PrintControl& prints = segment_.control().prints;
        prints.acknowledged.store(id, std::memory_order_seq_cst);
        wakeIfAsleep(prints.sleepers, prints.wake);
    }

    void print(std::uint64_t id, const std::u16string& text) override {
        std::vector<vd::Array> holder;
        raise(nudge_);
        send(wire::printFrame(id, text, holder));
        PrintControl& prints = segment_.control().prints;
        auto ready = [&] {
            return rings_.closed() || prints.acknowledged.load(std::memory_order_seq_cst) >= id;
        };
        printWait_.wait(ready, [&] { rings_.sleep(prints.wake, ready); });
        if (rings_.closed()) {
            throw wire::ConnectionClosed("the connection was closed");
        }
    }

  private:
    static RingStream makeRings(const Segment& segment, Side side, int socket) {
        Control& control = segment.control();
        if (side == Side::Client) {
            return RingStream(&control.replies, segment.replyBytes(), &control.requests,
                              segment.requestBytes(), segment.ringBytes(),
                              control.requests.readerSleepers, {kAnswerSpin, kRoomSpin}, socket);
        }
        return RingStream(&control.requests, segment.requestBytes(), &control.replies,
                          segment.replyBytes(), segment.ringBytes(), control.replies.readerSleepers,
                          {kRequestSpin, kRoomSpin}, socket);
    }

    Segment segment_;
    const int nudge_;
    BufferExchange exchange_;
    RingStream rings_;
    SpinWait printWait_;
    std::mutex sendMutex_;
};

}  // namespace

std::unique_ptr<Channel> socketChannel(int fd, int nudge) {
    return std::make_unique<SocketChannel>(fd, nudge);
}

std::unique_ptr<Channel> sharedMemoryChannel(int socket, Segment segment, int nudge, Side side) {
    return std::make_unique<SharedMemoryChannel>(socket, std::move(segment), nudge, side);
}

}  // namespace vxpy::transport
