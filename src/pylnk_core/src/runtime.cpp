#include "runtime.h"

#include <atomic>

#include "support_module.h"

namespace pylnk_core::detail {
namespace {

struct State {
    std::atomic<Phase> phase{Phase::NotLoaded};
    capi::Table table;
    // Kept open for the life of the process: threads that outlive pyClose
    // may still be inside the library.
    void* library = nullptr;
    int minor = 0;
    // Namespace of the support code; owned, created on first use.
    PyObject* support = nullptr;
};

// Process-wide state of this file and the ones below, never destroyed: the
// interpreter's thread may run while the process runs its exit handlers.
State& state() {
    static auto* instance = new State;
    return *instance;
}

// The one choice that depends on the running version.
bool usesRaisedExceptionApi() {
    return state().minor >= capi::kRaisedExceptionSinceMinor;
}

// "<class name>: <str(value)>", read with the indicator clear; whatever
// cannot be read is left out.
std::string describe(const PendingError& error) {
    const capi::Table& t = rawTable();
    auto textOf = [&t](PyObject* object, bool useStr) {
        std::string text;
        Ref string{useStr ? t.PyObject_Str(object) : t.PyObject_GetAttrString(object, "__name__")};
        Py_ssize_t size = 0;
        const char* data = string ? t.PyUnicode_AsUTF8AndSize(string.get(), &size) : nullptr;
        if (data != nullptr) {
            text.assign(data, static_cast<std::size_t>(size));
        }
        t.PyErr_Clear();
        return text;
    };
    std::string text = error.type ? textOf(error.type.get(), false) : std::string();
    std::string message = error.value ? textOf(error.value.get(), true) : std::string();
    if (text.empty()) {
        text = "Python error";
    }
    return message.empty() ? text : text + ": " + message;
}

}  // namespace

Phase phase() noexcept {
    return state().phase.load(std::memory_order_acquire);
}

const capi::Table& rawTable() noexcept {
    return state().table;
}

const capi::Table& py() {
    if (!running()) {
        throw InternalPyException("The Python interpreter is not running.");
    }
    return state().table;
}

Ref& Ref::operator=(Ref&& other) noexcept {
    if (this != &other) {
        Ref old(release());
        object_ = other.release();
    }
    return *this;
}

Ref::~Ref() {
    if (object_ != nullptr && running()) {
        state().table.Py_DecRef(object_);
    }
}

Ref Ref::borrow(PyObject* object) {
    py().Py_IncRef(object);
    return Ref(object);
}

PendingError takeError() {
    const capi::Table& t = py();
    PendingError error;
    if (usesRaisedExceptionApi()) {
        error.value = Ref(t.PyErr_GetRaisedException());
        if (error.value) {
            error.type = Ref(t.PyObject_Type(error.value.get()));
            error.traceback = Ref(t.PyException_GetTraceback(error.value.get()));
        }
        return error;
    }
    PyObject* type = nullptr;
    PyObject* value = nullptr;
    PyObject* traceback = nullptr;
    t.PyErr_Fetch(&type, &value, &traceback);
    if (type == nullptr) {
        return error;
    }
    t.PyErr_NormalizeException(&type, &value, &traceback);
    if (value != nullptr && traceback != nullptr) {
        t.PyException_SetTraceback(value, traceback);
    }
    error.type = Ref(type);
    error.value = Ref(value);
    error.traceback = Ref(traceback);
    return error;
}

void restoreError(PendingError error) {
    const capi::Table& t = py();
    if (usesRaisedExceptionApi()) {
        if (error.value) {
            t.PyErr_SetRaisedException(error.value.release());
        }
        return;
    }
    if (error.type) {
        t.PyErr_Restore(error.type.release(), error.value.release(), error.traceback.release());
    }
}

void throwPending() {
    const capi::Table& t = py();
    if (t.PyErr_Occurred() == nullptr) {
        t.PyErr_SetString(*t.ExcRuntimeError, "a Python call failed without setting an error");
    }
    PendingError error = takeError();
    std::string message = describe(error);
    restoreError(std::move(error));
    throw InternalPyException(message);
}

void raise(PyObject* exceptionClass, const std::string& message) {
    py().PyErr_SetString(exceptionClass, message.c_str());
    throwPending();
}

Ref checked(PyObject* newReference) {
    if (newReference == nullptr) {
        throwPending();
    }
    return Ref(newReference);
}

int checked(int status) {
    if (status == -1) {
        throwPending();
    }
    return status;
}

PyObject* need(PyObject* object) {
    if (object == nullptr) {
        raise(*py().ExcValueError, "a null object was passed to the Python bridge");
    }
    return object;
}

api::PyHolder hold(Ref object) {
    return api::adoptReference(object.release());
}

PyObject* none() {
    return py().None;
}

Ref newNone() {
    return Ref::borrow(py().None);
}

Ref newString(std::string_view utf8) {
    return checked(
        py().PyUnicode_FromStringAndSize(utf8.data(), static_cast<Py_ssize_t>(utf8.size())));
}

std::string utf8Of(PyObject* text) {
    Py_ssize_t size = 0;
    const char* data = py().PyUnicode_AsUTF8AndSize(need(text), &size);
    if (data == nullptr) {
        throwPending();
    }
    return std::string(data, static_cast<std::size_t>(size));
}

Ref importModule(const char* name) {
    return checked(py().PyImport_ImportModule(name));
}

Ref getAttr(PyObject* object, const char* name) {
    return checked(py().PyObject_GetAttrString(need(object), name));
}

Ref makeTuple(std::initializer_list<PyObject*> items) {
    const capi::Table& t = py();
    Ref tuple = checked(t.PyTuple_New(static_cast<Py_ssize_t>(items.size())));
    Py_ssize_t index = 0;
    for (PyObject* item : items) {
        need(item);
        t.Py_IncRef(item);
        checked(t.PyTuple_SetItem(tuple.get(), index++, item));
    }
    return tuple;
}

Ref call(PyObject* callable, std::initializer_list<PyObject*> args, PyObject* keywords) {
    Ref tuple = makeTuple(args);
    return checked(py().PyObject_Call(need(callable), tuple.get(), keywords));
}

Ref tupleFromHolders(const std::vector<api::PyHolder>& items) {
    const capi::Table& t = py();
    Ref tuple = checked(t.PyTuple_New(static_cast<Py_ssize_t>(items.size())));
    Py_ssize_t index = 0;
    for (const api::PyHolder& item : items) {
        PyObject* object = need(item.get());
        t.Py_IncRef(object);
        checked(t.PyTuple_SetItem(tuple.get(), index++, object));
    }
    return tuple;
}

Ref dictFromPairs(const std::vector<std::pair<api::PyHolder, api::PyHolder>>& items) {
    const capi::Table& t = py();
    Ref dict = checked(t.PyDict_New());
    for (const auto& [key, value] : items) {
        checked(t.PyDict_SetItem(dict.get(), need(key.get()), need(value.get())));
    }
    return dict;
}

PyObject* requireInstance(PyObject* object, PyObject* type, const char* what) {
    need(object);
    if (checked(py().PyObject_IsInstance(object, type)) == 0) {
        Ref actual(py().PyObject_Type(object));
        std::string name = "object";
        if (Ref text{py().PyObject_GetAttrString(actual.get(), "__name__")}) {
            name = utf8Of(text.get());
        }
        raise(*py().ExcTypeError, std::string("expected ") + what + ", got " + name);
    }
    return object;
}

const char* needText(const char* text) {
    if (text == nullptr) {
        raise(*py().ExcValueError, "a null text was passed to the Python bridge");
    }
    return text;
}

void clearErrorIfRunning() noexcept {
    if (running()) {
        state().table.PyErr_Clear();
    }
}

bool isInstanceQuiet(PyObject* object, PyObject* type) noexcept {
    if (object == nullptr || !running()) {
        return false;
    }
    const capi::Table& t = state().table;
    int answer = t.PyObject_IsInstance(object, type);
    if (answer < 0) {
        t.PyErr_Clear();
        return false;
    }
    return answer == 1;
}

Ref callSupport(const char* function, std::initializer_list<PyObject*> args, PyObject* keywords) {
    const capi::Table& t = py();
    State& s = state();
    if (s.support == nullptr) {
        Ref scope = checked(t.PyDict_New());
        Ref builtins = importModule("builtins");
        checked(t.PyDict_SetItemString(scope.get(), "__builtins__", builtins.get()));
        Ref name = newString("_pylnk_core_support");
        checked(t.PyDict_SetItemString(scope.get(), "__name__", name.get()));
        for (const char* const* source = supportSources(); *source != nullptr; ++source) {
            checked(t.PyRun_StringFlags(*source, capi::Py_file_input, scope.get(), scope.get(),
                                        nullptr));
        }
        s.support = scope.release();
    }
    PyObject* callable = t.PyDict_GetItemString(s.support, function);
    if (callable == nullptr) {
        raise(*t.ExcRuntimeError, std::string("missing support function ") + function);
    }
    return call(callable, args, keywords);
}

void enterRunning(const LoadedInterpreter& loaded) {
    State& s = state();
    s.table = loaded.table;
    s.library = loaded.library;
    s.minor = loaded.minor;
    s.phase.store(Phase::Running, std::memory_order_release);
}

void dropCachedObjects() {
    State& s = state();
    if (s.support != nullptr && running()) {
        s.table.Py_DecRef(s.support);
    }
    s.support = nullptr;
}

void enterClosed() {
    state().phase.store(Phase::Closed, std::memory_order_release);
}

}  // namespace pylnk_core::detail
