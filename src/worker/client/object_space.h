// The Python objects of one worker as the client holds them: the handles
// that Objects share, the releases that are due, the helpers that the client
// keeps in the worker, and the requests in flight that interrupt() aims at.
#pragma once

#include <sys/types.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "connection.h"
#include "python_helpers.h"
#include "vxpy/client.h"

namespace vxpy::detail {

// One object address that Objects share. An owned address is released when
// the last handle ends; the others are kept for the worker's life.
struct Handle {
    Handle(std::uint64_t address, std::shared_ptr<ObjectSpace> space, bool owned)
        : address(address), space(std::move(space)), owned(owned) {}
    ~Handle();
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    const std::uint64_t address;
    const std::shared_ptr<ObjectSpace> space;
    const bool owned;
};

// The library keeps one reference per address, however often the address
// crosses, and Release gives it back whatever holds the address: so all
// Objects of one address share one handle, and a release must never run
// between a request that brings the address back and the adoption of its
// reply. Hence: a release is sent at once while no request that adopts
// addresses is in flight, else held back, and a new request waits until the
// held releases can go. Every request of the session passes here, so the
// releases go before the next command.
class ObjectSpace : public std::enable_shared_from_this<ObjectSpace> {
  public:
    explicit ObjectSpace(std::shared_ptr<Connection> connection);
    ObjectSpace(const ObjectSpace&) = delete;
    ObjectSpace& operator=(const ObjectSpace&) = delete;

    const std::shared_ptr<Connection>& connection() const { return connection_; }

    // One request in flight: admitted when due releases have gone (and after
    // the interrupt sweep), counted for interrupt(), and, when it adopts,
    // holding back releases until its reply's addresses are adopted.
    class Request {
      public:
        explicit Request(ObjectSpace& space, bool adopts = true);
        ~Request();
        Request(const Request&) = delete;
        Request& operator=(const Request&) = delete;

        Reply send(const std::string& name, const Reply& args, std::size_t nlhs = 1);
        // The reply's address as an Object sharing the handle of live copies.
        Object adopt(std::uint64_t address);

      private:
        ObjectSpace& space_;
        const bool adopts_;
    };

    // A command of Session::call.
    Reply call(const std::string& name, const Reply& args, std::size_t nlhs);

    // Runs body in a request; a Python failure of its command is thrown as
    // PythonError, with nothing left set in the worker.
    template <class R>
    R run(const std::function<R(Request&)>& body);

    // Commands whose one reply is an object address.
    Object object(const std::string& command, const Reply& args);

    // The object result of pyInvokeFastInput: the object and its scalarData.
    struct Result {
        Object object;
        foundation::veltradata::Array scalar;
    };
    Result invoke(std::uint64_t callable, const std::vector<Arg>& args,
                  const std::vector<Keyword>& keywords = {});
    Result invoke(Helper helper, const std::vector<Arg>& args);

    // The text of a str object.
    std::string text(const Object& string);

    // The helpers: made once the interpreter runs (Session::start), or on
    // first use. Error before a start.
    void prepare();
    Object helper(Helper which);
    std::uint64_t noneAddress();

    // WorkerEnded, saying so, once the worker is gone.
    void requireAlive() const;

    void interrupt();

    // The exception for a failed command: PythonError when Python raised
    // (read from the worker, which is left with no error set), else the
    // command's own.
    [[noreturn]] void throwFailure(const CommandError& failure);
    // The same for the exception report structure of a reply.
    [[noreturn]] void throwReport(const foundation::veltradata::Array& report, Object error);

  private:
    friend struct Handle;

    struct Entry {
        std::weak_ptr<const Handle> handle;
        const Handle* current = nullptr;  // tells a later handle of the address from this one
    };

    void dropped(const Handle& handle) noexcept;
    Object adoptLocked(std::uint64_t address);
    void admit(std::unique_lock<std::mutex>& lock);
    void finishedLocked(bool adopts);
    void releaseLocked(std::uint64_t address);
    void flushLocked() noexcept;
    void sweep();
    const foundation::veltradata::Array& argument(const Arg& arg) const;
    // Type name, message and traceback of a (type, value, traceback) tuple.
    std::array<std::string, 3> describe(const Object& error);

    const std::shared_ptr<Connection> connection_;

    std::mutex mutex_;  // guards everything below
    std::condition_variable changed_;
    std::unordered_map<std::uint64_t, Entry> table_;
    std::unordered_set<std::uint64_t> held_;       // releases held back
    std::unordered_set<std::uint64_t> permanent_;  // never released
    int requests_ = 0;
    int adopting_ = 0;
    bool interruptSent_ = false;  // while the requests now in flight ran
    bool sweepDue_ = false;
    bool sweeping_ = false;
    pid_t pythonThread_ = 0;

    std::mutex prepareMutex_;
    std::atomic<bool> prepared_{false};
    std::array<std::uint64_t, kHelperCount> helpers_{};
};

template <class R>
R ObjectSpace::run(const std::function<R(Request&)>& body) {
    requireAlive();
    try {
        Request request(*this);
        return body(request);
    } catch (const PythonError&) {
        throw;
    } catch (const CommandError& failure) {
        throwFailure(failure);
    } catch (const foundation::veltradata::Exception& unexpected) {
        throw Error(std::string("the worker's reply has an unexpected form: ") + unexpected.what());
    }
}

}  // namespace vxpy::detail
