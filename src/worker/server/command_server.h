// The worker's command server: serves one host over one connected socket.
// Requests run on server threads of its own, so that several may be in
// flight at once; the console's text goes to the host over the same socket.
#pragma once

#include <foundation/veltradata.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>

#include "wire/wire_codec.h"

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

    // Greets the host and serves it on the calling thread and on as many
    // more threads as requests are in flight. Ends the process when the
    // connection closes (status 0) or the host sends a bad frame (status 4).
    [[noreturn]] void run();

    // Sends text to the host's console and waits until the host has shown it.
    void print(const std::u16string& text);

  private:
    // Every server thread runs this loop. One thread at a time holds the
    // reader role: it reads frames and serves each request it reads itself.
    // While it serves, the role is vacant and another thread stands by on a
    // timer: a request not served within kStandByDelay, or a print that needs
    // the host's answer, hands it the role. A request served sooner costs no
    // hand-off between threads at all.
    [[noreturn]] void serveLoop();
    // With the reader role: reads until a request comes.
    wire::Frame nextRequest();
    // The reader leaves the role to serve: arms the timer and makes sure a
    // thread stands by at it.
    void vacate();
    // After serving: takes the role back unless another thread has it now.
    bool reclaim();
    // Until the role falls to this thread: stands by at the timer, or rests
    // while another thread does.
    void awaitTheReaderRole();
    void standBy();
    void setTimer(std::chrono::nanoseconds delay);
    void serve(wire::Frame& request);
    void send(const wire::OutFrame& frame);
    [[noreturn]] void end(int status);

    const int fd_;
    const Dispatcher dispatcher_;
    const int timerFd_;
    std::mutex writeMutex_;

    std::mutex poolMutex_;  // guards the state below
    std::condition_variable spareWake_;
    bool vacant_ = false;      // the reader serves a request and nobody reads
    bool standingBy_ = false;  // a thread waits at the timer (or is on its way)
    int spareThreads_ = 0;     // threads resting until one must stand by
    int spareCalls_ = 0;       // rested threads called to stand by, not yet awake

    std::mutex printMutex_;
    std::condition_variable printDone_;
    std::uint64_t nextPrint_ = 1;
    std::uint64_t lastPrintDone_ = 0;  // the host answers prints in order
};

}  // namespace vxpy::worker
