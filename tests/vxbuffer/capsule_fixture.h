// One embedded interpreter per test process with libvxbuffer imported from the
// build's module folder, its capsule table, and small helpers to run Python.
#pragma once

#define PY_SSIZE_T_CLEAN
#include <Python.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <foundation/veltradata.h>
#include <vxbuffer/capi.h>

namespace vxbuffer_test {

namespace vd = foundation::veltradata;

struct Decref {
    void operator()(PyObject* object) const { Py_XDECREF(object); }
};
using Ref = std::unique_ptr<PyObject, Decref>;

inline python::pyArray* pyArray(PyObject* p) {
    return reinterpret_cast<python::pyArray*>(p);
}
inline Ref own(python::pyArray* p) {
    return Ref(reinterpret_cast<PyObject*>(p));
}

class Capsule : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        if (!Py_IsInitialized()) {
            Py_InitializeEx(0);
            const std::string setup = std::string("import sys\nsys.path.insert(0, '") +
                                      VXBUFFER_MODULE_DIR +
                                      "')\nimport libvxbuffer, numpy as np, array\n";
            ASSERT_EQ(PyRun_SimpleString(setup.c_str()), 0);
        }
        api_ = static_cast<const vxbuffer::CApi*>(PyCapsule_Import(vxbuffer::kCapsuleNameAscii, 0));
        ASSERT_NE(api_, nullptr);
    }

    void TearDown() override { EXPECT_EQ(PyErr_Occurred(), nullptr) << takeError(); }

    const vxbuffer::CApi& api() const { return *api_; }

    static PyObject* globals() { return PyModule_GetDict(PyImport_AddModule("__main__")); }

    Ref eval(const std::string& expression) {
        Ref result(PyRun_String(expression.c_str(), Py_eval_input, globals(), globals()));
        EXPECT_NE(result, nullptr) << expression << ": " << takeError();
        return result;
    }
    void exec(const std::string& code) {
        Ref result(PyRun_String(code.c_str(), Py_file_input, globals(), globals()));
        EXPECT_NE(result, nullptr) << code << ": " << takeError();
    }
    bool truth(const std::string& expression) {
        Ref result = eval(expression);
        return result != nullptr && PyObject_IsTrue(result.get()) == 1;
    }
    // Whether the statement raises that exception (caught in Python).
    bool raises(const std::string& statement, const std::string& exception) {
        exec("try:\n    " + statement + "\nexcept " + exception +
             ":\n    raised = True\nelse:\n    raised = False\n");
        return truth("raised");
    }
    // Whether the pending error is of that kind; clears it.
    static bool pending(const std::string& kind) {
        return takeError().find(kind + ":") != std::string::npos;
    }
    void bind(const char* name, PyObject* value) {
        ASSERT_EQ(PyDict_SetItemString(globals(), name, value), 0);
    }

    // The pending Python error as "TypeName: message", cleared; empty if none.
    static std::string takeError() {
        if (PyErr_Occurred() == nullptr) {
            return {};
        }
        PyObject *type, *value, *traceback;
        PyErr_Fetch(&type, &value, &traceback);
        Ref t(type), v(value), tb(traceback);
        Ref text(PyObject_Str(value != nullptr ? value : Py_None));
        std::string answer = reinterpret_cast<PyTypeObject*>(type)->tp_name;
        if (text != nullptr) {
            answer += std::string(": ") + PyUnicode_AsUTF8(text.get());
        }
        PyErr_Clear();
        return answer;
    }

    static std::vector<unsigned char> bytesOf(const vd::Array& array) {
        const auto* data = static_cast<const unsigned char*>(array.getReadOnlyData());
        if (data == nullptr) {
            return {};
        }
        return {data, data + array.getNumberOfElements() * array.getElementSize()};
    }

  private:
    static inline const vxbuffer::CApi* api_ = nullptr;
};

}  // namespace vxbuffer_test
