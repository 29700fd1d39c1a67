// One worker process and the connection to it: the client's inside, shared
// by the Session and the objects that a session hands out.
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
#include <unordered_map>
#include <vector>

#include "vxpy/client.h"
#include "wire/wire_codec.h"

namespace vxpy::detail {

using Reply = std::vector<foundation::veltradata::Array>;

// How long a worker may take to end once its connection is closed.
inline constexpr std::chrono::milliseconds kEndGrace{5000};

// Whoever waits for a frame reads it: a call that waits for its reply holds
// the reading role itself, so that its reply needs no hand-off between
// threads; replies for other calls, and Python's printing, are delivered by
// whichever thread reads them. While no call is in flight the background
// reader holds the role, so that printing from Python threads is shown at
// once; a call that begins takes the role from it through an eventfd.
// When the worker ends, every waiting and every later call gets WorkerEnded.
class Connection {
  public:
    explicit Connection(const Options& options);
    ~Connection() { end(kEndGrace); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Sends a request and waits for its answer, at most `limit` when given.
    Reply call(const std::string& name, const Reply& args, std::size_t nlhs,
               std::optional<std::chrono::milliseconds> limit = std::nullopt);

    // Sends a request whose answer nobody waits for: it is dropped when it
    // comes, failure or not. Requests run in the order they are sent, so the
    // worker has served it before any request sent after it. Nothing is sent
    // once the worker is gone. Throws Error for arguments that cannot be sent.
    void post(const std::string& name, const Reply& args);

    // Closes the connection, waits up to `grace` for the worker to end, kills
    // it after that, and reaps it. Idempotent.
    void end(std::chrono::milliseconds grace);

    pid_t pid() const { return pid_; }
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
    struct Slot {
        bool done = false;
        bool discard = false;  // posted: nobody waits for it
        Reply value;
        std::exception_ptr error;
    };
    using Lock = std::unique_lock<std::mutex>;

    void greet(const std::string& worker);
    void backgroundReader();
    // With the reading role: reads and delivers one frame, or sees the end.
    void readOne();
    void deliver(wire::Frame& frame);
    void send(const wire::OutFrame& frame);
    // Once, by whoever sees the connection end: reaps the worker and fails
    // every pending call.
    void connectionEnded(const std::string& how, std::chrono::milliseconds grace);
    bool mayRead() const { return !reading_ && !endSeen_; }
    // With the lock: one call less in flight.
    void callEnded();

    std::function<void(std::string_view)> console_;
    pid_t pid_ = -1;
    int fd_ = -1;
    int wakeFd_ = -1;  // tells the background reader to give up the role
    std::mutex writeMutex_;

    mutable std::mutex mutex_;  // guards everything below
    // Callers wait here for their reply or for the reading role.
    std::condition_variable callers_;
    // The background reader waits here until no call is in flight.
    std::condition_variable background_;
    bool backgroundWaits_ = false;
    std::unordered_map<std::uint64_t, std::shared_ptr<Slot>> pending_;
    int inFlight_ = 0;
    bool reading_ = false;            // a thread holds the reading role
    bool backgroundReading_ = false;  // ... and it is the background reader
    bool stopping_ = false;           // end() was called
    bool endSeen_ = false;            // someone saw the connection end
    std::optional<std::string> ended_;

    std::atomic<std::uint64_t> nextId_{1};
    std::atomic<std::int64_t> graceMs_{kEndGrace.count()};
    std::mutex endMutex_;
    bool endDone_ = false;
    std::thread reader_;
};

}  // namespace vxpy::detail
