#include <array>
#include <cstring>
#include <string_view>

#include "pylnk_core/type.h"
#include "runtime.h"

namespace pylnk_core::api::type {

using namespace detail;

namespace {

bool isClass(PyObject* object) {
    return isInstanceQuiet(object, py().TypeType);
}

// Classes whose objects the host receives as bytes or text, never as arrays.
constexpr std::array<std::string_view, 2> kExcludedFromBuffer = {"bytes", "bytearray"};

bool eachItemIs(PyObject* list, const char* kind, std::size_t& place) {
    const capi::Table& t = py();
    Ref name = newString(kind);
    Ref first = callSupport("first_not_instance", {need(list), name.get()});
    long long index = t.PyLong_AsLongLong(first.get());
    if (index == -1) {
        if (t.PyErr_Occurred() != nullptr) {
            throwPending();
        }
        return true;
    }
    place = static_cast<std::size_t>(index);
    return false;
}

}  // namespace

std::string pyTypeVXName(python::pyArray* type) {
    requireInstance(type, py().TypeType, "a class");
    Ref name = callSupport("vx_name", {type});
    return utf8Of(name.get());
}

bool pyTypeIsBuiltin(python::pyArray* type, const char* name) {
    return quietly([&] {
        if (!isClass(type) || name == nullptr) {
            return false;
        }
        Ref builtins = importModule("builtins");
        Ref named(py().PyObject_GetAttr(builtins.get(), nameObject(name).get()));
        clearErrorIfRunning();
        return named.get() == type;
    });
}

bool pyTypeImplementsCollection(python::pyArray* type, const char* name) {
    if (!quietly([&] { return isClass(type); }) || name == nullptr) {
        return false;
    }
    Ref text = newString(name);
    Ref answer = callSupport("implements_collection", {type, text.get()});
    return checked(py().PyObject_IsTrue(answer.get())) == 1;
}

bool pyTypeIsNumericArray(python::pyArray* type) {
    return quietly([&] {
        Ref module = importModule("array");
        Ref arrayClass = getAttr(module.get(), "array");
        return type != nullptr && arrayClass.get() == type;
    });
}

bool pyTypeIsPandasSeries(python::pyArray* type) {
    return quietly([&] {
        const capi::Table& t = py();
        PyObject* modules = t.PySys_GetObject("modules");
        PyObject* pandas = modules != nullptr ? t.PyDict_GetItemString(modules, "pandas") : nullptr;
        if (pandas == nullptr || type == nullptr) {
            return false;
        }
        Ref series = getAttr(pandas, "Series");
        return series.get() == type;
    });
}

bool pyTypeIsSubclass(python::pyArray* type, python::pyArray* base) {
    const bool classes = quietly(
        [&] { return isClass(type) && (isClass(base) || isInstanceQuiet(base, py().TupleType)); });
    return classes && checked(py().PyObject_IsSubclass(type, base)) == 1;
}

bool pyIsExcludedTypeForBuffer(const char* typeName) {
    if (typeName == nullptr) {
        return false;
    }
    for (std::string_view excluded : kExcludedFromBuffer) {
        if (excluded == typeName) {
            return true;
        }
    }
    return false;
}

bool pyEachObjTypeOfListIsDatetime(python::pyArray* list, std::size_t& place) {
    return eachItemIs(list, "datetime", place);
}

bool pyEachObjTypeOfListIsTimeDelta(python::pyArray* list, std::size_t& place) {
    return eachItemIs(list, "timedelta", place);
}

}  // namespace pylnk_core::api::type
