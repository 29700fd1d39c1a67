// The worker's command server: serves one host over one connection.
//
// Threads:
//  - the serving thread (the process's main thread) reads a request, calls
//    the library's feval_dispatcher with it, which returns once the Python
//    thread has answered, and writes the reply. Requests are served one at a
//    time, in the order they came: the library runs them one at a time
//    anyway, and a request that waits in the connection costs nothing.
//  - whichever thread prints (the Python thread, or a Python thread of user
//    code) writes the print itself and waits until the host has shown it;
//    it needs no other thread of the worker for that (shared memory: a word
//    of the segment; socket: it reads the socket itself while the serving
//    thread is busy).
//  - the watcher sleeps until the host's end of the socket closes, and then
//    ends the process at once, whatever the Python thread is doing.
#pragma once

#include <foundation/veltradata.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "transport/channel.h"

namespace vxpy::worker {

// The library's exported entry point.
using Dispatcher = void (*)(const std::string& name, std::size_t nlhs,
                            foundation::veltradata::Array* plhs, std::size_t nrhs,
                            foundation::veltradata::Array* prhs);

// Exit statuses of vxpy-worker.
inline constexpr int kExitConnectionClosed = 0;
inline constexpr int kExitUsage = 2;
inline constexpr int kExitLibraryNotLoadable = 3;
inline constexpr int kExitBadFrame = 4;

class CommandServer {
  public:
    CommandServer(int fd, Dispatcher dispatcher);
    CommandServer(const CommandServer&) = delete;
    CommandServer& operator=(const CommandServer&) = delete;

    // Greets the host, sets up the connection it asks for, and serves it on
    // the calling thread. Ends the process when the connection closes
    // (status 0) or the host sends a bad frame (status 4).
    [[noreturn]] void run();

    // Sends text to the host's console and waits until the host has shown it.
    void print(const std::u16string& text);

  private:
    void greet();
    void watch();
    void serve(wire::Frame& request);
    void send(const wire::OutFrame& frame);
    [[noreturn]] void end(int status);

    const int fd_;
    const Dispatcher dispatcher_;
    std::unique_ptr<transport::Channel> channel_;
    std::atomic<bool> ready_{false};  // channel_ is set
    std::atomic<std::uint64_t> nextPrint_{1};
};

}  // namespace vxpy::worker
