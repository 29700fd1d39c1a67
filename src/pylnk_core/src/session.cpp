#include "pylnk_core/session.h"
#include "runtime.h"

namespace pylnk_core::api {

using namespace detail;

void managed::pyAddReference(python::pyArray* object) {
    py().Py_IncRef(need(object));
}

void managed::pyDeleteObject(python::pyArray* object) {
    PyArrayReleaser()(object);
}

bool exception::pyErrorOccurred() {
    return running() && rawTable().PyErr_Occurred() != nullptr;
}

void exception::pyErrorClear() {
    clearErrorIfRunning();
}

PyHolder exception::pyErrorFetch() {
    PendingError error = takeError();
    if (!error.type) {
        return hold(makeTuple({none(), none(), none()}));
    }
    Ref tuple;
    try {
        tuple = makeTuple({error.type.get(), error.value ? error.value.get() : none(),
                           error.traceback ? error.traceback.get() : none()});
    } catch (const InternalPyException&) {
        restoreError(std::move(error));
        throw;
    }
    restoreError(std::move(error));
    return hold(std::move(tuple));
}

struct exception::PendingErrorAside::Saved {
    PendingError error;
};

exception::PendingErrorAside::PendingErrorAside() {
    if (running() && rawTable().PyErr_Occurred() != nullptr) {
        saved_ = std::make_unique<Saved>(Saved{takeError()});
    }
}

exception::PendingErrorAside::~PendingErrorAside() {
    // After pyClose the saved references die with the interpreter.
    if (saved_ && running() && rawTable().PyErr_Occurred() == nullptr) {
        restoreError(std::move(saved_->error));
    }
}

void interpreter::pyClose() {
    if (!running()) {
        return;
    }
    const capi::Table& t = rawTable();
    t.PyErr_Clear();
    try {
        Ref timeout = checked(t.PyFloat_FromDouble(kThreadShutdownTimeoutSeconds));
        callSupport("stop_threads", {timeout.get()});
    } catch (const InternalPyException&) {
        // Finalisation goes ahead whatever the wait met.
        t.PyErr_Clear();
    }
    dropCachedObjects();
    const int status = t.Py_FinalizeEx();
    enterClosed();
    if (status < 0) {
        throw InternalPyException("Finalising the Python interpreter reported a failure.");
    }
}

interpreter::GILRelease::GILRelease() : saved_(nullptr) {
    if (running() && rawTable().PyGILState_Check() == 1) {
        saved_ = rawTable().PyEval_SaveThread();
    }
}

interpreter::GILRelease::~GILRelease() {
    if (saved_ != nullptr && running()) {
        rawTable().PyEval_RestoreThread(static_cast<capi::PyThreadState*>(saved_));
    }
}

}  // namespace pylnk_core::api
