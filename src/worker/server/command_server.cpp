#include "server/command_server.h"

#include <cxxabi.h>
#include <poll.h>
#include <unistd.h>

#include <boost/core/demangle.hpp>
#include <cstdio>
#include <exception>
#include <thread>
#include <vector>

#include "transport/descriptors.h"

namespace vxpy::worker {

namespace vd = foundation::veltradata;
namespace sm = foundation::veltradata::shared_memory;

namespace {

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

CommandServer::CommandServer(int fd, Dispatcher dispatcher) : fd_(fd), dispatcher_(dispatcher) {}

void CommandServer::run() {
    try {
        greet();
    } catch (const wire::ConnectionClosed&) {
        end(kExitConnectionClosed);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vxpy-worker: cannot set up the connection: %s\n", error.what());
        end(kExitBadFrame);
    }
    std::thread([this] { watch(); }).detach();
    for (;;) {
        wire::Frame frame;
        try {
            frame = channel_->receive();
        } catch (const wire::ConnectionClosed&) {
            end(kExitConnectionClosed);
        } catch (const std::exception& error) {
            std::fprintf(stderr, "vxpy-worker: refused a frame from the host: %s\n", error.what());
            end(kExitBadFrame);
        }
        if (frame.kind == wire::FrameKind::Request) {
            serve(frame);
        }
        // Anything else is a late Hello or PrintDone: nothing to do.
    }
}

void CommandServer::greet() {
    wire::SocketStream socket(fd_);
    wire::sendFrame(socket, wire::helloFrame(static_cast<std::uint64_t>(::getpid())));
    const wire::Frame hello = wire::receiveFrame(socket);
    if (hello.kind != wire::FrameKind::Hello) {
        throw wire::WireError("the host's first frame is not a greeting");
    }
    const bool shared = (hello.flags & wire::FrameFlags::kSharedMemory) != 0;
    std::vector<int> fds;
    const transport::PassedRecord record = transport::receiveDescriptors(fd_, fds);
    const auto expected = shared ? transport::Passed::Segment : transport::Passed::Nudge;
    if (record.what != static_cast<std::uint32_t>(expected) || fds.size() != (shared ? 2u : 1u)) {
        for (const int fd : fds) {
            ::close(fd);
        }
        throw wire::WireError("the host did not pass what its greeting announced");
    }
    const int nudge = fds.back();
    if (!shared) {
        channel_ = transport::socketChannel(fd_, nudge);
    } else {
        try {
            transport::Segment segment = transport::Segment::adopt(fds[0]);
            // Large buffers of this process go where the host can map them.
            sm::enable();
            channel_ = transport::sharedMemoryChannel(fd_, std::move(segment), nudge,
                                                      transport::Side::Worker);
        } catch (...) {
            ::close(nudge);
            throw;
        }
    }
    ready_.store(true, std::memory_order_release);
}

void CommandServer::watch() {
    // Only the end is watched: the socket's data, if any, is the serving
    // thread's to read.
    pollfd socket{fd_, POLLRDHUP, 0};
    for (;;) {
        if (::poll(&socket, 1, -1) > 0 && (socket.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0) {
            end(kExitConnectionClosed);
        }
    }
}

void CommandServer::serve(wire::Frame& request) {
    const std::size_t room = std::max<std::size_t>(request.nlhs, 1) + kSpareOutputs;
    std::vector<vd::Array> plhs(room, untouchedSlot());
    const bool answer = (request.flags & wire::FrameFlags::kNoReply) == 0;
    try {
        dispatcher_(request.name, request.nlhs, plhs.data(), request.arrays.size(),
                    request.arrays.empty() ? nullptr : request.arrays.data());
    } catch (...) {
        const auto [type, message] = describeCurrentException();
        request.arrays.clear();
        if (answer) {
            send(wire::failureFrame(request.id, type, message));
        }
        return;
    }
    // The arguments end before the reply goes, so that what they borrowed
    // goes back with it.
    request.arrays.clear();
    if (!answer) {
        return;
    }
    std::size_t written = 0;
    while (written < room && !plhs[written].sharesDataWith(untouchedSlot())) {
        ++written;
    }
    plhs.resize(written);
    std::optional<wire::OutFrame> reply;
    try {
        reply.emplace(wire::replyFrame(request.id, plhs, channel_->exchange()));
    } catch (const wire::WireError& error) {
        send(wire::failureFrame(request.id, "vxpy::wire::WireError",
                                std::string("the reply cannot be sent: ") + error.what()));
        return;
    }
    send(*reply);
}

void CommandServer::send(const wire::OutFrame& frame) {
    try {
        channel_->send(frame);
    } catch (const std::exception&) {
        // The host is gone: the watcher ends the process.
    }
}

void CommandServer::print(const std::u16string& text) {
    if (!ready_.load(std::memory_order_acquire)) {
        return;  // no host to show it to yet
    }
    try {
        channel_->print(nextPrint_.fetch_add(1), text);
    } catch (const std::exception&) {
        // The host is gone: the watcher ends the process.
    }
}

void CommandServer::end(int status) {
    std::fflush(stdout);
    std::fflush(stderr);
    // No exit handlers: the Python thread may still be running a command.
    ::_exit(status);
}

}  // namespace vxpy::worker
