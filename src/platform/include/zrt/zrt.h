// The worker's engine interface: requests that the host runs on the worker's
// behalf. This engine knows one function, "fprintf" with the format "%s" and
// one text, which it writes to the console (zrt/console.h).
#pragma once

#include <cstddef>
#include <future>
#include <string>
#include <utility>
#include <vector>

#include "cmddistributor/run_options.h"
#include "foundation/core/except.h"
#include "foundation/msg_svc/exchange.h"
#include "foundation/veltradata.h"

namespace zrt {

// A request that the engine refused or could not run.
class EngineError
    : public foundation::core::except::Exception<foundation::core::except::IException> {
  public:
    using Exception::Exception;
};

// The outcome of a request: a value or the exception that the request failed
// with. get() blocks until the outcome is there and may be called repeatedly.
template <class T>
class Future {
  public:
    Future() = default;
    explicit Future(std::future<T> future) : state_(future.share()) {}
    explicit Future(std::shared_future<T> future) : state_(std::move(future)) {}

    bool valid() const noexcept { return state_.valid(); }

    void wait() const {
        requireValid();
        state_.wait();
    }

    // Returns the value or throws the request's exception.
    T get() const {
        requireValid();
        return state_.get();
    }

  private:
    void requireValid() const {
        if (!state_.valid()) {
            throw EngineError("zrt::Future has no request behind it");
        }
    }

    std::shared_future<T> state_;
};

class ZRT {
  public:
    using Outputs = std::vector<foundation::veltradata::Array>;

    // A new id on every call, from any thread.
    static foundation::msg_svc::exchange::IDType createRequestID();

    // Runs function name with args. The request completes before feval
    // returns. A failure is held by the future and also written to the error
    // stream of options when it has one. The bool is accepted for the
    // interface's sake and has no effect here.
    Future<Outputs> feval(const std::string& name,
                          const std::vector<foundation::veltradata::Array>& args, std::size_t nlhs,
                          cmddistributor::RunOptions options, bool,
                          foundation::msg_svc::exchange::IDType id);
};

}  // namespace zrt
