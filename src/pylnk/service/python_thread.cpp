#include "service/python_thread.h"

#include "base/handler_support.h"
#include "service/dispatcher.h"
#include "service/lifecycle.h"
#include "service/python_startup.h"
#include "service/start_request.h"

namespace pylnk {

namespace vd = foundation::veltradata;

namespace {

// Runs the preparation and answers the start request. On failure the
// interpreter stays loaded and the thread goes on serving the queue; a later
// attemptToStartPython runs the preparation again.
void prepareAndAnswer(const std::u16string& location, ReplyPromise& promise) {
    if (std::exception_ptr failure = failureOf([&] { prepareInterpreter(location); })) {
        lifecycle().state = PythonState::Unprepared;
        replyWithFailure(&promise, std::move(failure));
        return;
    }
    lifecycle().state = PythonState::Running;
    promise.set_value(Reply{token(kSuccessToken)});
}

// A start request that reaches the queue: the interpreter stands already,
// only its preparation is run again.
void prepareAgain(const FevalRequest& request) {
    StartRequest start;
    if (std::exception_ptr failure = failureOf([&] { start = readStartRequest(request.prhs); })) {
        replyWithFailure(request.promise, std::move(failure));
        return;
    }
    prepareAndAnswer(start.location, *request.promise);
}

[[noreturn]] void serveQueue(RequestQueue* queue) {
    bool discarding = false;
    for (;;) {
        FevalRequest request;
        {
            // Python threads of user code run while this thread waits.
            pylnk_core::api::interpreter::GILRelease idle;
            request = queue->pop();
        }
        if (discarding) {
            reply(request.promise, token(kDiscardToken));
            continue;
        }
        if (request.name == protocol::kStartCommand) {
            prepareAgain(request);
            continue;
        }
        if (request.name == protocol::kCloseCommand) {
            // Set before the close runs, so that a start request arriving
            // meanwhile is told the interpreter is gone.
            discarding = true;
            lifecycle().state = PythonState::Closed;
        }
        dispatch(queue->handlers, request.name, request.nlhs, request.promise, request.nrhs,
                 request.prhs);
    }
}

}  // namespace

void pythonThreadMain(RequestQueue* queue, ReplyPromise& promise, vd::Array*& prhs) {
    StartRequest start;
    if (std::exception_ptr failure = failureOf([&] { start = readStartRequest(prhs); })) {
        replyWithFailure(&promise, std::move(failure));
        return;
    }
    const int loaded = pylnk_core::loader::attemptToLoadPython(
        start.version, start.library, start.executable, start.home, start.path, false);
    if (loaded != 0) {
        promise.set_value(Reply{token(kEmptyToken)});
        return;
    }
    prepareAndAnswer(start.location, promise);
    serveQueue(queue);
}

}  // namespace pylnk
