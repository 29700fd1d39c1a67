#include <algorithm>
#include <bit>
#include <cstring>

#include "pylnk_core/object.h"
#include "pylnk_core/type.h"
#include "runtime.h"

#include <boost/locale/encoding_utf.hpp>

namespace pylnk_core::api::object {

using namespace detail;

PyHolder pyGetMember(python::pyArray* object, const char* name) {
    return hold(getAttr(object, needText(name)));
}

PyOwned pyGetMemberOwned(python::pyArray* object, const char* name) {
    return PyOwned(getAttr(object, needText(name)).release());
}

PyHolder pyGetMember(python::pyArray* object, python::pyArray* name) {
    return hold(checked(py().PyObject_GetAttr(need(object), need(name))));
}

// A missing attribute is the common answer of these tests, so the failure is
// cleared on the spot instead of travelling as an exception.
namespace {

// A missing attribute is told without an AttributeError being made, which
// costs more than the lookup itself; any other failure answers false too.
bool hasAttribute(PyObject* object, PyObject* name) {
    const capi::Table& t = py();
    PyObject* found = nullptr;
    const int answer = t.LookupAttr(need(object), need(name), &found);
    Ref member(found);
    if (answer < 0) {
        t.PyErr_Clear();
    }
    return answer > 0;
}

}  // namespace

bool pyHasMember(python::pyArray* object, const char* name) {
    return quietly([&] { return hasAttribute(object, nameObject(name).get()); });
}

bool pyHasMember(python::pyArray* object, python::pyArray* name) {
    return quietly([&] { return hasAttribute(object, name); });
}

void pySetMember(python::pyArray* object, python::pyArray* name, python::pyArray* value) {
    checked(py().PyObject_SetAttr(need(object), need(name), need(value)));
}

PyHolder pyGetClass(python::pyArray* object) {
    return hold(getAttr(object, "__class__"));
}

PyOwned pyGetClassOwned(python::pyArray* object) {
    return PyOwned(getAttr(object, "__class__").release());
}

PyHolder pyGetType(python::pyArray* object) {
    return hold(checked(py().PyObject_Type(need(object))));
}

PyHolder pyDir(python::pyArray* object) {
    return hold(checked(py().PyObject_Dir(need(object))));
}

PyHolder pyStr(python::pyArray* object) {
    return hold(checked(py().PyObject_Str(need(object))));
}

PyHolder pyGetHash(python::pyArray* object) {
    const capi::Table& t = py();
    Py_ssize_t hash = t.PyObject_Hash(need(object));
    if (hash == -1 && t.PyErr_Occurred() != nullptr) {
        throwPending();
    }
    return hold(checked(t.PyLong_FromSsize_t(hash)));
}

bool pyEqual(python::pyArray* object, python::pyArray* other) {
    return checked(py().PyObject_RichCompareBool(need(object), need(other), capi::Py_EQ)) == 1;
}

bool pyIsInstance(python::pyArray* object, python::pyArray* type) {
    return type != nullptr && isInstanceQuiet(object, type);
}

bool pyIsType(python::pyArray* object) {
    return quietly([&] { return isInstanceQuiet(object, py().TypeType); });
}

bool pyIsCallable(python::pyArray* object) {
    return quietly([&] { return object != nullptr && py().PyCallable_Check(object) == 1; });
}

bool pyIsNone(python::pyArray* object) {
    return quietly([&] { return object != nullptr && object == py().None; });
}

bool pyIsBuiltin(python::pyArray* object, const char* name) {
    return quietly([&] {
        Ref type = checked(py().PyObject_Type(need(object)));
        return type::pyTypeIsBuiltin(type.get(), name);
    });
}

bool pyInspect(PyHolder object, const char* predicate) {
    Ref inspect = importModule("inspect");
    Ref test = moduleMember(inspect.get(), needText(predicate));
    Ref answer = call(test.get(), {need(object.get())});
    return checked(py().PyObject_IsTrue(answer.get())) == 1;
}

PyHolder pyInvoke(python::pyArray* callable, const std::vector<PyHolder>& args,
                  const std::vector<std::pair<PyHolder, PyHolder>>& keywords) {
    Ref tuple = tupleFromHolders(args);
    Ref dict = keywords.empty() ? Ref() : dictFromPairs(keywords);
    return hold(checked(py().PyObject_Call(need(callable), tuple.get(), dict.get())));
}

PyHolder pyInvoke(python::pyArray* callable, python::pyArray* argsTuple,
                  python::pyArray* keywordDict) {
    return PyHolder(pyInvokeOwned(callable, argsTuple, keywordDict));
}

PyOwned pyInvokeOwned(python::pyArray* callable, python::pyArray* argsTuple,
                      python::pyArray* keywordDict) {
    const capi::Table& t = py();
    need(callable);
    Ref args;
    if (argsTuple == nullptr) {
        args = checked(t.PyTuple_New(0));
    } else if (isInstanceQuiet(argsTuple, t.TupleType)) {
        args = Ref::borrow(argsTuple);
    } else {
        args = checked(t.PySequence_Tuple(argsTuple));
    }
    if (keywordDict != nullptr) {
        requireInstance(keywordDict, t.DictType, "a dict of keyword arguments");
    }
    return PyOwned(checked(t.PyObject_Call(callable, args.get(), keywordDict)).release());
}

const char* pyGetChars(python::pyArray* object) {
    const capi::Table& t = py();
    requireInstance(object, t.UnicodeType, "a str");
    Py_ssize_t size = 0;
    const char* text = t.PyUnicode_AsUTF8AndSize(object, &size);
    if (text == nullptr) {
        throwPending();
    }
    return text;
}

std::u16string get_ustring(python::pyArray* object) {
    const capi::Table& t = py();
    requireInstance(object, t.UnicodeType, "a str");
    // Through the UTF-8 form the string keeps (for ASCII, its own data):
    // no codec lookup, no bytes object.
    Py_ssize_t length = 0;
    if (const char* utf8 = t.PyUnicode_AsUTF8AndSize(object, &length)) {
        const char* end = utf8 + length;
        if (std::all_of(utf8, end, [](char c) { return (c & 0x80) == 0; })) {
            return std::u16string(utf8, end);  // ASCII widens unit by unit
        }
        return boost::locale::conv::utf_to_utf<char16_t>(utf8, end);
    }
    // Unpaired surrogates have no UTF-8 form; they pass unchanged, as
    // pyCreateString takes them.
    t.PyErr_Clear();
    const char* encoding = std::endian::native == std::endian::little ? "utf-16-le" : "utf-16-be";
    Ref bytes = checked(t.PyUnicode_AsEncodedString(object, encoding, "surrogatepass"));
    char* data = nullptr;
    Py_ssize_t size = 0;
    checked(t.PyBytes_AsStringAndSize(bytes.get(), &data, &size));
    std::u16string text(static_cast<std::size_t>(size) / sizeof(char16_t), u'\0');
    std::memcpy(text.data(), data, text.size() * sizeof(char16_t));
    return text;
}

std::string get_stdstring(python::pyArray* object) {
    return std::string(get_bytesview(object));
}

std::string_view get_bytesview(python::pyArray* object) {
    const capi::Table& t = py();
    requireInstance(object, t.BytesType, "bytes");
    char* data = nullptr;
    Py_ssize_t size = 0;
    checked(t.PyBytes_AsStringAndSize(object, &data, &size));
    return std::string_view(data, static_cast<std::size_t>(size));
}

std::string pyDatetimeGetTimezone(python::pyArray* datetime) {
    Ref text = callSupport("timezone_text", {need(datetime)});
    return utf8Of(text.get());
}

std::string pyGetVXClassName(python::pyArray* object) {
    Ref type = checked(py().PyObject_Type(need(object)));
    return type::pyTypeVXName(type.get());
}

PyHolder pyIsEqualOperator(std::vector<PyHolder>& args,
                           std::vector<std::pair<PyHolder, PyHolder>>& keywords) {
    Ref module = importModule("operator");
    Ref equal = getAttr(module.get(), "eq");
    return pyInvoke(equal.get(), args, keywords);
}

bool pyIsEqualNumpyArray(std::vector<PyHolder>& args,
                         std::vector<std::pair<PyHolder, PyHolder>>& keywords) {
    Ref module = importModule("numpy");
    Ref equal = getAttr(module.get(), "array_equal");
    PyHolder answer = pyInvoke(equal.get(), args, keywords);
    return checked(py().PyObject_IsTrue(answer.get())) == 1;
}

}  // namespace pylnk_core::api::object
