#include "connection.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "process.h"
#include "transport/descriptors.h"

namespace vxpy::detail {

namespace vd = foundation::veltradata;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

namespace {

constexpr milliseconds kGreetingTimeout{30000};

// Only a close waits for the call mutex with a limit: trying again each
// millisecond is precise enough for it, and keeps the mutex a plain one.
bool lockBefore(std::unique_lock<std::mutex>& lock, Clock::time_point deadline) {
    while (!lock.try_lock()) {
        if (Clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(milliseconds(1));
    }
    return true;
}

void writeToStandardOutput(std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

}  // namespace

Connection::Connection(const Options& options)
    : console_(options.console ? options.console : writeToStandardOutput),
      transport_(options.transport) {
    int pair[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) {
        throw Error(std::string("cannot make the connection to the worker: ") +
                    std::strerror(errno));
    }
    fd_ = pair[0];
    try {
        detail::SpawnOptions spawnOptions;
        spawnOptions.passAsFd3 = pair[1];
        spawnOptions.ownGroup = true;
        pid_ = detail::spawn({options.worker, "--fd", "3"}, spawnOptions);
    } catch (...) {
        ::close(pair[0]);
        ::close(pair[1]);
        throw;
    }
    ::close(pair[1]);
    try {
        greet(options.worker);
    } catch (...) {
        channel_.reset();
        ::close(fd_);
        throw;
    }
    watcher_ = std::thread([this] { watch(); });
}

void Connection::greet(const std::string& worker) {
    const std::string who = "the worker '" + worker + "' (pid " + std::to_string(pid_) + ")";
    pollfd ready{fd_, POLLIN, 0};
    if (::poll(&ready, 1, static_cast<int>(kGreetingTimeout.count())) == 0) {
        throw Error(who + " did not greet within " +
                    std::to_string(kGreetingTimeout.count() / 1000) + " s and " +
                    detail::reap(pid_, milliseconds(0)));
    }
    std::optional<transport::Segment> segment;
    const bool shared = transport_ == Transport::SharedMemory;
    if (shared) {
        try {
            segment.emplace(transport::Segment::create());
        } catch (const std::exception& error) {
            detail::reap(pid_, milliseconds(0));
            throw Error(std::string("shared memory cannot be had here (") + error.what() +
                        "); Options::transport = Transport::Socket connects without it");
        }
    }
    const int nudge = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (nudge < 0) {
        detail::reap(pid_, milliseconds(0));
        throw Error(std::string("cannot make an eventfd: ") + std::strerror(errno));
    }
    try {
        wire::SocketStream socket(fd_);
        const wire::Frame hello = wire::receiveFrame(socket);
        if (hello.kind != wire::FrameKind::Hello) {
            throw wire::WireError("its first frame is not a greeting");
        }
        wire::sendFrame(socket, wire::helloFrame(static_cast<std::uint64_t>(::getpid()),
                                                 shared ? wire::FrameFlags::kSharedMemory : 0));
        transport::PassedRecord record;
        record.what = static_cast<std::uint32_t>(shared ? transport::Passed::Segment
                                                        : transport::Passed::Nudge);
        std::vector<int> fds;
        if (shared) {
            fds.push_back(segment->fd());
        }
        fds.push_back(nudge);
        record.count = static_cast<std::uint32_t>(fds.size());
        if (!transport::passDescriptors(fd_, record, fds)) {
            throw wire::ConnectionClosed("the worker closed the connection");
        }
    } catch (const wire::ConnectionClosed&) {
        ::close(nudge);
        throw Error(who + " ended before it was ready: it " + detail::reap(pid_, kEndGrace));
    } catch (const wire::WireError& error) {
        ::close(nudge);
        throw Error(who + " cannot be used: " + error.what() + "; it " +
                    detail::reap(pid_, milliseconds(0)));
    }
    nudge_ = nudge;
    if (shared) {
        // Large buffers of this process go where the worker can map them.
        foundation::veltradata::shared_memory::enable();
        channel_ = transport::sharedMemoryChannel(fd_, std::move(*segment), nudge,
                                                  transport::Side::Client);
    } else {
        channel_ = transport::socketChannel(fd_, nudge);
    }
}

Reply Connection::call(const std::string& name, const Reply& args, std::size_t nlhs,
                       std::optional<milliseconds> limit) {
    if (nlhs > wire::kMaxOutputs) {
        throw Error("'" + name + "' asks for " + std::to_string(nlhs) + " outputs; at most " +
                    std::to_string(wire::kMaxOutputs) + " can be asked for");
    }
    const auto deadline = limit ? Clock::now() + *limit : Clock::time_point::max();
    std::unique_lock<std::mutex> calling(callMutex_, std::defer_lock);
    if (!limit) {
        calling.lock();
    } else if (!lockBefore(calling, deadline)) {
        throw Error("no answer to '" + name + "' within " + std::to_string(limit->count()) + " ms");
    }
    if (!alive()) {
        throwEnded();
    }
    const std::uint64_t id = nextId_.fetch_add(1);
    std::optional<wire::OutFrame> frame;
    try {
        frame.emplace(wire::requestFrame(id, name, nlhs, args, channel_->exchange()));
    } catch (const wire::WireError& error) {
        throw Error("the arguments of '" + name + "' cannot be sent: " + error.what());
    }
    std::optional<Reply> reply;
    std::exception_ptr failure;
    try {
        channel_->send(*frame);
        frame.reset();
        while (!reply && !failure) {
            if (limit && !channel_->await(deadline)) {
                // Its answer, when it comes, is dropped by whoever reads next.
                throw Error("no answer to '" + name + "' within " + std::to_string(limit->count()) +
                            " ms");
            }
            wire::Frame answer = channel_->receive();
            switch (answer.kind) {
                case wire::FrameKind::Reply:
                case wire::FrameKind::Failure:
                    if (answer.id > id) {
                        throw wire::WireError("an answer to a request not yet sent");
                    }
                    if (answer.id < id) {
                        break;  // a call that gave up waiting
                    }
                    if (answer.kind == wire::FrameKind::Reply) {
                        reply = std::move(answer.arrays);
                    } else {
                        failure = std::make_exception_ptr(
                            CommandError(std::move(answer.type), answer.message));
                    }
                    break;
                default:
                    if (!showPrint(answer)) {
                        throw wire::WireError("a frame of kind " +
                                              std::to_string(static_cast<unsigned>(answer.kind)) +
                                              " that a worker never sends");
                    }
            }
        }
    } catch (const wire::ConnectionClosed&) {
        connectionEnded("", milliseconds(graceMs_.load()));
        throwEnded();
    } catch (const wire::WireError& error) {
        // Bad input: the connection cannot be trusted any further.
        connectionEnded(std::string("sent a bad frame (") + error.what() + ") and ",
                        milliseconds(0));
        throwEnded();
    }
    calling.unlock();
    drainIfPending();
    if (failure) {
        std::rethrow_exception(failure);
    }
    return std::move(*reply);
}

void Connection::post(const std::string& name, const Reply& args) {
    if (!alive()) {
        return;
    }
    std::optional<wire::OutFrame> frame;
    try {
        frame.emplace(wire::requestFrame(nextId_.fetch_add(1), name, 1, args, channel_->exchange(),
                                         wire::FrameFlags::kNoReply));
    } catch (const wire::WireError& error) {
        throw Error("the arguments of '" + name + "' cannot be sent: " + error.what());
    }
    try {
        channel_->send(*frame);
    } catch (const std::exception&) {
        // The worker is gone: the watcher sees the end.
    }
}

bool Connection::showPrint(const wire::Frame& frame) {
    if (frame.kind != wire::FrameKind::Print) {
        return false;
    }
    const std::u16string text = vd::CharArray(frame.arrays[0]).toUTF16();
    try {
        console_(vd::utf16ToUtf8(text, vd::IllFormedText::Replace));
    } catch (...) {
        // A failing console loses the text, never the session.
    }
    channel_->acknowledgePrint(frame.id);
    printsShown_.fetch_add(1);
    return true;
}

void Connection::drain() {
    while (printsAnnounced_.load() > printsShown_.load() || channel_->readable()) {
        wire::Frame frame = channel_->receive();
        const bool stale =
            frame.kind == wire::FrameKind::Reply || frame.kind == wire::FrameKind::Failure;
        if (!stale && !showPrint(frame)) {
            throw wire::WireError("a frame of kind " +
                                  std::to_string(static_cast<unsigned>(frame.kind)) +
                                  " that a worker never sends");
        }
    }
}

void Connection::drainIfPending() {
    while (drainPending_.exchange(false)) {
        std::unique_lock<std::mutex> calling(callMutex_, std::try_to_lock);
        if (!calling.owns_lock()) {
            // Another call holds it now and reads on its own; it drains on its way out.
            drainPending_.store(true);
            return;
        }
        try {
            drain();
        } catch (const wire::ConnectionClosed&) {
            connectionEnded("", milliseconds(graceMs_.load()));
        } catch (const wire::WireError& error) {
            connectionEnded(std::string("sent a bad frame (") + error.what() + ") and ",
                            milliseconds(0));
        }
    }
}

void Connection::watch() {
    pollfd watched[2] = {{fd_, POLLRDHUP, 0}, {nudge_, POLLIN, 0}};
    for (;;) {
        while (::poll(watched, 2, -1) < 0 && errno == EINTR) {
        }
        if ((watched[0].revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0) {
            connectionEnded("", milliseconds(graceMs_.load()));
            return;
        }
        if ((watched[1].revents & POLLIN) != 0) {
            std::uint64_t count = 0;
            if (::read(nudge_, &count, sizeof count) == sizeof count) {
                printsAnnounced_.fetch_add(count);
            }
            drainPending_.store(true);
            drainIfPending();
        }
        std::lock_guard<std::mutex> lock(mutex_);
        if (stopping_ || endSeen_) {
            return;
        }
    }
}

void Connection::connectionEnded(const std::string& how, milliseconds grace) {
    {
        std::unique_lock<std::mutex> lock(mutex_);
        if (endSeen_) {
            // Someone else reaps; the end is known once they have.
            endedChanged_.wait(lock, [&] { return ended_.has_value(); });
            return;
        }
        endSeen_ = true;
    }
    channel_->close();
    ::shutdown(fd_, SHUT_RDWR);
    const std::string reason =
        "the worker (pid " + std::to_string(pid_) + ") " + how + detail::reap(pid_, grace);
    std::lock_guard<std::mutex> lock(mutex_);
    ended_ = reason;
    endedChanged_.notify_all();
}

void Connection::throwEnded() {
    std::unique_lock<std::mutex> lock(mutex_);
    endedChanged_.wait(lock, [&] { return ended_.has_value(); });
    throw WorkerEnded(*ended_);
}

void Connection::end(milliseconds grace) {
    std::lock_guard<std::mutex> endLock(endMutex_);
    if (endDone_) {
        return;
    }
    endDone_ = true;
    graceMs_.store(grace.count());
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    // The watcher sees the end at once; so does the worker, which ends.
    ::shutdown(fd_, SHUT_RDWR);
    if (watcher_.joinable()) {
        watcher_.join();
    }
    connectionEnded("", grace);  // already done by the watcher, or done here
}

Connection::~Connection() {
    end(kEndGrace);
    // Only now: until here an object of the session may still call, and be
    // told that its worker has ended.
    channel_.reset();
    ::close(fd_);
}

}  // namespace vxpy::detail
