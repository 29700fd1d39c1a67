// One worker process and the connection to it: the client's inside, shared
// by the Session and the objects that a session hands out.
//
// Threads:
//  - a call holds the call mutex from its request to its reply, and reads
//    the connection itself while it waits: its reply needs no hand-off
//    between threads, and a print that comes meanwhile is shown on the
//    waiting thread. The worker answers calls one at a time anyway.
//  - a post (an answer nobody waits for) only writes; it never waits for a
//    call in flight.
//  - the watcher sleeps on the socket (and, with shared memory, on the
//    worker's print nudge). It sees the worker's end at once and fails every
//    waiting and later call with WorkerEnded; and it shows prints that come
//    while no call waits (it reads only when it gets the call mutex; else
//    the call that holds it shows them, or reads them on its way out).
#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "transport/channel.h"
#include "vxpy/client.h"

namespace vxpy::detail {

using Reply = std::vector<foundation::veltradata::Array>;

// How long a worker may take to end once its connection is closed.
inline constexpr std::chrono::milliseconds kEndGrace{5000};

class Connection {
  public:
    explicit Connection(const Options& options);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Sends a request and waits for its answer, at most `limit` when given.
    Reply call(const std::string& name, const Reply& args, std::size_t nlhs,
               std::optional<std::chrono::milliseconds> limit = std::nullopt);

    // Sends a request whose answer nobody waits for: the worker sends none,
    // failure or not. Requests run in the order they are sent, so the
    // worker has served it before any request sent after it. Nothing is sent
    // once the worker is gone. Throws Error for arguments that cannot be sent.
    void post(const std::string& name, const Reply& args);

    // Closes the connection, waits up to `grace` for the worker to end, kills
    // it after that, and reaps it. Idempotent.
    void end(std::chrono::milliseconds grace);

    pid_t pid() const { return pid_; }
    Transport transport() const { return transport_; }
    bool alive() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return !endSeen_;
    }
    // WorkerEnded when the worker is gone.
    void throwIfEnded() const {
        std::lock_guard<std::mutex> lock(mutex_);
        if (ended_) {
            throw WorkerEnded(*ended_);
        }
    }

    std::atomic<bool> started{false};

  private:
    using Clock = std::chrono::steady_clock;

    void greet(const std::string& worker);
    void watch();
    // With the call mutex: shows prints, waiting for those announced and
    // not yet come, and drops stale answers, until nothing waits to be read.
    void drain();
    // After the call mutex is given up: reads what the watcher could not.
    void drainIfPending();
    // Shows a print; false for a frame that is not one.
    bool showPrint(const wire::Frame& frame);
    // Once, by whoever sees the connection end first: reaps the worker,
    // fails every pending and later call. `how` says what went wrong, if
    // the worker did not just end.
    void connectionEnded(const std::string& how, std::chrono::milliseconds grace);
    [[noreturn]] void throwEnded();

    const std::function<void(std::string_view)> console_;
    const Transport transport_;
    pid_t pid_ = -1;
    int fd_ = -1;
    std::unique_ptr<transport::Channel> channel_;
    int nudge_ = -1;  // shared memory: the worker raises it after a print

    std::mutex callMutex_;
    std::atomic<std::uint64_t> nextId_{1};
    std::atomic<bool> drainPending_{false};
    // Prints the worker has announced through the nudge, and prints shown:
    // while the first is ahead, a print is on its way.
    std::atomic<std::uint64_t> printsAnnounced_{0};
    std::atomic<std::uint64_t> printsShown_{0};

    mutable std::mutex mutex_;  // guards what follows
    std::condition_variable endedChanged_;
    std::condition_variable callReleased_;
    bool stopping_ = false;  // end() was called
    bool endSeen_ = false;   // someone saw the connection end and reaps the worker
    std::optional<std::string> ended_;

    std::atomic<std::int64_t> graceMs_{kEndGrace.count()};
    std::mutex endMutex_;
    bool endDone_ = false;
    std::thread watcher_;
};

}  // namespace vxpy::detail
