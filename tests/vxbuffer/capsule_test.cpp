// libvxbuffer through its capsule, in an embedded interpreter: what the
// commands' tests cannot reach of host arrays shown to Python and of Python
// buffers read back, format statuses, and the buffer object's own face.
#define PY_SSIZE_T_CLEAN
#include <Python.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include <foundation/veltradata.h>
#include <vxbuffer/capi.h>

namespace vxbuffer_test {
namespace {

namespace vd = foundation::veltradata;

struct Decref {
    void operator()(PyObject* object) const { Py_XDECREF(object); }
};
using Ref = std::unique_ptr<PyObject, Decref>;

python::pyArray* pyArray(PyObject* p) {
    return reinterpret_cast<python::pyArray*>(p);
}
Ref own(python::pyArray* p) {
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
    // Whether the statement raises that exception; clears it.
    bool raises(const std::string& statement, const std::string& exception) {
        Ref result(PyRun_String(statement.c_str(), Py_file_input, globals(), globals()));
        return result == nullptr && pending(exception);
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
        Ref t(type), v(value), tb(traceback), text(PyObject_Str(value ? value : Py_None));
        return std::string(reinterpret_cast<PyTypeObject*>(type)->tp_name) + ": " +
               (text ? PyUnicode_AsUTF8(text.get()) : "");
    }
    // Whether the pending error is of that kind; clears it.
    static bool pending(const std::string& kind) { return takeError().rfind(kind + ":", 0) == 0; }

    static std::vector<unsigned char> bytesOf(const vd::Array& array) {
        const auto* data = static_cast<const unsigned char*>(array.getReadOnlyData());
        return {data, data + (data ? array.getNumberOfElements() * array.getElementSize() : 0)};
    }

  private:
    static inline const vxbuffer::CApi* api_ = nullptr;
};

using VxbufferHostArrayToPython = Capsule;

// Host arrays made from NumPy's (the way back is checked below) and shown to
// it again: read-only, in place, the same dtype and elements.
TEST_F(VxbufferHostArrayToPython, EveryTypeIsSeenInPlaceInColumnMajorOrderReadOnly) {
    for (const char* dtype : {"bool", "float64", "float32", "int8", "uint8", "int16", "uint16",
                              "int32", "uint32", "int64", "uint64", "complex128", "complex64"}) {
        SCOPED_TRACE(dtype);
        exec(std::string("dtype = np.dtype('") + dtype + "')\nk = np.arange(6).reshape(2, 3)\n" +
             "src = (k % 2 if dtype.kind == 'b' else k - 1j * k if dtype.kind == 'c' else k)\n"
             "src = src.astype(dtype)");
        vd::Array host = api().getData(pyArray(eval("src").get()));
        Ref buffer = own(api().makeFromArray(host));
        ASSERT_NE(buffer, nullptr) << takeError();
        bind("buf", buffer.get());
        EXPECT_TRUE(
            truth("memoryview(buf).readonly and np.asarray(buf).dtype == dtype and "
                  "np.array_equal(np.asarray(buf), src)"));
        EXPECT_EQ(PyLong_AsVoidPtr(eval("np.asarray(buf).ctypes.data").get()),
                  host.getReadOnlyData());
        EXPECT_EQ(api().standsOnArray(pyArray(buffer.get())), 1);
        exec("del buf");
    }
}

TEST_F(VxbufferHostArrayToPython, StorageLetGoLayoutsAndRefusedTypes) {
    // Released by every Python holder, the storage goes back: a sole host
    // holder then takes it over without a copy.
    vd::standalone::ArrayFactory factory;
    vd::TypedArray<double> owner = factory.createArray<double>({3, 4});
    const void* storage = owner.getReadOnlyData();
    Ref held = own(api().makeFromArray(owner));
    EXPECT_EQ(Py_REFCNT(held.get()), 1);
    held.reset();
    EXPECT_EQ(owner.release().get(), storage);

    exec("src = np.asfortranarray(np.arange(24, dtype=np.int32).reshape(2, 3, 4))");
    Ref cube = own(api().makeFromArray(api().getData(pyArray(eval("src").get()))));
    bind("buf", cube.get());
    EXPECT_TRUE(truth("np.array_equal(np.asarray(buf), src)"));
    // Without strides a consumer assumes C order: only C-contiguous data may go that way.
    Py_buffer view;
    EXPECT_EQ(PyObject_GetBuffer(cube.get(), &view, PyBUF_C_CONTIGUOUS), -1);
    EXPECT_TRUE(pending("BufferError"));
    EXPECT_EQ(PyObject_GetBuffer(cube.get(), &view, PyBUF_SIMPLE), -1);
    EXPECT_TRUE(pending("BufferError"));
    ASSERT_EQ(PyObject_GetBuffer(cube.get(), &view, PyBUF_F_CONTIGUOUS), 0);
    PyBuffer_Release(&view);
    exec("del buf");

    for (vd::ArrayType refused : {vd::ArrayType::COMPLEX_INT16, vd::ArrayType::CHAR,
                                  vd::ArrayType::CELL, vd::ArrayType::VELTRA_STRING}) {
        EXPECT_EQ(api().makeFromArray(factory.createArray(refused, {2, 2})), nullptr);
        EXPECT_THAT(takeError(),
                    ::testing::HasSubstr("TypeError: libvxbuffer: host arrays of type " +
                                         vd::toString(refused)));
    }
}

using VxbufferPythonToHostArray = Capsule;

TEST_F(VxbufferPythonToHostArray, LayoutsComeBackInColumnMajorOrderIndexForIndex) {
    using vd::ArrayType;
    // clang-format off
    const std::tuple<const char*, ArrayType, std::vector<size_t>, int> sources[] = {
        {"np.arange(12.0).reshape(3, 4)[::-1, ::-2]", ArrayType::DOUBLE, {3, 2}, 0},
        {"np.arange(24, dtype=np.uint32).reshape(2, 3, 4).transpose(1, 2, 0)", ArrayType::UINT32, {3, 4, 2}, 0},
        {"(np.arange(6) - 1j * np.arange(6)).reshape(2, 3)", ArrayType::COMPLEX_DOUBLE, {2, 3}, 0},
        {"np.array([[True, False, True], [False, True, True]])[:, ::2]", ArrayType::LOGICAL, {2, 2}, 0},
        {"np.array(7.5)", ArrayType::DOUBLE, {1, 1}, 1},
        {"np.arange(5, dtype=np.int64)", ArrayType::INT64, {5, 1}, 1},
        {"np.zeros((0, 3), dtype=np.uint16)", ArrayType::UINT16, {0, 3}, 1},
        {"(__import__('ctypes').c_long * 3)(1, -2, 3)", ArrayType::INT64, {3, 1}, 1},
        // 4 MiB and more: memory of the copy's own, taken over by the array.
        {"np.arange(2.0**20).reshape(1024, 1024)[:, ::-1]", ArrayType::DOUBLE, {1024, 1024}, 0},
        {"np.arange(5 * 2**20) % 3 == 0", ArrayType::LOGICAL, {5u << 20, 1}, 1},
    };
    // clang-format on
    for (const auto& [expression, type, dims, columnMajor] : sources) {
        SCOPED_TRACE(expression);
        Ref source = eval(expression);
        Ref buffer = own(api().makeFromObject(pyArray(source.get())));
        ASSERT_NE(buffer, nullptr) << takeError();
        EXPECT_EQ(api().isColumnMajor(pyArray(buffer.get())), columnMajor);
        EXPECT_EQ(api().isColumnMajor(pyArray(source.get())), columnMajor);
        vd::Array data = api().getData(pyArray(buffer.get()));
        ASSERT_EQ(data.getType(), type) << takeError();
        ASSERT_EQ(data.getDimensions(), dims);
        EXPECT_EQ(bytesOf(api().getData(pyArray(source.get()))), bytesOf(data));
        bind("src", source.get());
        Ref expected = eval("np.asarray(memoryview(src)).tobytes(order='F')");
        const char* bytes = PyBytes_AsString(expected.get());
        EXPECT_EQ(bytesOf(data),
                  std::vector<unsigned char>(bytes, bytes + PyBytes_Size(expected.get())));
    }
}

// An exporter that leaves the format out: plain unsigned bytes.
PyObject* exporterWithoutFormat() {
    static PyType_Slot slots[] = {
        {Py_bf_getbuffer, reinterpret_cast<void*>(+[](PyObject* self, Py_buffer* view, int flags) {
             static char data[4] = {1, 2, 3, 4};
             const int status = PyBuffer_FillInfo(view, self, data, 4, 1, flags);
             view->format = nullptr;
             return status;
         })},
        {0, nullptr}};
    static PyType_Spec spec = {"vxbuffer_test.Raw", sizeof(PyObject), 0, Py_TPFLAGS_DEFAULT, slots};
    static PyObject* type = PyType_FromSpec(&spec);
    return PyObject_CallNoArgs(type);
}

TEST_F(VxbufferPythonToHostArray, FormatsWithoutHostTypeAreNotSupportedAndMissingOnesAreBytes) {
    for (const char* expression :
         {"np.zeros(3, dtype=np.float16)", "np.zeros(3, dtype='>f8')",
          "np.zeros(2, dtype=[('a', 'i4'), ('b', 'f8')])", "np.array([None, 1], dtype=object)"}) {
        SCOPED_TRACE(expression);
        Ref source = eval(expression);
        int status = 0;
        EXPECT_EQ(api().getFormat(pyArray(source.get()), &status), nullptr);
        EXPECT_EQ(status, vxbuffer::kFormatNotSupported);
        EXPECT_EQ(PyErr_Occurred(), nullptr);
        Ref buffer = own(api().makeFromObject(pyArray(source.get())));
        ASSERT_NE(buffer, nullptr) << takeError();
        EXPECT_EQ(api().getData(pyArray(buffer.get())).getNumberOfElements(), 0u);
        EXPECT_TRUE(pending("TypeError"));
    }

    Ref raw(exporterWithoutFormat());
    ASSERT_NE(raw, nullptr) << takeError();
    Ref buffer = own(api().makeFromObject(pyArray(raw.get())));
    ASSERT_NE(buffer, nullptr) << takeError();
    for (PyObject* candidate : {raw.get(), buffer.get()}) {
        int status = 0;
        EXPECT_EQ(api().getFormat(pyArray(candidate), &status), nullptr);
        EXPECT_EQ(status, vxbuffer::kFormatMissing);
        vd::Array data = api().getData(pyArray(candidate));
        EXPECT_EQ(data.getType(), vd::ArrayType::UINT8);
        EXPECT_EQ(bytesOf(data), (std::vector<unsigned char>{1, 2, 3, 4}));
    }

    // Bytes read as logical become exactly 0 or 1.
    Ref flags = eval("memoryview(bytes([0, 2, 1, 255])).cast('?')");
    vd::Array logical = api().getData(pyArray(flags.get()));
    EXPECT_EQ(logical.getType(), vd::ArrayType::LOGICAL);
    EXPECT_EQ(bytesOf(logical), (std::vector<unsigned char>{0, 1, 1, 1}));
}

TEST_F(VxbufferPythonToHostArray, ObjectsWithoutBufferFailWithAPythonError) {
    Ref number = eval("42");
    python::pyArray* n = pyArray(number.get());
    int status = -1;
    EXPECT_TRUE(api().makeFromObject(n) == nullptr && pending("TypeError"));
    EXPECT_TRUE(api().getData(n).isEmpty() && pending("TypeError"));
    EXPECT_TRUE(api().isColumnMajor(n) == -1 && pending("TypeError"));
    EXPECT_TRUE(api().getFormat(n, &status) == nullptr && status == 0 && pending("TypeError"));
    EXPECT_TRUE(api().makeFromObject(nullptr) == nullptr && pending("SystemError"));
    EXPECT_TRUE(raises("len(libvxbuffer.Buffer(np.array(1.0)))", "TypeError"));
}

// Buffer objects know their source and hold the exporter's buffer until they
// go; subclasses of exporters and the buffer type count as supported, and an
// instance is no type.
TEST_F(VxbufferPythonToHostArray, BufferObjectsTheirSourceTheirPythonFaceAndTypeQueries) {
    vd::Array host = vd::standalone::ArrayFactory().createArray(vd::ArrayType::DOUBLE, {2, 2});
    Ref onArray = own(api().makeFromArray(host));
    Ref again = own(api().makeFromObject(pyArray(onArray.get())));
    ASSERT_TRUE(onArray && again) << takeError();
    EXPECT_EQ(api().standsOnArray(pyArray(again.get())), 1);
    EXPECT_TRUE(api().getData(pyArray(again.get())).sharesDataWith(host));
    EXPECT_EQ(api().isBufferObject(pyArray(again.get())), 1);
    EXPECT_EQ(api().isBufferObject(pyArray(eval("memoryview(b'ab')").get())), 0);
    bind("host", onArray.get());
    exec("b = libvxbuffer.Buffer(array.array('i', [1, 2, 3]))\nclass Blob(bytes): pass");
    EXPECT_TRUE(
        truth("len(b) == 3 and b.shape == (3,) and b.format == 'i' and b.itemsize == 4 "
              "and b.readonly and not b.on_host_array and host.on_host_array and "
              "memoryview(b).tolist() == [1, 2, 3]"));
    EXPECT_EQ(api().check(pyArray(eval("Blob(b'1')").get())), 1);
    EXPECT_EQ(api().typeSupported(pyArray(eval("Blob").get())), 1);
    EXPECT_EQ(api().typeSupported(pyArray(eval("libvxbuffer.Buffer").get())), 1);
    EXPECT_EQ(api().typeSupported(pyArray(eval("b'xyz'").get())), 0);
    exec("del b, host");

    exec("store = bytearray(b'abcd')");
    Ref buffer = own(api().makeFromObject(pyArray(eval("store").get())));
    // A bytearray with an exported buffer refuses to resize.
    EXPECT_TRUE(raises("store.extend(b'e')", "BufferError"));
    buffer.reset();
    exec("store.extend(b'e')\ndel store");
}

}  // namespace
}  // namespace vxbuffer_test
