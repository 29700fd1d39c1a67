#include "connection.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "process.h"

namespace vxpy::detail {

namespace vd = foundation::veltradata;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

namespace {

constexpr milliseconds kGreetingTimeout{30000};

void writeToStandardOutput(std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

}  // namespace

Connection::Connection(const Options& options)
    : console_(options.console ? options.console : writeToStandardOutput) {
    int pair[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) {
        throw Error(std::string("cannot make the connection to the worker: ") +
                    std::strerror(errno));
    }
    fd_ = pair[0];
    wakeFd_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    try {
        if (wakeFd_ < 0) {
            throw Error(std::string("cannot make an eventfd: ") + std::strerror(errno));
        }
        detail::SpawnOptions spawnOptions;
        spawnOptions.passAsFd3 = pair[1];
        spawnOptions.ownGroup = true;
        pid_ = detail::spawn({options.worker, "--fd", "3"}, spawnOptions);
    } catch (...) {
        ::close(pair[0]);
        ::close(pair[1]);
        if (wakeFd_ >= 0) {
            ::close(wakeFd_);
        }
        throw;
    }
    ::close(pair[1]);
    try {
        greet(options.worker);
    } catch (...) {
        ::close(fd_);
        ::close(wakeFd_);
        throw;
    }
    reader_ = std::thread([this] { backgroundReader(); });
}

void Connection::greet(const std::string& worker) {
    const std::string who = "the worker '" + worker + "' (pid " + std::to_string(pid_) + ")";
    pollfd ready{fd_, POLLIN, 0};
    if (::poll(&ready, 1, static_cast<int>(kGreetingTimeout.count())) == 0) {
        throw Error(who + " did not greet within " +
                    std::to_string(kGreetingTimeout.count() / 1000) + " s and " +
                    detail::reap(pid_, milliseconds(0)));
    }
    try {
        const wire::Frame hello = wire::receiveFrame(fd_);
        if (hello.kind != wire::FrameKind::Hello) {
            throw wire::WireError("its first frame is not a greeting");
        }
        wire::sendFrame(fd_, wire::helloFrame(static_cast<std::uint64_t>(::getpid())));
    } catch (const wire::ConnectionClosed&) {
        throw Error(who + " ended before it was ready: it " + detail::reap(pid_, kEndGrace));
    } catch (const wire::WireError& error) {
        throw Error(who + " cannot be used: " + error.what() + "; it " +
                    detail::reap(pid_, milliseconds(0)));
    }
}

Reply Connection::call(const std::string& name, const Reply& args, std::size_t nlhs,
                       std::optional<milliseconds> limit) {
    if (nlhs > wire::kMaxOutputs) {
        throw Error("'" + name + "' asks for " + std::to_string(nlhs) + " outputs; at most " +
                    std::to_string(wire::kMaxOutputs) + " can be asked for");
    }
    const std::uint64_t id = nextId_.fetch_add(1);
    std::optional<wire::OutFrame> frame;
    try {
        frame.emplace(wire::requestFrame(id, name, nlhs, args));
    } catch (const wire::WireError& error) {
        throw Error("the arguments of '" + name + "' cannot be sent: " + error.what());
    }
    const auto slot = std::make_shared<Slot>();
    bool takeRoleBack = false;
    {
        Lock lock(mutex_);
        if (ended_ || endSeen_) {
            callers_.wait(lock, [&] { return ended_.has_value(); });
            throw WorkerEnded(*ended_);
        }
        pending_.emplace(id, slot);
        ++inFlight_;
        takeRoleBack = backgroundReading_;
    }
    if (takeRoleBack) {
        const std::uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = ::write(wakeFd_, &one, sizeof one);
    }
    send(*frame);

    const auto deadline = limit ? Clock::now() + *limit : Clock::time_point::max();
    Lock lock(mutex_);
    while (!slot->done) {
        if (mayRead() && Clock::now() < deadline) {
            reading_ = true;
            lock.unlock();
            pollfd ready{fd_, POLLIN, 0};
            const auto left = std::chrono::duration_cast<milliseconds>(deadline - Clock::now());
            if (!limit || ::poll(&ready, 1, static_cast<int>(left.count()) + 1) > 0) {
                readOne();
            }
            lock.lock();
            reading_ = false;
            callers_.notify_all();
        } else if (Clock::now() >= deadline) {
            pending_.erase(id);
            callEnded();
            throw Error("no answer to '" + name + "' within " + std::to_string(limit->count()) +
                        " ms");
        } else if (limit) {
            callers_.wait_until(lock, deadline);
        } else {
            callers_.wait(lock);
        }
    }
    callEnded();
    if (slot->error) {
        std::rethrow_exception(slot->error);
    }
    return std::move(slot->value);
}

void Connection::post(const std::string& name, const Reply& args) {
    const std::uint64_t id = nextId_.fetch_add(1);
    std::optional<wire::OutFrame> frame;
    try {
        frame.emplace(wire::requestFrame(id, name, 1, args));
    } catch (const wire::WireError& error) {
        throw Error("the arguments of '" + name + "' cannot be sent: " + error.what());
    }
    auto slot = std::make_shared<Slot>();
    slot->discard = true;
    {
        Lock lock(mutex_);
        if (ended_ || endSeen_) {
            return;
        }
        pending_.emplace(id, std::move(slot));
    }
    send(*frame);
}

void Connection::callEnded() {
    if (--inFlight_ == 0 && backgroundWaits_) {
        background_.notify_one();  // the background reader may take the role again
    }
}

void Connection::backgroundReader() {
    Lock lock(mutex_);
    for (;;) {
        backgroundWaits_ = true;
        background_.wait(lock,
                         [&] { return stopping_ || endSeen_ || (mayRead() && inFlight_ == 0); });
        backgroundWaits_ = false;
        if (stopping_ || endSeen_) {
            break;
        }
        // A moment's grace, undisturbed: a host that sends call after call
        // keeps the role, and the background reader stays out of its way.
        lock.unlock();
        std::this_thread::sleep_for(std::chrono::microseconds(500));
        lock.lock();
        if (stopping_ || endSeen_ || !mayRead() || inFlight_ != 0) {
            continue;
        }
        reading_ = backgroundReading_ = true;
        lock.unlock();
        pollfd ready[2] = {{fd_, POLLIN, 0}, {wakeFd_, POLLIN, 0}};
        while (::poll(ready, 2, -1) < 0 && errno == EINTR) {
        }
        if (ready[0].revents != 0) {
            readOne();
        } else {
            std::uint64_t count;
            [[maybe_unused]] const ssize_t drained = ::read(wakeFd_, &count, sizeof count);
        }
        lock.lock();
        reading_ = backgroundReading_ = false;
        callers_.notify_all();
    }
    if (!endSeen_) {
        // end() with nobody reading: the end of the connection is seen here.
        endSeen_ = true;
        lock.unlock();
        connectionEnded("", milliseconds(graceMs_.load()));
        lock.lock();
    }
    callers_.wait(lock, [&] { return ended_.has_value(); });
}

void Connection::readOne() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (endSeen_) {
            return;
        }
    }
    std::string how;
    milliseconds grace{0};
    try {
        wire::Frame frame = wire::receiveFrame(fd_);
        deliver(frame);
        return;
    } catch (const wire::ConnectionClosed&) {
        grace = milliseconds(graceMs_.load());
    } catch (const std::exception& error) {
        // Bad input: the connection cannot be trusted any further.
        how = std::string("sent a bad frame (") + error.what() + ") and ";
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (endSeen_) {
            return;
        }
        endSeen_ = true;
    }
    connectionEnded(how, grace);
}

void Connection::deliver(wire::Frame& frame) {
    switch (frame.kind) {
        case wire::FrameKind::Reply:
        case wire::FrameKind::Failure: {
            std::lock_guard<std::mutex> lock(mutex_);
            const auto found = pending_.find(frame.id);
            if (found == pending_.end()) {
                return;  // a call that gave up waiting
            }
            Slot& slot = *found->second;
            if (slot.discard) {
                pending_.erase(found);
                return;
            }
            if (frame.kind == wire::FrameKind::Reply) {
                slot.value = std::move(frame.arrays);
            } else {
                slot.error = std::make_exception_ptr(CommandError(frame.type, frame.message));
            }
            slot.done = true;
            pending_.erase(found);
            callers_.notify_all();
            return;
        }
        case wire::FrameKind::Print: {
            const std::u16string text = vd::CharArray(frame.arrays[0]).toUTF16();
            try {
                console_(vd::utf16ToUtf8(text, vd::IllFormedText::Replace));
            } catch (...) {
                // A failing console loses the text, never the session.
            }
            send(wire::printDoneFrame(frame.id));
            return;
        }
        default:
            throw wire::WireError("a frame of kind " +
                                  std::to_string(static_cast<unsigned>(frame.kind)) +
                                  " that a worker never sends");
    }
}

void Connection::send(const wire::OutFrame& frame) {
    std::lock_guard<std::mutex> lock(writeMutex_);
    try {
        wire::sendFrame(fd_, frame);
    } catch (const wire::WireError&) {
        // The worker is gone: whoever reads next sees the end.
    }
}

void Connection::connectionEnded(const std::string& how, milliseconds grace) {
    ::shutdown(fd_, SHUT_RDWR);
    const std::string reason =
        "the worker (pid " + std::to_string(pid_) + ") " + how + detail::reap(pid_, grace);
    std::lock_guard<std::mutex> lock(mutex_);
    ended_ = reason;
    for (auto& [id, slot] : pending_) {
        slot->error = std::make_exception_ptr(WorkerEnded(reason));
        slot->done = true;
    }
    pending_.clear();
    callers_.notify_all();
    background_.notify_one();
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
        background_.notify_one();
    }
    // Whoever reads sees the end; the worker sees it too and ends.
    ::shutdown(fd_, SHUT_RDWR);
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(wakeFd_, &one, sizeof one);
    if (reader_.joinable()) {
        reader_.join();
    }
    ::close(fd_);
    ::close(wakeFd_);
}

}  // namespace vxpy::detail
