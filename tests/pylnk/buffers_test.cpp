// Numeric data across the boundary without element copies: host matrices
// seen by NumPy, NumPy arrays of every format and order read back as host
// arrays, lifetimes, and the answers when libvxbuffer is gone.
#include <gtest/gtest.h>

#include "support/session.h"

using namespace vxtest;

namespace {

struct Buffers : SessionTest {
    Buffers() : SessionTest("import numpy as np") {}
};

}  // namespace

TEST_F(Buffers, NumpySeesHostMatrixWithoutCopyReadOnly) {
    vd::TypedArray<double> host = f.createArray<double>({3, 4});
    for (size_t k = 0; k < 12; ++k) {
        host[k] = static_cast<double>(k);
    }
    const Address view = addressOf(call("pyCreateMemoryView", {host}));
    call("pySetKey",
         {addressArray(eval("globals()")), addressArray(unicode(u"view")), addressArray(view)});
    exec("a = np.asarray(view)");
    // Column-major: element (2, 1) is 1*3+2.
    EXPECT_EQ(strOf(eval("(a.shape, a[2, 1], a.ctypes.data)")),
              "((3, 4), 5.0, " +
                  std::to_string(reinterpret_cast<std::uintptr_t>(host.getReadOnlyData())) + ")");

    // Writing through the view is refused; the host array is unchanged.
    for (const char* write : {"a[0, 0] = 99", "memoryview(view)[0:1] = b'x'"}) {
        EXPECT_THROW(exec(write), std::exception) << write;
        call("pyErrorClear");
    }
    EXPECT_EQ(valueOf<double>(host), 0.0);

    // Back to the host: the same storage, no copy.
    vd::Array back = call("pyBufferGetData", {addressArray(view)});
    EXPECT_EQ(back.getReadOnlyData(), host.getReadOnlyData());
    EXPECT_EQ(back.getDimensions(), (std::vector<size_t>{3, 4}));
    EXPECT_TRUE(truthOf(call("pyIsColumnMajor", {addressArray(view)})));
    EXPECT_EQ(textOf(call("pyBufferGetFormat", {addressArray(view)})), "d");

    // The buffer object outlives the host's array.
    host = f.createArray<double>({0, 0});
    back = vd::Array();
    EXPECT_EQ(strOf(eval("float(a.sum())")), "66.0");
    release(view);
    exec("del view\nb = a.copy()\ndel a");
    EXPECT_EQ(strOf(eval("float(b.sum())")), "66.0");
}

TEST_F(Buffers, FormatsAndOrdersComeBackColumnMajor) {
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
            const Address buffer =
                addressOf(callOn("pyCreateBuffer", "np.array(np.arange(6).reshape(2, 3), dtype='" +
                                                       dtype + "', order='" + order + "')"));
            EXPECT_EQ(truthOf(call("pyIsColumnMajor", {addressArray(buffer)})), order[0] == 'F')
                << dtype << " " << order;
            EXPECT_TRUE(truthOf(call("pyCheckBuffer", {addressArray(buffer)}))) << dtype;
            EXPECT_EQ(show(call("pyBufferGetData", {addressArray(buffer)})), expected) << order;
            release(buffer);
        }
    }
    // Other exporters: bytes, array.array, a strided view.
    const auto buffer = [](const std::string& expression) {
        return addressArray(addressOf(callOn("pyCreateBuffer", expression)));
    };
    EXPECT_EQ(show(call("pyBufferGetData", {buffer("b'\\x01\\x02\\x03'")})), "UINT8 3x1: 1 2 3");
    EXPECT_EQ(show(call("pyBufferGetData", {buffer("np.arange(20.0).reshape(4, 5)[::2, ::2]")})),
              "DOUBLE 2x3: 0 10 2 12 4 14");
    EXPECT_EQ(textOf(call("pyBufferGetFormat", {buffer("__import__('array').array('h', [1])")})),
              "h");
    EXPECT_THROW(callOn("pyCreateBuffer", "3.5"), std::exception);
    call("pyErrorClear");
}

TEST_F(Buffers, ExcludedTypesAndTypeQueries) {
    for (const auto& [expression, checked] :
         {std::pair{"b'xyz'", false}, std::pair{"bytearray(3)", false},
          std::pair{"memoryview(b'xyz')", true}, std::pair{"[1, 2]", false}}) {
        EXPECT_EQ(truthOf(callOn("pyCheckBuffer", expression)), checked) << expression;
    }
    for (const auto& [type, name, supports] :
         {std::tuple{"bytes", "bytes", false}, std::tuple{"np.ndarray", "ndarray", true},
          std::tuple{"int", "int", false}}) {
        EXPECT_EQ(truthOf(callOn("pyTypeSupportsBufferInterface", type, {chars(name)})), supports)
            << type;
    }
    EXPECT_EQ(callOn("pyGetBufferDataInQLOrder", "np.ones(3)").getNumberOfElements(), 0u);
    EXPECT_FALSE(errorOccurred());

    // Without the extension the check fails and the type queries answer false.
    exec("import sys\nsys.modules['libvxbuffer'] = None");
    EXPECT_EQ(failureOf([] { callOn("pyCheckBuffer", "np.ones(2)"); }), "Failed to get capsule.");
    call("pyErrorClear");
    EXPECT_FALSE(
        truthOf(callOn("pyTypeSupportsBufferInterface", "np.ndarray", {chars("ndarray")})));
    EXPECT_FALSE(errorOccurred());
}
