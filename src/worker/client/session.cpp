#include <dlfcn.h>
#include <interprocess/pylnk/protocol.h>

#include <filesystem>
#include <mutex>
#include <optional>

#include "connection.h"
#include "object_space.h"
#include "session_impl.h"

namespace vxpy {

namespace vd = foundation::veltradata;
namespace protocol = interprocess::pylnk::protocol;
using detail::Connection;
using detail::kEndGrace;
using detail::Reply;
using std::chrono::milliseconds;

namespace {

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

}  // namespace

CommandError::CommandError(std::string type, const std::string& message)
    : Error(message), type_(std::move(type)) {}

std::string CommandError::type() const {
    return type_;
}

// --- Session -------------------------------------------------------------------

std::shared_ptr<Connection> Session::Impl::current() const {
    std::lock_guard<std::mutex> lock(mutex);
    if (closed) {
        throw Error("the session is closed");
    }
    return connection;
}

void Session::Impl::close(std::optional<milliseconds> limit) {
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
            ending->call(protocol::kCloseCommand, {}, 1, limit);
        } catch (const Error&) {
            // Gone or too slow: the worker is ended below all the same.
        }
    }
    ending->end(kEndGrace);
}

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
    namespace field = protocol::start_field;
    vd::StructArray request = factory.createStructArray(
        {1, 1},
        std::vector<std::string>(protocol::kStartFields.begin(), protocol::kStartFields.end()));
    request[0][field::kExecutable] = factory.createCharArray(python.executable);
    request[0][field::kLibrary] = factory.createCharArray(python.library);
    request[0][field::kHome] = factory.createCharArray(python.home);
    request[0][field::kPath] = factory.createCharArray(python.path);
    request[0][field::kVersion] = factory.createCharArray(python.version);
    request[0][field::kLocation] = factory.createCharArray(impl_->options.location);
    const Reply reply = connection->call(protocol::kStartCommand, {request}, 1);
    const std::string token = reply.empty() ? std::string() : textOf(reply[0]);
    if (token == protocol::kSuccessToken) {
        connection->started = true;
        impl_->objects()->prepare();
        return;
    }
    if (token == protocol::kEmptyToken) {
        throw Error("the interpreter could not be loaded: " + python.executable + " (library '" +
                    python.library + "', version " + python.version + ")");
    }
    if (token == protocol::kDiscardToken) {
        throw Error("this worker's interpreter was closed; restart() gives a fresh one");
    }
    throw Error("unexpected answer to the start: '" + token + "'");
}

Reply Session::call(const std::string& command, const Reply& args, std::size_t nlhs) {
    const std::shared_ptr<detail::ObjectSpace> objects = impl_->objects();
    if (!objects->connection()->started && command != "_TEST_") {
        objects->connection()->throwIfEnded();
        throw Error("not started: call start() before sending '" + command + "'");
    }
    // Through the objects' gate: their releases go first, and interrupt() sees the call.
    return objects->call(command, args, nlhs);
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
