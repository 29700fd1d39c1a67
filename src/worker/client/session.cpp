#include <dlfcn.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <future>
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

// One worker process and its connection. Calls wait on promises that the
// reader thread fulfils; when the worker ends, every waiting and every later
// call gets WorkerEnded.
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
        return !ended_;
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
    void greet(const std::string& worker);
    void readLoop();
    void deliver(wire::Frame& frame);
    void send(const wire::OutFrame& frame);
    void failAll(const std::string& how);

    std::function<void(std::string_view)> console_;
    pid_t pid_ = -1;
    int fd_ = -1;
    std::mutex writeMutex_;
    mutable std::mutex mutex_;
    std::unordered_map<std::uint64_t, std::shared_ptr<std::promise<Reply>>> pending_;
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
    try {
        detail::SpawnOptions spawnOptions;
        spawnOptions.passAsFd3 = pair[1];
        spawnOptions.ownGroup = true;
        pid_ = detail::spawn({options.worker, "--fd", "3"}, spawnOptions);
    } catch (...) {
        ::close(pair[0]);
        ::close(pair[1]);
        throw;
    }
    ::close(pair[1]);
    try {
        greet(options.worker);
    } catch (...) {
        ::close(fd_);
        throw;
    }
    reader_ = std::thread([this] { readLoop(); });
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
    auto slot = std::make_shared<std::promise<Reply>>();
    std::future<Reply> answer = slot->get_future();
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (ended_) {
            throw WorkerEnded(*ended_);
        }
        pending_.emplace(id, slot);
    }
    send(*frame);
    if (limit && answer.wait_for(*limit) == std::future_status::timeout) {
        std::lock_guard<std::mutex> lock(mutex_);
        pending_.erase(id);
        throw Error("no answer to '" + name + "' within " + std::to_string(limit->count()) + " ms");
    }
    return answer.get();
}

void Connection::send(const wire::OutFrame& frame) {
    std::lock_guard<std::mutex> lock(writeMutex_);
    try {
        wire::sendFrame(fd_, frame);
    } catch (const wire::WireError&) {
        // The worker is gone: the reader sees the end and answers every call.
    }
}

void Connection::readLoop() {
    std::string how;
    milliseconds grace{graceMs_.load()};
    for (;;) {
        wire::Frame frame;
        try {
            frame = wire::receiveFrame(fd_);
            deliver(frame);
        } catch (const wire::ConnectionClosed&) {
            grace = milliseconds(graceMs_.load());
            break;
        } catch (const std::exception& error) {
            // Bad input: the connection cannot be trusted any further.
            how = std::string("sent a bad frame (") + error.what() + ") and ";
            grace = milliseconds(0);
            break;
        }
    }
    ::shutdown(fd_, SHUT_RDWR);
    failAll("the worker (pid " + std::to_string(pid_) + ") " + how + detail::reap(pid_, grace));
}

void Connection::deliver(wire::Frame& frame) {
    switch (frame.kind) {
        case wire::FrameKind::Reply:
        case wire::FrameKind::Failure: {
            std::shared_ptr<std::promise<Reply>> slot;
            {
                std::lock_guard<std::mutex> lock(mutex_);
                const auto found = pending_.find(frame.id);
                if (found == pending_.end()) {
                    return;  // a call that gave up waiting
                }
                slot = std::move(found->second);
                pending_.erase(found);
            }
            if (frame.kind == wire::FrameKind::Reply) {
                slot->set_value(std::move(frame.arrays));
            } else {
                slot->set_exception(
                    std::make_exception_ptr(CommandError(frame.type, frame.message)));
            }
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

void Connection::failAll(const std::string& how) {
    std::unordered_map<std::uint64_t, std::shared_ptr<std::promise<Reply>>> orphans;
    std::string reason;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!ended_) {
            ended_ = how;
        }
        reason = *ended_;
        orphans.swap(pending_);
    }
    for (auto& [id, slot] : orphans) {
        slot->set_exception(std::make_exception_ptr(WorkerEnded(reason)));
    }
}

void Connection::end(milliseconds grace) {
    std::lock_guard<std::mutex> lock(endMutex_);
    if (endDone_) {
        return;
    }
    endDone_ = true;
    graceMs_.store(grace.count());
    ::shutdown(fd_, SHUT_RDWR);  // the worker and the reader both see the end
    if (reader_.joinable()) {
        reader_.join();
    }
    ::close(fd_);
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
