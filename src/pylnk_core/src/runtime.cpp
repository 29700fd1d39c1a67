#include "runtime.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <unordered_map>

#include "support_module.h"

namespace pylnk_core::detail {

// One name by the address of its C text. A hit is checked against the text,
// so an address that now holds other text merely misses.
struct NameHint {
    const char* address = nullptr;
    std::string text;
    PyObject* name = nullptr;  // borrowed from State::names
    // The module of that name, found fully initialised in sys.modules; owned,
    // so that its address stays its own while it is compared.
    PyObject* module = nullptr;
};

namespace {

// Lets the maps below be searched with C text, without making a string.
struct TextHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const noexcept {
        return std::hash<std::string_view>{}(text);
    }
};

struct State {
    // Kept open for the life of the process: threads that outlive pyClose
    // may still be inside the library.
    void* library = nullptr;
    int minor = 0;
    // Namespace of the support code; owned, created on first use.
    PyObject* support = nullptr;
    // Interned str objects of names the bridge looks up by C text; owned.
    std::unordered_map<std::string, PyObject*, TextHash, std::equal_to<>> names;
    // In front of that map: the library asks for the same few names from the
    // same string literals over and over.
    std::array<NameHint, 256> hints;
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

Core* const core = new Core;

void throwNotRunning() {
    throw InternalPyException("The Python interpreter is not running.");
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
        core->table.Py_DecRef(object_);
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

namespace {

// What the import machinery itself asks before it hands out a module from
// sys.modules: a module that a Python thread is still initialising is
// waited for by the machinery, so it takes the slow road.
bool isInitialising(PyObject* module) {
    const capi::Table& t = py();
    Ref spec(t.PyObject_GetAttr(module, nameObject("__spec__").get()));
    if (!spec) {
        t.PyErr_Clear();
        return false;
    }
    // Read from the instance dict: most specs lack the flag, and a failed
    // attribute read would format an error message each time.
    Ref attributes(t.PyObject_GetAttr(spec.get(), nameObject("__dict__").get()));
    if (!attributes) {
        t.PyErr_Clear();
        return false;
    }
    PyObject* initialising = t.PyDict_GetItem(attributes.get(), nameObject("_initializing").get());
    if (initialising == nullptr) {
        return false;
    }
    const int answer = t.PyObject_IsTrue(initialising);
    if (answer < 0) {
        t.PyErr_Clear();
    }
    return answer > 0;
}

}  // namespace

Ref importModule(const char* name) {
    const capi::Table& t = py();
    // An imported module is what import gives back; looking it up directly
    // spares the import machinery's call into Python on every use.
    NameHint* hint = nullptr;
    Ref key = nameObject(name, &hint);
    PyObject* module = t.PyDict_GetItem(t.PyImport_GetModuleDict(), key.get());
    if (module != nullptr && module != t.None) {
        if (hint != nullptr && hint->module == module) {
            return Ref::borrow(module);
        }
        if (!isInitialising(module)) {
            if (hint != nullptr) {
                t.Py_IncRef(module);
                if (hint->module != nullptr) {
                    t.Py_DecRef(hint->module);
                }
                hint->module = module;
            }
            return Ref::borrow(module);
        }
    }
    return checked(t.PyImport_ImportModule(name));
}

Ref nameObject(const char* name, NameHint** hintOut) {
    State& s = state();
    needText(name);
    NameHint& hint = s.hints[(reinterpret_cast<std::uintptr_t>(name) >> 3) % s.hints.size()];
    if (hint.address == name && std::strcmp(name, hint.text.c_str()) == 0) {
        if (hintOut != nullptr) {
            *hintOut = &hint;
        }
        return Ref::borrow(hint.name);
    }
    PyObject* interned = nullptr;
    if (auto found = s.names.find(std::string_view(name)); found != s.names.end()) {
        interned = found->second;
    } else {
        interned = py().PyUnicode_InternFromString(name);
        if (interned == nullptr) {
            throwPending();
        }
        // Names come mostly from the library's own code; the host's own text
        // also passes here, so the cache stops growing at some point.
        constexpr std::size_t kMostNames = 4096;
        if (s.names.size() >= kMostNames) {
            return Ref(interned);
        }
        s.names.emplace(name, interned);
    }
    if (hint.module != nullptr) {
        py().Py_DecRef(hint.module);
    }
    hint = NameHint{name, name, interned, nullptr};
    if (hintOut != nullptr) {
        *hintOut = &hint;
    }
    return Ref::borrow(interned);
}

Ref nameObject(const char* name) {
    return nameObject(name, nullptr);
}

Ref getAttr(PyObject* object, const char* name) {
    need(object);
    Ref key = nameObject(name);
    return checked(py().PyObject_GetAttr(object, key.get()));
}

Ref moduleMember(PyObject* module, const char* name) {
    const capi::Table& t = py();
    Ref key = nameObject(name);
    Ref type(t.PyObject_Type(need(module)));
    if (type.get() == t.ModuleType) {
        if (PyObject* member = t.PyDict_GetItem(t.PyModule_GetDict(module), key.get())) {
            return Ref::borrow(member);
        }
    }
    return checked(t.PyObject_GetAttr(module, key.get()));
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
    if (args.size() == 1 && keywords == nullptr) {
        // The common call of one argument, without a tuple of its own.
        return checked(py().PyObject_CallFunctionObjArgs(need(callable), need(*args.begin()),
                                                         static_cast<PyObject*>(nullptr)));
    }
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
        core->table.PyErr_Clear();
    }
}

bool isInstanceQuiet(PyObject* object, PyObject* type) noexcept {
    if (object == nullptr || !running()) {
        return false;
    }
    const capi::Table& t = core->table;
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
    PyObject* callable = t.PyDict_GetItem(s.support, nameObject(function).get());
    if (callable == nullptr) {
        raise(*t.ExcRuntimeError, std::string("missing support function ") + function);
    }
    return call(callable, args, keywords);
}

void enterRunning(const LoadedInterpreter& loaded) {
    State& s = state();
    core->table = loaded.table;
    s.library = loaded.library;
    s.minor = loaded.minor;
    core->phase.store(Phase::Running, std::memory_order_release);
}

void dropCachedObjects() {
    State& s = state();
    if (running()) {
        if (s.support != nullptr) {
            core->table.Py_DecRef(s.support);
        }
        for (const auto& [name, object] : s.names) {
            core->table.Py_DecRef(object);
        }
        for (NameHint& hint : s.hints) {
            if (hint.module != nullptr) {
                core->table.Py_DecRef(hint.module);
            }
        }
    }
    s.support = nullptr;
    s.names.clear();
    s.hints.fill(NameHint{});
}

void enterClosed() {
    core->phase.store(Phase::Closed, std::memory_order_release);
}

}  // namespace pylnk_core::detail
