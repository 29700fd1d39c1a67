// Host arrays shown to Python: formats, layout, no copy, read-only, lifetime.
#include <complex>
#include <type_traits>

#include <gmock/gmock.h>

#include "capsule_fixture.h"

namespace vxbuffer_test {
namespace {

struct Element {
    vd::ArrayType type;
    const char* format;
    const char* dtype;
};

void PrintTo(const Element& element, std::ostream* os) {
    *os << element.dtype;
}

// A 2 by 3 array whose element at storage position k holds k (complex:
// k - k*i; logical: k odd).
vd::Array numbered(vd::ArrayType type, std::vector<size_t> dims = {2, 3}) {
    vd::standalone::ArrayFactory factory;
    return vd::visit(factory.createArray(type, dims), [](auto view) -> vd::Array {
        using T = typename decltype(view)::element_type;
        for (size_t k = 0; k < view.getNumberOfElements(); ++k) {
            if constexpr (std::is_same_v<T, bool>) {
                view.setElement(k, k % 2 == 1);
            } else if constexpr (std::is_arithmetic_v<T>) {
                view.setElement(k, static_cast<T>(k));
            } else if constexpr (requires { T(1, -1); }) {
                using R = typename T::value_type;
                view.setElement(k, T(static_cast<R>(k), -static_cast<R>(k)));
            }
        }
        return view;
    });
}

class VxbufferHostArrayToPython : public Capsule, public ::testing::WithParamInterface<Element> {};

TEST_P(VxbufferHostArrayToPython, NumpySeesTheHostStorageInColumnMajorOrderReadOnly) {
    const Element& e = GetParam();
    vd::Array host = numbered(e.type);
    const std::vector<unsigned char> before = bytesOf(host);
    Ref buffer = own(api().makeFromArray(host));
    ASSERT_NE(buffer, nullptr) << takeError();
    bind("buf", buffer.get());
    exec(std::string("dtype = np.dtype('") + e.dtype + "')\n" +
         "m = memoryview(buf)\n"
         "a = np.asarray(buf)\n"
         "expected = np.arange(6).reshape((2, 3), order='F')\n"
         "if dtype.kind == 'c': expected = expected - 1j * expected\n"
         "if dtype.kind == 'b': expected = expected % 2\n");

    EXPECT_TRUE(truth(std::string("m.format == '") + e.format + "' and m.readonly and " +
                      "m.shape == (2, 3) and m.strides == (dtype.itemsize, 2 * dtype.itemsize)"));
    EXPECT_TRUE(truth("a.dtype == dtype and np.array_equal(a, expected.astype(dtype))"));
    Ref address = eval("a.ctypes.data");
    EXPECT_EQ(PyLong_AsVoidPtr(address.get()), host.getReadOnlyData());

    int status = -1;
    EXPECT_STREQ(api().getFormat(pyArray(buffer.get()), &status), e.format);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(api().isColumnMajor(pyArray(buffer.get())), 1);
    EXPECT_EQ(api().standsOnArray(pyArray(buffer.get())), 1);

    // Back to the host: the same handle.
    EXPECT_TRUE(api().getData(pyArray(buffer.get())).sharesDataWith(host));

    // Nothing in Python may write to the shared storage.
    EXPECT_TRUE(raises("a[0, 0] = 1", "ValueError"));
    Py_buffer view;
    EXPECT_EQ(PyObject_GetBuffer(buffer.get(), &view, PyBUF_RECORDS), -1);
    EXPECT_TRUE(pending("BufferError"));
    EXPECT_EQ(bytesOf(host), before);

    // Back from NumPy in either order: the same elements, one column-major copy.
    for (const char* order : {"C", "F"}) {
        SCOPED_TRACE(order);
        Ref source = eval(std::string("np.array(a, order='") + order + "')");
        Ref copy = own(api().makeFromObject(pyArray(source.get())));
        ASSERT_NE(copy, nullptr) << takeError();
        EXPECT_EQ(api().isColumnMajor(pyArray(copy.get())), order[0] == 'F' ? 1 : 0);
        vd::Array data = api().getData(pyArray(copy.get()));
        EXPECT_EQ(data.getType(), e.type);
        EXPECT_EQ(data.getDimensions(), (std::vector<size_t>{2, 3}));
        EXPECT_EQ(bytesOf(data), before);
    }
    exec("del m, a, buf");
}

// clang-format off
const Element kElements[] = {
    {vd::ArrayType::LOGICAL, "?", "bool"},     {vd::ArrayType::DOUBLE, "d", "float64"},
    {vd::ArrayType::SINGLE, "f", "float32"},   {vd::ArrayType::INT8, "b", "int8"},
    {vd::ArrayType::UINT8, "B", "uint8"},      {vd::ArrayType::INT16, "h", "int16"},
    {vd::ArrayType::UINT16, "H", "uint16"},    {vd::ArrayType::INT32, "i", "int32"},
    {vd::ArrayType::UINT32, "I", "uint32"},    {vd::ArrayType::INT64, "q", "int64"},
    {vd::ArrayType::UINT64, "Q", "uint64"},    {vd::ArrayType::COMPLEX_DOUBLE, "Zd", "complex128"},
    {vd::ArrayType::COMPLEX_SINGLE, "Zf", "complex64"},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(EveryFormat, VxbufferHostArrayToPython, ::testing::ValuesIn(kElements),
                         [](const auto& info) { return std::string(info.param.dtype); });

using VxbufferLifetime = Capsule;

TEST_F(VxbufferLifetime, TheBufferKeepsTheStorageAliveAndLetsGoOfItWhenDropped) {
    vd::TypedArray<double> host(numbered(vd::ArrayType::DOUBLE, {3, 4}));
    const void* storage = host.getReadOnlyData();
    {
        Ref buffer = own(api().makeFromArray(host));
        ASSERT_NE(buffer, nullptr) << takeError();
        EXPECT_EQ(Py_REFCNT(buffer.get()), 1);
        bind("buf", buffer.get());
        exec("a = np.asarray(buf)\ndel buf");
    }
    // The host lets go of its array: NumPy still reads the storage through the buffer.
    host = vd::TypedArray<double>(vd::standalone::ArrayFactory().createArray<double>({1, 1}));
    EXPECT_TRUE(truth("a.sum() == 66.0 and a[2, 3] == 11.0"));
    EXPECT_EQ(PyLong_AsVoidPtr(eval("a.ctypes.data").get()), storage);

    // Released by every holder: a sole host holder takes the storage back without a copy.
    vd::TypedArray<double> owner(numbered(vd::ArrayType::DOUBLE, {3, 4}));
    const void* ownStorage = owner.getReadOnlyData();
    own(api().makeFromArray(owner)).reset();
    EXPECT_EQ(owner.release().get(), ownStorage);
    exec("del a");
}

TEST_F(VxbufferLifetime, ShapesWithoutElementsAndRefusedTypes) {
    vd::standalone::ArrayFactory factory;
    Ref empty = own(api().makeFromArray(factory.createArray(vd::ArrayType::DOUBLE, {0, 3})));
    ASSERT_NE(empty, nullptr) << takeError();
    bind("buf", empty.get());
    EXPECT_TRUE(truth("np.asarray(buf).shape == (0, 3) and len(buf) == 0"));

    Ref cube = own(api().makeFromArray(numbered(vd::ArrayType::INT32, {2, 3, 4})));
    bind("buf", cube.get());
    EXPECT_TRUE(
        truth("np.array_equal(np.asarray(buf), np.arange(24).reshape((2, 3, 4), order='F'))"));
    EXPECT_TRUE(truth("buf.shape == (2, 3, 4) and buf.format == 'i' and buf.on_host_array"));
    EXPECT_TRUE(truth(
        "repr(buf) == \"<libvxbuffer.Buffer format='i' shape=(2, 3, 4) over a host array>\""));

    // Without strides a consumer assumes C order: only C-contiguous data may go that way.
    Py_buffer view;
    EXPECT_EQ(PyObject_GetBuffer(cube.get(), &view, PyBUF_C_CONTIGUOUS), -1);
    EXPECT_TRUE(pending("BufferError"));
    EXPECT_EQ(PyObject_GetBuffer(cube.get(), &view, PyBUF_SIMPLE), -1);
    EXPECT_TRUE(pending("BufferError"));
    ASSERT_EQ(PyObject_GetBuffer(cube.get(), &view, PyBUF_F_CONTIGUOUS), 0);
    EXPECT_EQ(view.obj, cube.get());
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

}  // namespace
}  // namespace vxbuffer_test
