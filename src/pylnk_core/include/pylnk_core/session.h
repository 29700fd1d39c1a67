// References, the Python error indicator, and the interpreter's end.
#pragma once

#include <memory>

#include "pylnk_core/types.h"

namespace pylnk_core::api::managed {

// Adds a strong reference.
void pyAddReference(python::pyArray* object);
// Drops a strong reference. Does nothing once the interpreter is closed.
void pyDeleteObject(python::pyArray* object);

}  // namespace pylnk_core::api::managed

namespace pylnk_core::api::exception {

// A Python error is set. False when no interpreter is running.
bool pyErrorOccurred();
// Clears the Python error. Harmless with no error set or no interpreter.
void pyErrorClear();
// The pending error as a tuple (type, value, traceback or None), the value
// normalised to an exception instance. The error stays set: only
// pyErrorClear clears it. With no error set the answer is (None, None, None).
PyHolder pyErrorFetch();

// Sets a pending Python error aside for the length of a scope, so that the
// work inside starts with a clear indicator (the C API must not be entered
// with an error set). At the end the error is put back, unless the work left
// an error of its own: the newer one stands, as in Python. Does nothing when
// no interpreter runs.
class PendingErrorAside {
  public:
    PendingErrorAside();
    ~PendingErrorAside();
    PendingErrorAside(const PendingErrorAside&) = delete;
    PendingErrorAside& operator=(const PendingErrorAside&) = delete;

  private:
    struct Saved;
    std::unique_ptr<Saved> saved_;
};

}  // namespace pylnk_core::api::exception

namespace pylnk_core::api::interpreter {

// Seconds that pyClose waits, in total, for Python threads to end.
inline constexpr double kThreadShutdownTimeoutSeconds = 5.0;

// Finalises the interpreter. First it waits, as the interpreter does at exit,
// for the non-daemon threads that Python code started (running the hooks
// that ask executors to stop), for at most kThreadShutdownTimeoutSeconds in
// all; then it finalises regardless, so the call always returns. Threads
// still running are stopped by the interpreter when they next need it.
// Afterwards isPythonLoaded() is false, holders release nothing, and the
// interpreter cannot be started again in this process. Does nothing when no
// interpreter runs. Throws InternalPyException if finalisation reports a
// failure (the interpreter is gone all the same).
void pyClose();

// Scope around a wait of the interpreter's thread (the command loop's wait
// on its queue): releases the interpreter lock, so that Python threads run
// meanwhile, and takes it back with the same thread state at the end. Does
// nothing when no interpreter runs or the calling thread does not hold the
// lock. Must not be alive across pyClose.
class GILRelease {
  public:
    GILRelease();
    ~GILRelease();
    GILRelease(const GILRelease&) = delete;
    GILRelease& operator=(const GILRelease&) = delete;

  private:
    void* saved_;
};

}  // namespace pylnk_core::api::interpreter
