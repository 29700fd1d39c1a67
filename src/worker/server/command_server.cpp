#include "server/command_server.h"

#include <cxxabi.h>
#include <poll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <boost/core/demangle.hpp>
#include <cstdio>
#include <exception>
#include <system_error>
#include <thread>
#include <vector>

namespace vxpy::worker {

namespace vd = foundation::veltradata;

namespace {

// How long a request may be served before another thread reads on. Only a
// print needs the host's answer at once, and it calls that thread at once.
// Further requests would wait for the Python thread anyway, and the end of
// the connection may be seen that much later.
constexpr std::chrono::milliseconds kStandByDelay{2};

// Room beyond nlhs for a reply longer than asked for: the library writes as
// many arrays as its reply holds.
constexpr std::size_t kSpareOutputs = 7;

// Marks output slots that the library left alone; nothing else shares its storage.
const vd::Array& untouchedSlot() {
    static const vd::Array* const slot =
        new vd::Array(vd::ArrayFactory().createOpaqueArray(0, {0, 0}));
    return *slot;
}

// The C++ type name and the message of the exception being handled.
std::pair<std::string, std::string> describeCurrentException() {
    const std::type_info* type = abi::__cxa_current_exception_type();
    std::string name = type != nullptr ? boost::core::demangle(type->name()) : "unknown";
    try {
        throw;
    } catch (const std::exception& error) {
        return {name, error.what()};
    } catch (...) {
        return {name, "an exception of type " + name + ", which carries no message"};
    }
}

}  // namespace

CommandServer::CommandServer(int fd, Dispatcher dispatcher)
    : fd_(fd),
      dispatcher_(dispatcher),
      timerFd_(::timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)) {
    if (timerFd_ < 0) {
        throw std::system_error(errno, std::generic_category(), "timerfd_create");
    }
}

void CommandServer::run() {
    try {
        send(wire::helloFrame(static_cast<std::uint64_t>(::getpid())));
    } catch (const wire::WireError&) {
        end(kExitConnectionClosed);
    }
    serveLoop();
}

void CommandServer::serveLoop() {
    for (;;) {
        wire::Frame request = nextRequest();
        vacate();
        serve(request);
        if (!reclaim()) {
            awaitTheReaderRole();
        }
    }
}

wire::Frame CommandServer::nextRequest() {
    for (;;) {
        wire::Frame frame;
        try {
            frame = wire::receiveFrame(fd_);
        } catch (const wire::ConnectionClosed&) {
            end(kExitConnectionClosed);
        } catch (const std::exception& error) {
            std::fprintf(stderr, "vxpy-worker: refused a frame from the host: %s\n", error.what());
            end(kExitBadFrame);
        }
        if (frame.kind == wire::FrameKind::PrintDone) {
            {
                std::lock_guard<std::mutex> lock(printMutex_);
                lastPrintDone_ = std::max(lastPrintDone_, frame.id);
            }
            printDone_.notify_all();
        } else if (frame.kind == wire::FrameKind::Request) {
            return frame;
        }
        // Anything else is the host's Hello: its version was checked on receipt.
    }
}

void CommandServer::vacate() {
    std::lock_guard<std::mutex> lock(poolMutex_);
    vacant_ = true;
    setTimer(kStandByDelay);
    if (standingBy_) {
        return;
    }
    standingBy_ = true;
    if (spareThreads_ > 0) {
        --spareThreads_;
        ++spareCalls_;
        spareWake_.notify_one();
    } else {
        std::thread([this] {
            standBy();
            serveLoop();
        }).detach();
    }
}

bool CommandServer::reclaim() {
    std::lock_guard<std::mutex> lock(poolMutex_);
    if (!vacant_) {
        return false;
    }
    vacant_ = false;
    setTimer(std::chrono::nanoseconds::zero());
    return true;
}

void CommandServer::awaitTheReaderRole() {
    {
        std::unique_lock<std::mutex> lock(poolMutex_);
        if (standingBy_) {
            // Another thread stands by: this one rests until it is called to
            // stand by in its turn (vacate sets standingBy_ for it).
            ++spareThreads_;
            spareWake_.wait(lock, [&] { return spareCalls_ > 0; });
            --spareCalls_;
        } else {
            standingBy_ = true;
        }
    }
    standBy();
}

void CommandServer::standBy() {
    for (;;) {
        pollfd timer{timerFd_, POLLIN, 0};
        ::poll(&timer, 1, -1);
        std::uint64_t expirations = 0;
        [[maybe_unused]] const ssize_t drained = ::read(timerFd_, &expirations, sizeof expirations);
        // The timer may have fired for a vacancy that its reader has ended
        // since: then this thread goes on standing by.
        std::lock_guard<std::mutex> lock(poolMutex_);
        if (vacant_) {
            vacant_ = false;
            standingBy_ = false;
            return;
        }
    }
}

void CommandServer::setTimer(std::chrono::nanoseconds delay) {
    // A zero delay disarms the timer and drops an expiry not yet read.
    itimerspec when{};
    when.it_value.tv_sec = static_cast<time_t>(delay.count() / 1'000'000'000);
    when.it_value.tv_nsec = static_cast<long>(delay.count() % 1'000'000'000);
    ::timerfd_settime(timerFd_, 0, &when, nullptr);
}

void CommandServer::serve(wire::Frame& request) {
    const std::size_t room = std::max<std::size_t>(request.nlhs, 1) + kSpareOutputs;
    std::vector<vd::Array> plhs(room, untouchedSlot());
    try {
        dispatcher_(request.name, request.nlhs, plhs.data(), request.arrays.size(),
                    request.arrays.empty() ? nullptr : request.arrays.data());
    } catch (...) {
        const auto [type, message] = describeCurrentException();
        send(wire::failureFrame(request.id, type, message));
        return;
    }
    std::size_t written = 0;
    while (written < room && !plhs[written].sharesDataWith(untouchedSlot())) {
        ++written;
    }
    plhs.resize(written);
    request.arrays.clear();  // the arguments are not needed any longer
    try {
        send(wire::replyFrame(request.id, plhs));
    } catch (const wire::WireError& error) {
        send(wire::failureFrame(request.id, "vxpy::wire::WireError",
                                std::string("the reply cannot be sent: ") + error.what()));
    }
}

void CommandServer::send(const wire::OutFrame& frame) {
    std::lock_guard<std::mutex> lock(writeMutex_);
    try {
        wire::sendFrame(fd_, frame);
    } catch (const wire::WireError&) {
        // The host is gone; the reading thread sees the end and ends the process.
    }
}

void CommandServer::print(const std::u16string& text) {
    std::uint64_t id;
    {
        std::lock_guard<std::mutex> lock(printMutex_);
        id = nextPrint_++;
    }
    {
        // The host's answer must be read while the command that printed
        // still runs: the thread that stands by reads on at once.
        std::lock_guard<std::mutex> lock(poolMutex_);
        if (vacant_) {
            setTimer(std::chrono::nanoseconds(1));
        }
    }
    std::vector<vd::Array> holder;
    send(wire::printFrame(id, text, holder));
    std::unique_lock<std::mutex> lock(printMutex_);
    printDone_.wait(lock, [&] { return lastPrintDone_ >= id; });
}

void CommandServer::end(int status) {
    std::fflush(stdout);
    std::fflush(stderr);
    // No exit handlers: the Python thread may still be running a command.
    ::_exit(status);
}

}  // namespace vxpy::worker
