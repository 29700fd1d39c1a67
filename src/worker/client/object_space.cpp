#include "object_space.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <csignal>

#include "session_impl.h"

namespace vxpy {

namespace vd = foundation::veltradata;

namespace detail {

namespace {

constexpr const char* kPythonFailure = "pylnk_core::InternalPyException";

vd::Array addressArray(std::uint64_t address) {
    return vd::ArrayFactory().createScalar(address);
}

std::uint64_t addressIn(const vd::Array& array) {
    const vd::TypedArray<std::uint64_t> address(array);
    return address[0];
}

bool hasField(const vd::StructArray& structure, const std::string& name) {
    for (const auto& field : structure.getFieldNames()) {
        if (field.str() == name) {
            return true;
        }
    }
    return false;
}

std::string utf8(const vd::Array& chars) {
    return vd::utf16ToUtf8(vd::CharArray(chars).toUTF16());
}

}  // namespace

Handle::~Handle() {
    if (owned) {
        space->dropped(*this);
    }
}

ObjectSpace::ObjectSpace(std::shared_ptr<Connection> connection)
    : connection_(std::move(connection)) {}

// --- requests in flight -------------------------------------------------------

ObjectSpace::Request::Request(ObjectSpace& space, bool adopts) : space_(space), adopts_(adopts) {
    std::unique_lock<std::mutex> lock(space.mutex_);
    space.admit(lock);
    ++space.requests_;
    if (adopts) {
        ++space.adopting_;
    }
}

ObjectSpace::Request::~Request() {
    std::lock_guard<std::mutex> lock(space_.mutex_);
    space_.finishedLocked(adopts_);
}

Reply ObjectSpace::Request::send(const std::string& name, const Reply& args, std::size_t nlhs) {
    return space_.connection_->call(name, args, nlhs);
}

Object ObjectSpace::Request::adopt(std::uint64_t address) {
    std::lock_guard<std::mutex> lock(space_.mutex_);
    return space_.adoptLocked(address);
}

void ObjectSpace::admit(std::unique_lock<std::mutex>& lock) {
    for (;;) {
        if (!held_.empty()) {
            if (adopting_ > 0) {
                changed_.wait(lock);
                continue;
            }
            flushLocked();
        }
        if (sweeping_ || (sweepDue_ && requests_ > 0)) {
            changed_.wait(lock);
            continue;
        }
        if (!sweepDue_) {
            return;
        }
        sweepDue_ = false;
        sweeping_ = true;
        ++requests_;
        lock.unlock();
        try {
            sweep();
        } catch (const CommandError&) {
            connection_->post("pyErrorClear", {});  // the KeyboardInterrupt it was for
        } catch (...) {
            // The worker is gone: the request that follows says so.
        }
        lock.lock();
        sweeping_ = false;
        finishedLocked(false);
    }
}

// An interrupt sent while a request was in flight may land after that request
// has ended, or after an earlier interrupt's KeyboardInterrupt: Python then
// holds it for whatever runs next. A bit of Python code of the client's own
// takes it before the next command.
void ObjectSpace::sweep() {
    vd::ArrayFactory factory;
    connection_->call("pyInvokeFastInput",
                      {addressArray(helpers_[static_cast<std::size_t>(Helper::Noop)]),
                       factory.createCellArray({1, 2}, {factory.createCellArray({1, 0}, {}),
                                                        factory.createStructArray({0, 0}, {})})},
                      1);
}

void ObjectSpace::finishedLocked(bool adopts) {
    --requests_;
    if (adopts) {
        --adopting_;
    }
    // A KeyboardInterrupt is no sign that nothing is pending: a second
    // interrupt may have landed after the first one's handler ran.
    if (interruptSent_ && requests_ == 0) {
        interruptSent_ = false;
        sweepDue_ = true;
    }
    if (adopting_ == 0) {
        flushLocked();
    }
    changed_.notify_all();
}

Reply ObjectSpace::call(const std::string& name, const Reply& args, std::size_t nlhs) {
    Request request(*this, false);
    return request.send(name, args, nlhs);
}

// --- handles and releases -----------------------------------------------------

Object ObjectSpace::adoptLocked(std::uint64_t address) {
    if (permanent_.contains(address)) {
        return Object(std::make_shared<const Handle>(address, shared_from_this(), false));
    }
    Entry& entry = table_[address];
    if (std::shared_ptr<const Handle> live = entry.handle.lock()) {
        return Object(std::move(live));
    }
    auto handle = std::make_shared<const Handle>(address, shared_from_this(), true);
    entry.handle = handle;
    entry.current = handle.get();
    held_.erase(address);  // its release never went: the worker still holds it for us
    return Object(std::move(handle));
}

void ObjectSpace::dropped(const Handle& handle) noexcept {
    try {
        std::lock_guard<std::mutex> lock(mutex_);
        const auto found = table_.find(handle.address);
        if (found == table_.end() || found->second.current != &handle) {
            return;  // a later handle holds the address now
        }
        table_.erase(found);
        if (!permanent_.contains(handle.address)) {
            releaseLocked(handle.address);
        }
    } catch (...) {
        // A release that cannot go leaves the object to the worker's end.
    }
}

void ObjectSpace::releaseLocked(std::uint64_t address) {
    if (adopting_ > 0) {
        held_.insert(address);
    } else {
        connection_->post("Release", {addressArray(address)});
    }
}

void ObjectSpace::flushLocked() noexcept {
    try {
        for (const std::uint64_t address : held_) {
            connection_->post("Release", {addressArray(address)});
        }
    } catch (...) {
        // Only arguments that cannot be sent fail a post; an address always can.
    }
    held_.clear();
}

// --- commands -----------------------------------------------------------------

void ObjectSpace::requireAlive() const {
    try {
        connection_->throwIfEnded();
    } catch (const WorkerEnded& ended) {
        throw WorkerEnded(std::string("the object's worker has ended: ") + ended.what());
    }
    if (!connection_->alive()) {
        throw WorkerEnded("the object's worker (pid " + std::to_string(connection_->pid()) +
                          ") has ended");
    }
}

Object ObjectSpace::object(const std::string& command, const Reply& args) {
    return run<Object>([&](Request& request) {
        return request.adopt(addressIn(request.send(command, args).at(0)));
    });
}

const vd::Array& ObjectSpace::argument(const Arg& arg) const {
    if (arg.object().handle_ && arg.object().handle_->space.get() != this) {
        throw Error(
            "an Object of another worker cannot be passed to this one (a worker's addresses "
            "mean nothing elsewhere)");
    }
    return arg.array();
}

ObjectSpace::Result ObjectSpace::invoke(std::uint64_t callable, const std::vector<Arg>& args,
                                        const std::vector<Keyword>& keywords) {
    vd::ArrayFactory factory;
    std::vector<vd::Array> positional;
    positional.reserve(args.size());
    for (const Arg& arg : args) {
        positional.push_back(argument(arg));
    }
    vd::Array keywordStruct = factory.createStructArray({0, 0}, {});
    if (!keywords.empty()) {
        std::vector<std::string> fields;
        std::unordered_set<std::string> names;
        for (std::size_t i = 0; i < keywords.size(); ++i) {
            if (!names.insert(keywords[i].name).second) {
                throw Error("the keyword argument '" + keywords[i].name + "' is given twice");
            }
            fields.push_back("kwargKey" + std::to_string(i));
            fields.push_back("kwargValue" + std::to_string(i));
        }
        vd::StructArray pairs = factory.createStructArray({1, 1}, fields);
        for (std::size_t i = 0; i < keywords.size(); ++i) {
            pairs[0][fields[2 * i]] = factory.createCharArray(keywords[i].name);
            pairs[0][fields[2 * i + 1]] = argument(keywords[i].value);
        }
        keywordStruct = pairs;
    }
    const Reply request = {
        addressArray(callable),
        factory.createCellArray(
            {1, 2}, {factory.createCellArray({1, positional.size()}, positional), keywordStruct})};

    struct Outcome {
        Result result;
        vd::Array report;
        Object error;
    };
    Outcome outcome = run<Outcome>([&](Request& r) {
        Outcome o;
        const vd::Array reply = r.send("pyInvokeFastInput", request).at(0);
        if (reply.getType() == vd::ArrayType::STRUCT) {
            const vd::StructArray fields(reply);
            const vd::Array object = fields[0]["object"];
            if (hasField(fields, "exceptionName")) {
                o.report = reply;
                o.error = r.adopt(addressIn(object));
            } else {
                o.result.object = r.adopt(addressIn(object));
                o.result.scalar = fields[0]["scalarData"];
            }
        }
        return o;
    });
    if (outcome.error.address() != 0) {
        throwReport(outcome.report, outcome.error);
    }
    if (outcome.result.object.address() == 0) {
        throw Error(
            "an argument has no Python form (complex integer, object, enumeration and sparse "
            "host arrays have none)");
    }
    return outcome.result;
}

ObjectSpace::Result ObjectSpace::invoke(Helper which, const std::vector<Arg>& args) {
    prepare();
    return invoke(helpers_[static_cast<std::size_t>(which)], args);
}

std::string ObjectSpace::text(const Object& string) {
    return utf8(run<vd::Array>([&](Request& request) {
        return request.send("pyUnicodeGetData", {addressArray(string.address())}).at(0);
    }));
}

// --- the helpers --------------------------------------------------------------

void ObjectSpace::prepare() {
    if (prepared_.load(std::memory_order_acquire)) {
        return;
    }
    std::lock_guard<std::mutex> once(prepareMutex_);
    if (prepared_.load(std::memory_order_acquire)) {
        return;
    }
    if (!connection_->started) {
        requireAlive();
        throw Error("not started: call start() before using Python objects");
    }
    const Object exec = object("pyFetch", {vd::ArrayFactory().createCharArray("exec")});
    const Object names = object("pyCreateDict", {});
    try {
        invoke(exec.address(), {Arg(kHelperSource), Arg(names)});
    } catch (const PythonError& error) {
        throw Error(std::string("the client's Python helpers cannot run in this interpreter: ") +
                    error.what());
    }
    const Object exports = object(
        "pyGetKey", {addressArray(names.address()), vd::ArrayFactory().createCharArray("exports")});
    run<bool>([&](Request& request) {
        const vd::TypedArray<vd::Array> cell(
            request.send("pyConvertSequenceToCell", {addressArray(exports.address())}).at(0));
        if (cell.getNumberOfElements() != kHelperCount + 1) {
            throw Error("the client's Python helpers exported " +
                        std::to_string(cell.getNumberOfElements()) + " objects, not " +
                        std::to_string(kHelperCount + 1));
        }
        std::array<std::uint64_t, kHelperCount + 1> addresses{};
        for (std::size_t i = 0; i <= kHelperCount; ++i) {
            const vd::StructArray result = vd::Array(cell[i]);
            addresses[i] = addressIn(result[0]["object"]);
        }
        const vd::StructArray threadResult = vd::Array(cell[kHelperCount]);
        const vd::Array threadId = threadResult[0]["scalarData"];
        const vd::TypedArray<double> id(threadId);
        // The thread id's own float goes back with the adoption's end.
        request.adopt(addresses[kHelperCount]);
        std::lock_guard<std::mutex> lock(mutex_);
        for (std::size_t i = 0; i < kHelperCount; ++i) {
            helpers_[i] = addresses[i];
            permanent_.insert(addresses[i]);
            held_.erase(addresses[i]);
        }
        pythonThread_ = static_cast<pid_t>(id[0]);
        prepared_.store(true, std::memory_order_release);
        return true;
    });
}

Object ObjectSpace::helper(Helper which) {
    prepare();
    return Object(std::make_shared<const Handle>(helpers_[static_cast<std::size_t>(which)],
                                                 shared_from_this(), false));
}

std::uint64_t ObjectSpace::noneAddress() {
    prepare();
    return helpers_[static_cast<std::size_t>(Helper::None)];
}

// --- interrupt ----------------------------------------------------------------

void ObjectSpace::interrupt() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (requests_ == 0 || pythonThread_ == 0 || !connection_->alive()) {
        return;
    }
    // Aimed at the one thread whose signal handler the interpreter runs: a
    // sleep there ends with EINTR, and a loop sees it at its next bytecode.
    if (::syscall(SYS_tgkill, connection_->pid(), pythonThread_, SIGINT) == 0) {
        interruptSent_ = true;
    }
}

// --- failures -----------------------------------------------------------------

std::array<std::string, 3> ObjectSpace::describe(const Object& error) {
    const Object parts = invoke(Helper::DescribeError, {Arg(error)}).object;
    const vd::Array strings = run<vd::Array>([&](Request& request) {
        return request.send("pyConvertToString", {addressArray(parts.address())}).at(0);
    });
    const vd::TypedArray<vd::VELTRAString> texts(strings);
    std::array<std::string, 3> described;
    for (std::size_t i = 0; i < described.size() && i < texts.getNumberOfElements(); ++i) {
        const vd::VELTRAString text = texts[i];
        described[i] = text ? vd::utf16ToUtf8(*text) : std::string();
    }
    return described;
}

void ObjectSpace::throwFailure(const CommandError& failure) {
    if (failure.type() != kPythonFailure) {
        throw failure;
    }
    // Reading the error runs requests that may fail in their turn (an
    // interrupt landing there, say): those are not read again.
    thread_local bool describing = false;
    std::array<std::string, 3> described;
    if (!describing) {
        describing = true;
        try {
            described = describe(object("pyErrorFetch", {}));
        } catch (const CommandError&) {
        }
        describing = false;
        connection_->post("pyErrorClear", {});
    }
    // The failure's own text reads "<type>: <message>" (just "<type>" when
    // str() of the exception gave nothing or failed).
    const std::string text = failure.what();
    const std::size_t colon = text.find(": ");
    const std::string name = text.substr(0, colon);
    const std::string said = colon == std::string::npos ? std::string() : text.substr(colon + 2);
    const auto& [type, message, traceback] = described;
    if (type == name && (message == said || said.empty())) {
        throw PythonError(type, message, traceback);
    }
    // No error was set, or another request's took this one's place: the
    // failure's own text tells. A Python failure reads "<identifier>: ...";
    // the library's own texts are sentences.
    const bool identifier = !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
        return c == '_' || std::isalnum(static_cast<unsigned char>(c)) || (c & 0x80) != 0;
    });
    if (!identifier) {
        throw failure;
    }
    throw PythonError(name, said, std::string());
}

void ObjectSpace::throwReport(const vd::Array& report, Object error) {
    const vd::StructArray fields(report);
    const std::string name = utf8(fields[0]["exceptionName"]);
    const std::string message = utf8(fields[0]["exceptionMessage"]);
    // The library's own identifiers name failures that are no Python exception.
    if (name.starts_with("VELTRAPyHost::") && name != "VELTRAPyHost::UnknownException") {
        throw CommandError(name, message.empty() ? name : name + ": " + message);
    }
    std::array<std::string, 3> described;
    try {
        described = describe(error);
    } catch (const CommandError&) {
        // The report's own words have to do.
    }
    const auto& [type, text, traceback] = described;
    throw PythonError(type.empty() ? name : type, type.empty() ? message : text, traceback);
}

}  // namespace detail

// --- Session::Impl ------------------------------------------------------------

std::shared_ptr<detail::ObjectSpace> Session::Impl::objects() {
    std::lock_guard<std::mutex> lock(mutex);
    if (closed) {
        throw Error("the session is closed");
    }
    if (!space || space->connection() != connection) {
        space = std::make_shared<detail::ObjectSpace>(connection);
    }
    return space;
}

}  // namespace vxpy
