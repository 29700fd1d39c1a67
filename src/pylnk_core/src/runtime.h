// Internal core of the bridge: the process-wide interpreter state, owned
// references for temporaries, and the failure helpers every operation uses.
#pragma once

#include <atomic>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "capi.h"
#include "pylnk_core/errors.h"
#include "pylnk_core/types.h"

namespace pylnk_core::detail {

using capi::Py_ssize_t;
using capi::PyObject;

enum class Phase { NotLoaded, Running, Closed };

// What every call of the bridge reads first: kept where an inline function
// reaches it without a call. Created when the library loads, never destroyed.
struct Core {
    std::atomic<Phase> phase{Phase::NotLoaded};
    capi::Table table;
};
extern Core* const core;

inline Phase phase() noexcept {
    return core->phase.load(std::memory_order_acquire);
}
inline bool running() noexcept {
    return phase() == Phase::Running;
}

[[noreturn]] void throwNotRunning();

// The entry points of the running interpreter. Throws InternalPyException
// when none runs, so that no call can reach a missing or finalised one.
inline const capi::Table& py() {
    if (!running()) {
        throwNotRunning();
    }
    return core->table;
}

// One owned reference, for temporaries inside an operation.
class Ref {
  public:
    Ref() noexcept = default;
    explicit Ref(PyObject* owned) noexcept : object_(owned) {}
    Ref(Ref&& other) noexcept : object_(other.release()) {}
    Ref& operator=(Ref&& other) noexcept;
    Ref(const Ref&) = delete;
    Ref& operator=(const Ref&) = delete;
    ~Ref();

    static Ref borrow(PyObject* object);

    PyObject* get() const noexcept { return object_; }
    PyObject* release() noexcept {
        PyObject* object = object_;
        object_ = nullptr;
        return object;
    }
    explicit operator bool() const noexcept { return object_ != nullptr; }

  private:
    PyObject* object_ = nullptr;
};

// Throws InternalPyException with the text of the pending Python error, which
// stays set. Sets a RuntimeError first if a call failed without one.
[[noreturn]] void throwPending();
// Sets a Python error of the given class and throws it as above.
[[noreturn]] void raise(PyObject* exceptionClass, const std::string& message);

// A new reference from a C API call, or the pending error thrown.
Ref checked(PyObject* newReference);
// A status of -1 from a C API call throws the pending error.
int checked(int status);
// Throws a Python ValueError for a null object argument.
PyObject* need(PyObject* object);

api::PyHolder hold(Ref object);

// The pending error taken out of the interpreter, value normalised to an
// exception instance; all empty when none is set. How it is taken and put
// back depends on the interpreter's version.
struct PendingError {
    Ref type;
    Ref value;
    Ref traceback;
};
PendingError takeError();
void restoreError(PendingError error);

// Small conveniences over the table.
PyObject* none();
Ref newNone();
Ref newString(std::string_view utf8);
std::string utf8Of(PyObject* text);
Ref importModule(const char* name);
// The interned str of a name, kept by the bridge for later lookups.
Ref nameObject(const char* name);
struct NameHint;
Ref nameObject(const char* name, NameHint** hint);
Ref getAttr(PyObject* object, const char* name);
// getattr(module, name), read from the module's dict when it is a plain
// module (what getattr would find there), else by getattr.
Ref moduleMember(PyObject* module, const char* name);
Ref makeTuple(std::initializer_list<PyObject*> items);
Ref call(PyObject* callable, std::initializer_list<PyObject*> args, PyObject* keywords = nullptr);
Ref tupleFromHolders(const std::vector<api::PyHolder>& items);
Ref dictFromPairs(const std::vector<std::pair<api::PyHolder, api::PyHolder>>& items);
// Raises TypeError unless isinstance(object, type); `what` names the type.
PyObject* requireInstance(PyObject* object, PyObject* type, const char* what);
// Raises ValueError for a null text argument.
const char* needText(const char* text);

void clearErrorIfRunning() noexcept;

// Runs a predicate's test: whatever goes wrong answers false, and no Python
// error is left set.
template <class Test>
bool quietly(Test&& test) noexcept {
    try {
        return test();
    } catch (...) {
        clearErrorIfRunning();
        return false;
    }
}
bool isInstanceQuiet(PyObject* object, PyObject* type) noexcept;

// Calls a function of the bridge's own support code (support_module.cpp),
// compiled once per interpreter.
Ref callSupport(const char* function, std::initializer_list<PyObject*> args,
                PyObject* keywords = nullptr);

// For the loader and pyClose only.
struct LoadedInterpreter {
    capi::Table table;
    void* library;
    int minor;
};
void enterRunning(const LoadedInterpreter& loaded);
void enterClosed();
void dropCachedObjects();
inline const capi::Table& rawTable() noexcept {
    return core->table;
}

}  // namespace pylnk_core::detail
