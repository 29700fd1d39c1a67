#include "service/feval_dispatcher.h"

#include <foundation/msg_svc/threadutil.h>

#include <functional>

#include "service/hand_off_waits.h"
#include "service/lifecycle.h"
#include "service/python_thread.h"
#include "service/request_queue.h"

namespace interprocess::pylnk::server::libpylnk {

namespace vd = foundation::veltradata;
using ::pylnk::FevalRequest;
using ::pylnk::PythonState;
using ::pylnk::Reply;
using ::pylnk::ReplyPromise;
using ::pylnk::RequestQueue;

namespace {

void pushRequest(RequestQueue* queue, const std::string& name, size_t nlhs, ReplyPromise* promise,
                 size_t nrhs, vd::Array* prhs) {
    std::lock_guard<std::mutex> lock(::pylnk::requestPushMutex());
    queue->push(FevalRequest{name, nlhs, promise, nrhs, prhs});
}

// attemptToStartPython. Concurrent starts are serialised by the start mutex,
// and only a start with no Python thread creates one, so the queue never has
// a second consumer.
void startPython(RequestQueue* queue, ReplyPromise& promise, std::future<Reply>& answer,
                 size_t nlhs, size_t nrhs, vd::Array* prhs) {
    if (nrhs == 0) {
        prhs = nullptr;  // no start request: refused as such, nothing is read
    }
    auto& life = ::pylnk::lifecycle();
    std::unique_lock<std::mutex> serialised(life.startMutex);
    switch (life.state.load()) {
        case PythonState::Running:
            promise.set_value(Reply{::pylnk::token(::pylnk::kSuccessToken)});
            return;
        case PythonState::Closed:
            promise.set_value(Reply{::pylnk::token(::pylnk::kDiscardToken)});
            return;
        case PythonState::Unprepared:
            // The interpreter stands but its preparation failed: the Python
            // thread runs the preparation again, in queue order.
            pushRequest(queue, ::pylnk::protocol::kStartCommand, nlhs, &promise, nrhs, prhs);
            break;
        case PythonState::NotStarted: {
            // The promise and prhs are captured by reference: this caller
            // blocks until the token, and the thread touches neither after
            // it. The queue pointer is captured by value, since the thread
            // keeps using it for the rest of the process.
            std::function<void()> body = [queue, &promise, &prhs] {
                ::pylnk::pythonThreadMain(queue, promise, prhs);
            };
            foundation::msg_svc::threadutil::create_thread_with_max_stacksize(body).detach();
            break;
        }
    }
    // The start mutex stays held until the token has come.
    answer.wait();
}

}  // namespace

void feval_dispatcher(const std::string& name, size_t nlhs, vd::Array* plhs, size_t nrhs,
                      vd::Array* prhs) {
    RequestQueue* queue = ::pylnk::requestQueue();

    if (name == "_TEST_") {
        const size_t count = std::min(nlhs, nrhs);
        for (size_t i = 0; plhs != nullptr && prhs != nullptr && i < count; ++i) {
            plhs[i] = prhs[i];
        }
        return;
    }

    ReplyPromise promise;
    std::future<Reply> future = promise.get_future();
    if (name == ::pylnk::protocol::kStartCommand) {
        startPython(queue, promise, future, nlhs, nrhs, prhs);
    } else {
        pushRequest(queue, name, nlhs, &promise, nrhs, prhs);
        ::pylnk::replyWait().wait(
            [&future] {
                return future.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
            },
            [&future] { future.wait(); });
    }

    Reply reply = future.get();  // rethrows a stored exception; plhs untouched then
    if (plhs == nullptr) {
        return;
    }
    for (size_t i = 0; i < reply.size(); ++i) {
        plhs[i] = std::move(reply[i]);
    }
}

}  // namespace interprocess::pylnk::server::libpylnk
