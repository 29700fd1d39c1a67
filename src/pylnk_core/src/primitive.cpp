#include <bit>
#include <cstring>
#include <limits>

#include "pylnk_core/object.h"
#include "pylnk_core/primitive.h"
#include "runtime.h"

namespace pylnk_core::api::primitive {

using namespace detail;

namespace {

// Reads an int, or anything with __index__, through `read`. The same rule on
// every version: 3.8 and 3.9 would otherwise truncate floats through
// __int__, later versions refuse them.
template <class T, class Read>
bool readInteger(python::pyArray* object, Read read, T& out) {
    const capi::Table& t = py();
    Ref integer(t.PyNumber_Index(need(object)));
    if (!integer) {
        return false;
    }
    T value = read(integer.get());
    if (value == static_cast<T>(-1) && t.PyErr_Occurred() != nullptr) {
        return false;
    }
    out = value;
    return true;
}

// The second failure rule: report through the Python error only. A null
// object or a stopped interpreter leave a Python error as well where one can
// be set.
template <class Read>
void readQuietly(Read read) noexcept {
    try {
        read();
    } catch (const InternalPyException&) {
        // The error is set; the caller asks pyErrorOccurred.
    } catch (...) {
    }
}

}  // namespace

PyHolder pyCreateNone() {
    return hold(newNone());
}

PyHolder pyCreateBool(bool value) {
    return hold(checked(py().PyBool_FromLong(value ? 1 : 0)));
}

PyHolder pyCreateInt(long value) {
    return hold(checked(py().PyLong_FromLong(value)));
}

PyHolder pyCreateLong(long long value) {
    return hold(checked(py().PyLong_FromLongLong(value)));
}

PyHolder pyCreateULong(unsigned long long value) {
    return hold(checked(py().PyLong_FromUnsignedLongLong(value)));
}

PyHolder pyCreateFloat(double value) {
    return hold(checked(py().PyFloat_FromDouble(value)));
}

PyHolder pyCreateComplex(double re, double im) {
    return hold(checked(py().PyComplex_FromDoubles(re, im)));
}

PyHolder pyCreateString(const std::string& text) {
    return hold(newString(text));
}

PyHolder pyCreateString(const std::u16string& text) {
    int byteOrder = std::endian::native == std::endian::little ? -1 : 1;
    return hold(checked(py().PyUnicode_DecodeUTF16(
        reinterpret_cast<const char*>(text.data()),
        static_cast<Py_ssize_t>(text.size() * sizeof(char16_t)), "surrogatepass", &byteOrder)));
}

bool pyIsBool(python::pyArray* object) {
    return quietly([&] { return isInstanceQuiet(object, py().BoolType); });
}

bool pyIsFloat(python::pyArray* object) {
    return quietly([&] { return isInstanceQuiet(object, py().FloatType); });
}

bool pyIsComplex(python::pyArray* object) {
    return quietly([&] { return isInstanceQuiet(object, py().ComplexType); });
}

bool pyIsString(python::pyArray* object) {
    return quietly([&] { return isInstanceQuiet(object, py().UnicodeType); });
}

bool pyIsLong(python::pyArray* object) {
    return quietly([&] {
        return isInstanceQuiet(object, py().LongType) && !isInstanceQuiet(object, py().BoolType);
    });
}

bool pyIsInt(python::pyArray*) {
    return false;
}

bool pyBoolGetData(python::pyArray* object) {
    bool value = false;
    readQuietly([&] {
        int truth = py().PyObject_IsTrue(need(object));
        value = truth == 1;
    });
    return value;
}

double pyFloatGetData(python::pyArray* object) {
    double value = std::numeric_limits<double>::quiet_NaN();
    readQuietly([&] {
        const capi::Table& t = py();
        double read = t.PyFloat_AsDouble(need(object));
        if (read != -1.0 || t.PyErr_Occurred() == nullptr) {
            value = read;
        }
    });
    return value;
}

void pyComplexGetData(python::pyArray* object, double* re, double* im) {
    readQuietly([&] {
        const capi::Table& t = py();
        need(object);
        if (re == nullptr || im == nullptr) {
            raise(*t.ExcValueError, "pyComplexGetData needs two places to write to");
        }
        capi::Py_complex value = t.PyComplex_AsCComplex(object);
        if (value.real == -1.0 && t.PyErr_Occurred() != nullptr) {
            return;
        }
        *re = value.real;
        *im = value.imag;
    });
}

void pyLongGetData(python::pyArray* object, long long* value) {
    readQuietly([&] {
        if (value == nullptr) {
            raise(*py().ExcValueError, "pyLongGetData needs a place to write to");
        }
        readInteger(object, py().PyLong_AsLongLong, *value);
    });
}

void pyLongGetDataU(python::pyArray* object, unsigned long long* value) {
    readQuietly([&] {
        if (value == nullptr) {
            raise(*py().ExcValueError, "pyLongGetDataU needs a place to write to");
        }
        readInteger(object, py().PyLong_AsUnsignedLongLong, *value);
    });
}

long pyIntGetData(python::pyArray* object) {
    long value = 0;
    if (!readInteger(object, py().PyLong_AsLong, value)) {
        throwPending();
    }
    return value;
}

const char* pyStringGetData(python::pyArray* object) {
    return object::pyGetChars(object);
}

PyHolder pyCreateNumericArray(std::size_t byteCount, char typeCode, void* data) {
    const capi::Table& t = py();
    if (data == nullptr && byteCount > 0) {
        raise(*t.ExcValueError, "pyCreateNumericArray was given no data");
    }
    if (byteCount > static_cast<std::size_t>(std::numeric_limits<Py_ssize_t>::max())) {
        raise(*t.ExcValueError, "pyCreateNumericArray was given too many bytes");
    }
    Ref code = newString(std::string_view(&typeCode, 1));
    Ref module = importModule("array");
    Ref arrayClass = getAttr(module.get(), "array");
    Ref result = call(arrayClass.get(), {code.get()});
    if (byteCount > 0) {
        // frombytes reads the caller's memory through a view: one copy,
        // straight into the array's own storage.
        Ref view = checked(t.PyMemoryView_FromMemory(
            static_cast<char*>(data), static_cast<Py_ssize_t>(byteCount), capi::PyBUF_READ));
        Ref frombytes = getAttr(result.get(), "frombytes");
        call(frombytes.get(), {view.get()});
    }
    return hold(std::move(result));
}

void pyNumericArrayGetData(python::pyArray* object, std::size_t* byteLength, long* itemSize,
                           char* typeCode, void** data) {
    const capi::Table& t = py();
    need(object);
    if (byteLength == nullptr || itemSize == nullptr || typeCode == nullptr || data == nullptr) {
        raise(*t.ExcValueError, "pyNumericArrayGetData needs four places to write to");
    }
    capi::Py_buffer view{};
    checked(t.PyObject_GetBuffer(object, &view, capi::PyBUF_FORMAT | capi::PyBUF_ANY_CONTIGUOUS));
    // A format without a byte-order mark is native; with one, the item
    // character follows it. Items in the other byte order would read as
    // wrong numbers, so they are refused.
    const char* format = view.format != nullptr ? view.format : "B";
    const char foreignOrder = std::endian::native == std::endian::little ? '>' : '<';
    if (format[0] == foreignOrder ||
        (format[0] == '!' && std::endian::native != std::endian::big)) {
        const std::string text = format;
        t.PyBuffer_Release(&view);
        raise(*t.ExcValueError, "the data of format '" + text +
                                    "' is not in the machine's byte order; convert it first");
    }
    if (format[0] != '\0' && std::strchr("@=<>!", format[0]) != nullptr) {
        ++format;
    }
    *byteLength = static_cast<std::size_t>(view.len);
    *itemSize = static_cast<long>(view.itemsize);
    *typeCode = format[0];
    // The exporter keeps its storage while it lives; the view is not needed.
    *data = view.buf;
    t.PyBuffer_Release(&view);
}

}  // namespace pylnk_core::api::primitive
