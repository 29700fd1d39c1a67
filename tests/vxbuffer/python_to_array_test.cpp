// Python buffers read back as host arrays: shapes, orders, strides, formats.
#include "capsule_fixture.h"

namespace vxbuffer_test {
namespace {

struct Source {
    const char* name;
    const char* expression;
    vd::ArrayType type;
    std::vector<size_t> dims;
    int columnMajor;
};

void PrintTo(const Source& source, std::ostream* os) {
    *os << source.expression;
}

class VxbufferPythonToHostArray : public Capsule, public ::testing::WithParamInterface<Source> {};

TEST_P(VxbufferPythonToHostArray, GivesTheElementsInColumnMajorOrder) {
    const Source& s = GetParam();
    Ref source = eval(s.expression);
    ASSERT_NE(source, nullptr);
    Ref buffer = own(api().makeFromObject(pyArray(source.get())));
    ASSERT_NE(buffer, nullptr) << takeError();
    EXPECT_EQ(api().isColumnMajor(pyArray(buffer.get())), s.columnMajor);
    EXPECT_EQ(api().isColumnMajor(pyArray(source.get())), s.columnMajor);

    vd::Array data = api().getData(pyArray(buffer.get()));
    ASSERT_EQ(data.getType(), s.type) << takeError();
    ASSERT_EQ(data.getDimensions(), s.dims);
    EXPECT_EQ(bytesOf(api().getData(pyArray(source.get()))), bytesOf(data));

    // Shown to NumPy again in column-major order, the host array holds
    // what the source holds, index for index.
    Ref back = own(api().makeFromArray(data));
    ASSERT_NE(back, nullptr) << takeError();
    bind("src", source.get());
    bind("back", back.get());
    EXPECT_TRUE(
        truth("np.array_equal(np.asarray(back).reshape(np.asarray(memoryview(src)).shape), "
              "np.asarray(memoryview(src)))"));
    exec("del src, back");
}

using vd::ArrayType;
// clang-format off
const Source kSources[] = {
    {"c_order", "np.arange(12.0).reshape(3, 4)", ArrayType::DOUBLE, {3, 4}, 0},
    {"f_order", "np.asfortranarray(np.arange(12.0).reshape(3, 4))", ArrayType::DOUBLE, {3, 4}, 1},
    {"strided", "np.arange(30.0).reshape(5, 6)[::2, ::3]", ArrayType::DOUBLE, {3, 2}, 0},
    {"reversed", "np.arange(6, dtype=np.int16)[::-1]", ArrayType::INT16, {6, 1}, 0},
    {"transposed_3d", "np.arange(24, dtype=np.uint32).reshape(2, 3, 4).transpose(1, 2, 0)",
     ArrayType::UINT32, {3, 4, 2}, 0},
    {"complex", "(np.arange(6) - 1j * np.arange(6)).reshape(2, 3)", ArrayType::COMPLEX_DOUBLE,
     {2, 3}, 0},
    {"logical", "np.array([[True, False, True], [False, True, True]])[:, ::2]", ArrayType::LOGICAL,
     {2, 2}, 0},
    {"zero_d", "np.array(7.5)", ArrayType::DOUBLE, {1, 1}, 1},
    {"vector_is_a_column", "np.arange(5, dtype=np.int64)", ArrayType::INT64, {5, 1}, 1},
    {"empty", "np.zeros((0, 3), dtype=np.uint16)", ArrayType::UINT16, {0, 3}, 1},
    {"bytes", "b'abc'", ArrayType::UINT8, {3, 1}, 1},
    {"array_module", "array.array('h', [1, -2, 3])", ArrayType::INT16, {3, 1}, 1},
    {"standard_size_long", "(__import__('ctypes').c_long * 3)(1, -2, 3)", ArrayType::INT64,
     {3, 1}, 1},
    {"extent_one", "memoryview(bytes(range(12))).cast('i', (1, 3))", ArrayType::INT32, {1, 3}, 1},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(Sources, VxbufferPythonToHostArray, ::testing::ValuesIn(kSources),
                         [](const auto& info) { return std::string(info.param.name); });

using VxbufferFormats = Capsule;

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

TEST_F(VxbufferFormats, FormatsWithoutHostTypeAreNotSupportedAndMissingOnesAreBytes) {
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

TEST_F(VxbufferFormats, ObjectsWithoutBufferFailWithAPythonError) {
    Ref number = eval("42");
    python::pyArray* n = pyArray(number.get());
    int status = -1;
    EXPECT_TRUE(api().makeFromObject(n) == nullptr && pending("TypeError"));
    EXPECT_TRUE(api().getData(n).isEmpty() && pending("TypeError"));
    EXPECT_TRUE(api().isColumnMajor(n) == -1 && pending("TypeError"));
    EXPECT_TRUE(api().getFormat(n, &status) == nullptr && status == 0 && pending("TypeError"));
    EXPECT_TRUE(api().makeFromObject(nullptr) == nullptr && pending("SystemError"));
}

TEST_F(VxbufferFormats, TheExportersBufferIsHeldUntilTheBufferObjectGoes) {
    exec("store = bytearray(b'abcd')");
    Ref store = eval("store");
    Ref buffer = own(api().makeFromObject(pyArray(store.get())));
    ASSERT_NE(buffer, nullptr) << takeError();
    // A bytearray with an exported buffer refuses to resize.
    EXPECT_TRUE(raises("store.extend(b'e')", "BufferError"));
    buffer.reset();
    exec("store.extend(b'e')");
    EXPECT_TRUE(truth("store == bytearray(b'abcde')"));
    exec("del store");
}

}  // namespace
}  // namespace vxbuffer_test
