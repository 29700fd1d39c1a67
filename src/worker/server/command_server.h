// The worker's command server: serves one host over one connected socket.
// Requests run on server threads of its own, so that several may be in
// flight at once; the console's text goes to the host over the same socket.
#pragma once

#include <foundation/veltradata.h>

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
    // Every thread takes turns at reading; the one that reads a request
    // serves it, after making sure that another thread reads on.
    void serveLoop();
    void serve(wire::Frame& request);
    void send(const wire::OutFrame& frame);
    [[noreturn]] void end(int status);

    const int fd_;
    const Dispatcher dispatcher_;
    std::mutex readMutex_;  // held by the thread that reads
    std::mutex writeMutex_;

    std::mutex poolMutex_;  // guards the counts below
    std::condition_variable spareWake_;
    int waitingReaders_ = 0;  // threads waiting to read next
    int spareThreads_ = 0;    // threads resting until a reader is needed
    int spareCalls_ = 0;      // rested threads called back, not yet awake

    std::mutex printMutex_;
    std::condition_variable printDone_;
    std::uint64_t nextPrint_ = 1;
    std::uint64_t lastPrintDone_ = 0;  // the host answers prints in order
};

}  // namespace vxpy::worker
