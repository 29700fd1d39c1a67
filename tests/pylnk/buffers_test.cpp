// Numeric data across the boundary without element copies: host matrices
// seen by NumPy, NumPy arrays of every format and order read back as host
// arrays, lifetimes, and the answers when libvxbuffer is gone.
#include <gtest/gtest.h>

#include <cstring>

#include "support/session.h"

using namespace vxtest;

namespace {

class Buffers : public ::testing::Test {
  protected:
    void SetUp() override {
        startSystemPython();
        exec("import numpy as np");
    }
    vd::ArrayFactory f;

    vd::Array matrix(size_t rows, size_t cols) {
        vd::TypedArray<double> m = f.createArray<double>({rows, cols});
        for (size_t k = 0; k < rows * cols; ++k) {
            m[k] = static_cast<double>(k);
        }
        return m;
    }

    // Binds a Python name to an object the host holds.
    void bind(const std::string& pythonName, Address object) {
        call("pySetKey",
             {addressArray(eval("globals()")),
              addressArray(unicode(std::u16string(pythonName.begin(), pythonName.end()))),
              addressArray(object)});
    }

    std::uint64_t dataAddress(const std::string& expression) {
        return vd::TypedArray<std::uint64_t>(
            call("pyLongGetDataUInt64", {addressArray(eval(expression))}))[0];
    }
};

}  // namespace

TEST_F(Buffers, HostMatrixIsSeenByNumpyWithoutACopyAndCannotBeWritten) {
    vd::Array host = matrix(3, 4);
    const Address view = addressOf(call("pyCreateMemoryView", {host}));
    bind("view", view);
    exec("a = np.asarray(view)");
    EXPECT_EQ(strOf(eval("a.shape")), "(3, 4)");
    EXPECT_EQ(strOf(eval("a[2, 1]")), "5.0");  // column-major: element 1*3+2
    EXPECT_EQ(dataAddress("a.ctypes.data"),
              reinterpret_cast<std::uint64_t>(host.getReadOnlyData()));

    // Writing through the view is refused; the host array is unchanged.
    EXPECT_THROW(exec("a[0, 0] = 99"), std::exception);
    call("pyErrorClear");
    EXPECT_THROW(exec("memoryview(view)[0:1] = b'x'"), std::exception);
    call("pyErrorClear");
    EXPECT_EQ(static_cast<double>(vd::TypedArray<double>(host)[0]), 0.0);

    // Back to the host: the same storage, no copy.
    vd::Array back = call("pyBufferGetData", {addressArray(view)});
    EXPECT_EQ(back.getReadOnlyData(), host.getReadOnlyData());
    EXPECT_EQ(back.getDimensions(), (std::vector<size_t>{3, 4}));
    EXPECT_TRUE(truthOf(call("pyIsColumnMajor", {addressArray(view)})));
    EXPECT_EQ(textOf(call("pyBufferGetFormat", {addressArray(view)})), "d");

    // The buffer object outlives the host's array.
    host = vd::Array();
    back = vd::Array();
    EXPECT_EQ(strOf(eval("float(a.sum())")), "66.0");
    release(view);
    exec("del view\nb = a.copy()\ndel a");
    EXPECT_EQ(strOf(eval("float(b.sum())")), "66.0");
}

TEST_F(Buffers, EveryFormatAndBothOrdersComeBackColumnMajor) {
    struct Format {
        const char* dtype;
        vd::ArrayType type;
    };
    const std::vector<Format> formats{{"float64", vd::ArrayType::DOUBLE},
                                      {"float32", vd::ArrayType::SINGLE},
                                      {"int8", vd::ArrayType::INT8},
                                      {"uint8", vd::ArrayType::UINT8},
                                      {"int16", vd::ArrayType::INT16},
                                      {"uint16", vd::ArrayType::UINT16},
                                      {"int32", vd::ArrayType::INT32},
                                      {"uint32", vd::ArrayType::UINT32},
                                      {"int64", vd::ArrayType::INT64},
                                      {"uint64", vd::ArrayType::UINT64},
                                      {"bool", vd::ArrayType::LOGICAL},
                                      {"complex128", vd::ArrayType::COMPLEX_DOUBLE},
                                      {"complex64", vd::ArrayType::COMPLEX_SINGLE}};
    for (const Format& format : formats) {
        for (const char* order : {"C", "F"}) {
            SCOPED_TRACE(std::string(format.dtype) + " order " + order);
            const Address source =
                eval(std::string("np.array(np.arange(6).reshape(2, 3), dtype='") + format.dtype +
                     "', order='" + order + "')");
            const Address buffer = addressOf(call("pyCreateBuffer", {addressArray(source)}));
            EXPECT_EQ(truthOf(call("pyIsColumnMajor", {addressArray(buffer)})), order[0] == 'F');
            EXPECT_TRUE(truthOf(call("pyCheckBuffer", {addressArray(buffer)})));
            vd::Array data = call("pyBufferGetData", {addressArray(buffer)});
            ASSERT_EQ(data.getType(), format.type);
            ASSERT_EQ(data.getDimensions(), (std::vector<size_t>{2, 3}));
            // The host's bytes are exactly the column-major bytes of the source.
            vd::Array expected =
                call("pyBufferGetData",
                     {addressArray(eval("np.frombuffer(np.array(np.arange(6).reshape(2, 3), "
                                        "dtype='" +
                                        std::string(format.dtype) +
                                        "').tobytes(order='F'), dtype='uint8')"))});
            ASSERT_EQ(expected.getNumberOfElements(), 6 * data.getElementSize());
            EXPECT_EQ(std::memcmp(data.getReadOnlyData(), expected.getReadOnlyData(),
                                  expected.getNumberOfElements()),
                      0);
            release(buffer);
        }
    }
    // Other exporters: bytes, bytearray, array.array, memoryview, a strided view.
    const Address fromBytes =
        addressOf(call("pyCreateBuffer", {addressArray(eval("b'\\x01\\x02\\x03'"))}));
    vd::Array bytes = call("pyBufferGetData", {addressArray(fromBytes)});
    EXPECT_EQ(bytes.getType(), vd::ArrayType::UINT8);
    EXPECT_EQ(bytes.getNumberOfElements(), 3u);
    const Address strided = addressOf(
        call("pyCreateBuffer", {addressArray(eval("np.arange(20.0).reshape(4, 5)[::2, ::2]"))}));
    vd::Array picked = call("pyBufferGetData", {addressArray(strided)});
    ASSERT_EQ(picked.getDimensions(), (std::vector<size_t>{2, 3}));
    vd::TypedArray<double> p(picked);
    EXPECT_EQ((std::vector<double>(p.begin(), p.end())),
              (std::vector<double>{0, 10, 2, 12, 4, 14}));
    const Address fromArray = addressOf(
        call("pyCreateBuffer", {addressArray(eval("__import__('array').array('h', [1, -2])"))}));
    EXPECT_EQ(textOf(call("pyBufferGetFormat", {addressArray(fromArray)})), "h");
    EXPECT_THROW(call("pyCreateBuffer", {addressArray(eval("3.5"))}), std::exception);
    call("pyErrorClear");
}

TEST_F(Buffers, ExcludedTypesAndTypeQueries) {
    EXPECT_FALSE(truthOf(call("pyCheckBuffer", {addressArray(eval("b'xyz'"))})));
    EXPECT_FALSE(truthOf(call("pyCheckBuffer", {addressArray(eval("bytearray(3)"))})));
    EXPECT_TRUE(truthOf(call("pyCheckBuffer", {addressArray(eval("memoryview(b'xyz')"))})));
    EXPECT_FALSE(truthOf(call("pyCheckBuffer", {addressArray(eval("[1, 2]"))})));
    EXPECT_FALSE(truthOf(
        call("pyTypeSupportsBufferInterface", {addressArray(eval("bytes")), chars("bytes")})));
    EXPECT_TRUE(truthOf(call("pyTypeSupportsBufferInterface",
                             {addressArray(eval("np.ndarray")), chars("ndarray")})));
    EXPECT_FALSE(
        truthOf(call("pyTypeSupportsBufferInterface", {addressArray(eval("int")), chars("int")})));
    EXPECT_EQ(
        call("pyGetBufferDataInQLOrder", {addressArray(eval("np.ones(3)"))}).getNumberOfElements(),
        0u);
    EXPECT_FALSE(errorOccurred());
}

TEST_F(Buffers, WithoutTheExtensionCheckFailsAndTypeQueriesAnswerFalse) {
    exec("import sys\nsys.modules['libvxbuffer'] = None");
    try {
        call("pyCheckBuffer", {addressArray(eval("np.ones(2)"))});
        ADD_FAILURE() << "pyCheckBuffer answered without the capsule";
    } catch (const std::exception& e) {
        EXPECT_STREQ(e.what(), "Failed to get capsule.");
    }
    call("pyErrorClear");
    EXPECT_FALSE(truthOf(call("pyTypeSupportsBufferInterface",
                              {addressArray(eval("np.ndarray")), chars("ndarray")})));
    EXPECT_FALSE(errorOccurred());
}
