// Numeric data across the boundary without element copies: host matrices
// seen by NumPy, NumPy arrays of every format and order read back as host
// arrays, lifetimes, and the answers when libvxbuffer is gone.
#include <gtest/gtest.h>

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
        return valueOf<std::uint64_t>(
            call("pyLongGetDataUInt64", {addressArray(eval(expression))}));
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
    EXPECT_EQ(valueOf<double>(host), 0.0);

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
    // np.arange(6).reshape(2, 3) in the host's column-major order.
    for (const auto& [dtype, type] : std::vector<std::pair<std::string, std::string>>{
             {"float64", "DOUBLE"},
             {"float32", "SINGLE"},
             {"int8", "INT8"},
             {"uint8", "UINT8"},
             {"int16", "INT16"},
             {"uint16", "UINT16"},
             {"int32", "INT32"},
             {"uint32", "UINT32"},
             {"int64", "INT64"},
             {"uint64", "UINT64"},
             {"bool", "LOGICAL 2x3: 0 1 1 1 1 1"},
             {"complex128", "COMPLEX_DOUBLE 2x3: (0,0) (3,0) (1,0) (4,0) (2,0) (5,0)"},
             {"complex64", "COMPLEX_SINGLE 2x3: (0,0) (3,0) (1,0) (4,0) (2,0) (5,0)"}}) {
        const std::string expected =
            type.find(':') == std::string::npos ? type + " 2x3: 0 3 1 4 2 5" : type;
        for (const char* order : {"C", "F"}) {
            const Address source = eval("np.array(np.arange(6).reshape(2, 3), dtype='" + dtype +
                                        "', order='" + order + "')");
            const Address buffer = addressOf(call("pyCreateBuffer", {addressArray(source)}));
            EXPECT_EQ(truthOf(call("pyIsColumnMajor", {addressArray(buffer)})), order[0] == 'F')
                << dtype << " " << order;
            EXPECT_TRUE(truthOf(call("pyCheckBuffer", {addressArray(buffer)}))) << dtype;
            EXPECT_EQ(show(call("pyBufferGetData", {addressArray(buffer)})), expected) << order;
            release(buffer);
        }
    }
    // Other exporters: bytes, array.array, a strided view.
    const auto data = [](const std::string& expression) {
        return call(
            "pyBufferGetData",
            {addressArray(addressOf(call("pyCreateBuffer", {addressArray(eval(expression))})))});
    };
    EXPECT_EQ(show(data("b'\\x01\\x02\\x03'")), "UINT8 3x1: 1 2 3");
    EXPECT_EQ(show(data("np.arange(20.0).reshape(4, 5)[::2, ::2]")), "DOUBLE 2x3: 0 10 2 12 4 14");
    const Address fromArray = addressOf(
        call("pyCreateBuffer", {addressArray(eval("__import__('array').array('h', [1, -2])"))}));
    EXPECT_EQ(textOf(call("pyBufferGetFormat", {addressArray(fromArray)})), "h");
    EXPECT_THROW(call("pyCreateBuffer", {addressArray(eval("3.5"))}), std::exception);
    call("pyErrorClear");
}

TEST_F(Buffers, ExcludedTypesAndTypeQueries) {
    for (const auto& [expression, checked] :
         {std::pair{"b'xyz'", false}, std::pair{"bytearray(3)", false},
          std::pair{"memoryview(b'xyz')", true}, std::pair{"[1, 2]", false}}) {
        EXPECT_EQ(truthOf(call("pyCheckBuffer", {addressArray(eval(expression))})), checked)
            << expression;
    }
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
    EXPECT_EQ(failureOf([] { call("pyCheckBuffer", {addressArray(eval("np.ones(2)"))}); }),
              "Failed to get capsule.");
    call("pyErrorClear");
    EXPECT_FALSE(truthOf(call("pyTypeSupportsBufferInterface",
                              {addressArray(eval("np.ndarray")), chars("ndarray")})));
    EXPECT_FALSE(errorOccurred());
}
