#include <dlfcn.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <optional>
#include <thread>
#include <unordered_map>

#include "process.h"
#include "vxpy/client.h"
#include "wire/wire_codec.h"

namespace vxpy {

namespace vd = foundation::veltradata;
using Reply = std::vector<vd::Array>;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

namespace {

constexpr milliseconds kGreetingTimeout{30000};
// How long a worker may take to end once its connection is closed.
constexpr milliseconds kEndGrace{5000};

// Narrow text of a char array or of a 1 by 1 string; empty for anything else.
std::string textOf(const vd::Array& value) {
    if (value.getType() == vd::ArrayType::CHAR) {
        return vd::CharArray(value).toAscii();
    }
    if (value.getType() == vd::ArrayType::VELTRA_STRING && value.getNumberOfElements() == 1) {
        const vd::VELTRAString element = vd::TypedArray<vd::VELTRAString>(value)[0];
        return element ? vd::utf16ToUtf8(*element) : std::string();
    }
    return {};
}

// The folder of libvxpyclient.so: the worker and the module folder live there.
std::string folderOfThisLibrary() {
    Dl_info info{};
    if (::dladdr(reinterpret_cast<void*>(&folderOfThisLibrary), &info) == 0 ||
        info.dli_fname == nullptr) {
        throw Error("cannot tell where libvxpyclient.so lies; set Options::worker and location");
    }
    return std::filesystem::canonical(info.dli_fname).parent_path().string();
}

void writeToStandardOutput(std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

}  // namespace

CommandError::CommandError(std::string type, const std::string& message)
    : Error(message), type_(std::move(type)) {}

std::string CommandError::type() const {
    return type_;
}

// One worker process and its connection.
//
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
               std::optional<milliseconds> limit = std::nullopt);

    // Closes the connection, waits up to `grace` for the worker to end, kills
    // it after that, and reaps it. Idempotent.
    void end(milliseconds grace);

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
    void connectionEnded(const std::string& how, milliseconds grace);
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

// --- Session -------------------------------------------------------------------

class Session::Impl {
  public:
    Options options;
    mutable std::mutex mutex;  // guards connection and closed
    std::shared_ptr<Connection> connection;
    bool closed = false;

    std::shared_ptr<Connection> current() const {
        std::lock_guard<std::mutex> lock(mutex);
        if (closed) {
            throw Error("the session is closed");
        }
        return connection;
    }

    void close(std::optional<milliseconds> limit) {
        std::shared_ptr<Connection> ending;
        {
            std::lock_guard<std::mutex> lock(mutex);
            if (closed) {
                return;
            }
            closed = true;
            ending = connection;
        }
        // Before a start there is no Python thread to answer pyClose: closing
        // the connection alone ends the worker.
        if (ending->started && ending->alive()) {
            try {
                ending->call("pyClose", {}, 1, limit);
            } catch (const Error&) {
                // Gone or too slow: the worker is ended below all the same.
            }
        }
        ending->end(kEndGrace);
    }
};

Session::Session(Options options) : impl_(std::make_unique<Impl>()) {
    if (options.worker.empty() || options.location.empty()) {
        const std::string folder = folderOfThisLibrary();
        if (options.worker.empty()) {
            options.worker = folder + "/vxpy-worker";
        }
        if (options.location.empty()) {
            options.location = folder;
        }
    }
    impl_->options = std::move(options);
    impl_->connection = std::make_shared<Connection>(impl_->options);
}

Session::~Session() {
    try {
        impl_->close(kEndGrace);
    } catch (...) {
        // A destructor answers nothing; the worker is gone either way.
    }
}

void Session::start(const Interpreter& python) {
    const std::shared_ptr<Connection> connection = impl_->current();
    if (connection->started) {
        return;
    }
    vd::ArrayFactory factory;
    vd::StructArray request = factory.createStructArray(
        {1, 1}, {"executable", "library", "home", "path", "version", "qlbuffer_location"});
    request[0]["executable"] = factory.createCharArray(python.executable);
    request[0]["library"] = factory.createCharArray(python.library);
    request[0]["home"] = factory.createCharArray(python.home);
    request[0]["path"] = factory.createCharArray(python.path);
    request[0]["version"] = factory.createCharArray(python.version);
    request[0]["qlbuffer_location"] = factory.createCharArray(impl_->options.location);
    const Reply reply = connection->call("attemptToStartPython", {request}, 1);
    const std::string token = reply.empty() ? std::string() : textOf(reply[0]);
    if (token == "vx_success_token_for_oop_python") {
        connection->started = true;
        return;
    }
    if (token == "vx_empty_token_for_oop_python") {
        throw Error("the interpreter could not be loaded: " + python.executable + " (library '" +
                    python.library + "', version " + python.version + ")");
    }
    if (token == "vx_discard_token_for_oop_python") {
        throw Error("this worker's interpreter was closed; restart() gives a fresh one");
    }
    throw Error("unexpected answer to the start: '" + token + "'");
}

Reply Session::call(const std::string& command, const Reply& args, std::size_t nlhs) {
    const std::shared_ptr<Connection> connection = impl_->current();
    if (!connection->started && command != "_TEST_") {
        connection->throwIfEnded();
        throw Error("not started: call start() before sending '" + command + "'");
    }
    return connection->call(command, args, nlhs);
}

void Session::restart() {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->connection->end(milliseconds(1000));
    impl_->connection = std::make_shared<Connection>(impl_->options);
    impl_->closed = false;
}

void Session::close() {
    impl_->close(std::nullopt);
}

int Session::pid() const {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    return impl_->connection->pid();
}

bool Session::started() const {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    return impl_->connection->started;
}

}  // namespace vxpy
