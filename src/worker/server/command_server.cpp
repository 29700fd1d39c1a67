#include "server/command_server.h"

#include <cxxabi.h>
#include <unistd.h>

#include <boost/core/demangle.hpp>
#include <cstdio>
#include <exception>
#include <thread>
#include <vector>

namespace vxpy::worker {

namespace vd = foundation::veltradata;

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
        send(wire::helloFrame(static_cast<std::uint64_t>(::getpid())));
    } catch (const wire::WireError&) {
        end(kExitConnectionClosed);
    }
    serveLoop();
    end(kExitConnectionClosed);
}

void CommandServer::serveLoop() {
    for (;;) {
        wire::Frame frame;
        {
            {
                std::lock_guard<std::mutex> lock(poolMutex_);
                ++waitingReaders_;
            }
            std::unique_lock<std::mutex> reading(readMutex_);
            {
                std::lock_guard<std::mutex> lock(poolMutex_);
                --waitingReaders_;
            }
            try {
                frame = wire::receiveFrame(fd_);
            } catch (const wire::ConnectionClosed&) {
                end(kExitConnectionClosed);
            } catch (const std::exception& error) {
                std::fprintf(stderr, "vxpy-worker: refused a frame from the host: %s\n",
                             error.what());
                end(kExitBadFrame);
            }
            if (frame.kind == wire::FrameKind::PrintDone) {
                {
                    std::lock_guard<std::mutex> lock(printMutex_);
                    lastPrintDone_ = std::max(lastPrintDone_, frame.id);
                }
                printDone_.notify_all();
                continue;
            }
            if (frame.kind != wire::FrameKind::Request) {
                continue;  // the host's Hello: its version was checked on receipt
            }
        }
        // Someone must read on while this request is served: the host may
        // send more, answer a print, or go away.
        {
            std::lock_guard<std::mutex> lock(poolMutex_);
            if (waitingReaders_ == 0) {
                if (spareThreads_ > 0) {
                    --spareThreads_;
                    ++spareCalls_;
                    spareWake_.notify_one();
                } else {
                    std::thread([this] { serveLoop(); }).detach();
                }
            }
        }
        serve(frame);
        // With a reader in waiting already, this thread rests until needed,
        // so that the number of threads follows the requests in flight.
        std::unique_lock<std::mutex> lock(poolMutex_);
        if (waitingReaders_ > 0) {
            ++spareThreads_;
            spareWake_.wait(lock, [&] { return spareCalls_ > 0; });
            --spareCalls_;
        }
    }
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
