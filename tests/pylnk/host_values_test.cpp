// Host arrays as Python values, by type and shape: scalars, array.array
// copies for vectors, buffer objects over the host's storage for matrices,
// text, cells and plain structs, the refused types, and pyCreateNumericArray.
#include <gtest/gtest.h>

#include <complex>
#include <limits>

#include "support/conversion.h"

using namespace vxtest;

namespace {

class HostValues : public ::testing::Test {
  protected:
    void SetUp() override {
        startSystemPython();
        exec("import array, numpy\n");
    }
    vd::ArrayFactory f;

    template <class T>
    vd::Array filled(std::vector<size_t> dims) {
        vd::TypedArray<T> a = f.createArray<T>(std::move(dims));
        for (size_t k = 0; k < a.getNumberOfElements(); ++k) {
            a[k] = static_cast<T>(k + 1);
        }
        return a;
    }
    static constexpr const char* kKindAndValue = "(type(x).__name__, x)";
    static constexpr const char* kArray = "(x.typecode, x.itemsize, x.tolist())";
    static constexpr const char* kBuffer = "(numpy.asarray(x).shape, numpy.asarray(x).dtype.str)";
};

}  // namespace

TEST_F(HostValues, OneElementIsAPythonScalarOfTheFullRange) {
    EXPECT_EQ(seen(kKindAndValue, f.createScalar(std::int32_t{-5})), "('int', -5)");
    EXPECT_EQ(seen(kKindAndValue, f.createScalar(std::numeric_limits<std::uint32_t>::max())),
              "('int', 4294967295)");
    EXPECT_EQ(seen(kKindAndValue, f.createScalar(std::numeric_limits<std::uint64_t>::max())),
              "('int', 18446744073709551615)");
    EXPECT_EQ(seen(kKindAndValue, f.createScalar(std::numeric_limits<std::int64_t>::min())),
              "('int', -9223372036854775808)");
    EXPECT_EQ(seen(kKindAndValue, f.createScalar(std::int8_t{-128})), "('int', -128)");
    EXPECT_EQ(seen("x == float(numpy.float32(0.1))", f.createScalar(0.1f)), "True")
        << "single widened, not rounded to the nearest double of 0.1";
    EXPECT_EQ(seen(kKindAndValue, f.createScalar(true)), "('bool', True)");
    EXPECT_EQ(seen(kKindAndValue, f.createScalar(std::complex<double>(1, -2))),
              "('complex', (1-2j))");
    EXPECT_EQ(seen(kKindAndValue, f.createScalar(std::complex<float>(0.5f, 2))),
              "('complex', (0.5+2j))");
    EXPECT_EQ(seen(kKindAndValue, filled<double>({1, 1, 1})), "('float', 1.0)")
        << "the count decides, not the dimensions";
}

TEST_F(HostValues, VectorsAndEmptyArraysAreArrayArraysWithTheirTypeCode) {
    EXPECT_EQ(seen(kArray, filled<double>({1, 3})), "('d', 8, [1.0, 2.0, 3.0])");
    EXPECT_EQ(seen(kArray, filled<float>({3, 1})), "('f', 4, [1.0, 2.0, 3.0])");
    EXPECT_EQ(seen(kArray, filled<std::int8_t>({1, 2})), "('b', 1, [1, 2])");
    EXPECT_EQ(seen(kArray, filled<std::uint8_t>({1, 2})), "('B', 1, [1, 2])");
    EXPECT_EQ(seen(kArray, filled<std::int16_t>({4, 1})), "('h', 2, [1, 2, 3, 4])");
    EXPECT_EQ(seen(kArray, filled<std::uint16_t>({1, 2})), "('H', 2, [1, 2])");
    EXPECT_EQ(seen(kArray, filled<std::int32_t>({1, 2})), "('i', 4, [1, 2])");
    EXPECT_EQ(seen(kArray, filled<std::uint32_t>({1, 2})), "('I', 4, [1, 2])");
    EXPECT_EQ(seen(kArray, filled<std::int64_t>({1, 2})), "('q', 8, [1, 2])");
    EXPECT_EQ(seen(kArray, filled<std::uint64_t>({1, 2})), "('Q', 8, [1, 2])");
    EXPECT_EQ(seen(kArray, filled<double>({0, 0})), "('d', 8, [])");
    EXPECT_EQ(seen(kArray, filled<std::int16_t>({5, 0})), "('h', 2, [])");

    // A copy: the host's array keeps its data, and Python's changes stay in Python.
    vd::Array host = filled<double>({1, 3});
    exec("def change(x):\n    x[0] = 99.0\n    return x.tolist()\n");
    EXPECT_EQ(replyText(invokeFastInput(eval("change"), {host})), "[99.0, 2.0, 3.0]");
    EXPECT_EQ(static_cast<double>(vd::TypedArray<double>(host)[0]), 1.0);
}

TEST_F(HostValues, MatricesLogicalArraysAndComplexVectorsStandOnTheHostStorage) {
    vd::Array matrix = filled<double>({2, 3});
    exec(
        "def where(x):\n    a = numpy.asarray(x)\n"
        "    return (a.shape, a[1, 0], a.ctypes.data)\n");
    const std::string expected =
        "((2, 3), 2.0, " +
        std::to_string(reinterpret_cast<std::uintptr_t>(matrix.getReadOnlyData())) + ")";
    EXPECT_EQ(replyText(invokeFastInput(eval("where"), {matrix})), expected)
        << "host element (1, 0), at the host array's own address";

    EXPECT_EQ(seen(kBuffer, filled<double>({1, 1, 3})), "((1, 1, 3), '<f8')");
    EXPECT_EQ(seen(kBuffer, filled<double>({2, 0, 3})), "((2, 0, 3), '<f8')");
    EXPECT_EQ(seen(kBuffer, filled<std::complex<double>>({1, 2})), "((1, 2), '<c16')");
    EXPECT_EQ(seen(kBuffer, filled<std::complex<float>>({0, 0})), "((0, 0), '<c8')");
    EXPECT_EQ(seen(kBuffer, f.createArray<bool>({1, 2})), "((1, 2), '|b1')");
    EXPECT_EQ(seen(kBuffer, f.createArray<bool>({0, 0})), "((0, 0), '|b1')");
}

TEST_F(HostValues, TextIsOneStrInStorageOrder) {
    vd::CharArray grid = f.createArray<char16_t>({2, 3});
    const std::u16string letters = u"adbecf";
    for (size_t k = 0; k < letters.size(); ++k) {
        grid[k] = letters[k];
    }
    EXPECT_EQ(seen("repr(x)", grid), "'adbecf'");
    EXPECT_EQ(seen("repr(x)", f.createCharArray(std::string())), "''");
    EXPECT_EQ(seen("x == 'caf\\u00e9 \\U0001F600'", f.createCharArray(u"caf\u00e9 \U0001F600")),
              "True")
        << "the UTF-16 path gives what Python's own decoder gives";

    vd::TypedArray<vd::VELTRAString> strings = f.createArray<vd::VELTRAString>({1, 3});
    strings[0] = std::u16string(u"first");
    strings[1] = std::u16string(u"second");
    EXPECT_EQ(seen("repr(x)", strings), "'first'") << "only element 0 is read";
    strings[0] = vd::VELTRAString();
    EXPECT_EQ(seen("repr(x)", strings), "None") << "a missing element 0 is the missing value";
    try {
        invokeFastInput(eval("repr"), {f.createArray<vd::VELTRAString>({1, 0})});
        ADD_FAILURE() << "an empty string array has no text";
    } catch (const std::invalid_argument& e) {
        EXPECT_NE(std::string(e.what()).find("no elements"), std::string::npos) << e.what();
    }
}

TEST_F(HostValues, CellsAreTuplesAndPlainStructsDictsOfElementZero) {
    EXPECT_EQ(seen("repr(x)", cellOf({})), "()");
    EXPECT_EQ(seen("repr(x)", cellOf({f.createScalar(1.5)})), "(1.5,)");
    EXPECT_EQ(seen("repr(x)", cellOf({cellOf({f.createScalar(true)}), cellOf({})})),
              "((True,), ())");
    EXPECT_THROW(seen("x", f.createCellArray({2, 1}, {f.createScalar(1.0), f.createScalar(2.0)})),
                 std::exception)
        << "cells are read as row vectors: (0, 1) is past the end";

    vd::StructArray row = f.createStructArray({1, 3}, {"b", "a"});
    row[0]["b"] = cellOf({f.createCharArray(std::string("x"))});
    row[0]["a"] = structOf({{"inner", f.createScalar(std::int64_t{7})}});
    row[2]["b"] = f.createScalar(3.0);
    EXPECT_EQ(seen("repr(x)", row), "{'b': ('x',), 'a': {'inner': 7}}")
        << "keys in field order, values by the whole driver, element 0 only";
    EXPECT_EQ(seen("repr(x)", f.createStructArray({1, 1}, {})), "{}");
    EXPECT_THROW(seen("x", f.createStructArray({0, 1}, {"a"})), std::invalid_argument);
}

TEST_F(HostValues, TypesWithoutAPythonFormAreRefusedWithAnEmptyReply) {
    exec("called = 0\ndef count(*a):\n    global called\n    called += 1\n");
    const std::vector<vd::Array> refused = {
        f.createArray(vd::ArrayType::COMPLEX_INT8, {1, 1}),
        f.createArray(vd::ArrayType::COMPLEX_UINT64, {1, 2}),
        f.createArray(vd::ArrayType::VALUE_OBJECT, {1, 1}),
        f.createArray(vd::ArrayType::HANDLE_OBJECT_REF, {1, 1}),
        f.createArray(vd::ArrayType::ENUM, {1, 1}),
        f.createArray(vd::ArrayType::SPARSE_DOUBLE, {2, 2}),
        f.createOpaqueArray(26, {1, 1}),
        f.createOpaqueArray(0, {1, 1}),
        cellOf({f.createScalar(1.0), f.createArray(vd::ArrayType::COMPLEX_INT8, {1, 1})}),
        structOf({{"a", f.createArray(vd::ArrayType::ENUM, {1, 1})}})};
    for (const vd::Array& value : refused) {
        const vd::Array reply = invokeFastInput(eval("count"), {value});
        EXPECT_EQ(reply.getType(), vd::ArrayType::DOUBLE);
        EXPECT_TRUE(reply.isEmpty());
    }
    EXPECT_EQ(strOf(eval("called")), "0");
    EXPECT_FALSE(errorOccurred());
}

TEST_F(HostValues, CreateNumericArrayTakesWholeItemsWithinPlainData) {
    auto create = [](std::uint64_t bytes, char code, const vd::Array& data) {
        return addressOf(
            call("pyCreateNumericArray",
                 {uint64Array(bytes), vd::ArrayFactory().createScalar(std::uint8_t(code)), data}));
    };
    EXPECT_EQ(strOf(create(16, 'd', filled<double>({3, 1}))), "array('d', [1.0, 2.0])");
    vd::TypedArray<std::uint8_t> raw = f.createArray<std::uint8_t>({1, 4});
    raw[0] = 1;
    EXPECT_EQ(strOf(create(4, 'i', raw)), "array('i', [1])") << "raw bytes, read as the code says";
    EXPECT_EQ(strOf(create(0, 'q', f.createArray<double>({0, 0}))), "array('q')");

    auto failure = [&](std::uint64_t bytes, char code, const vd::Array& data) {
        try {
            create(bytes, code, data);
        } catch (const std::exception& e) {
            return std::string(e.what());
        }
        return std::string("no failure");
    };
    EXPECT_NE(failure(32, 'd', filled<double>({1, 3})).find("within the data"), std::string::npos);
    EXPECT_NE(failure(6, 'i', filled<double>({1, 3})).find("whole number"), std::string::npos);
    EXPECT_NE(failure(1, 'x', filled<double>({1, 3})).find("type code"), std::string::npos);
    EXPECT_NE(failure(0, 'd', cellOf({})).find("not CELL"), std::string::npos);
    EXPECT_NE(failure(8, 'd', structOf({})).find("not STRUCT"), std::string::npos);
    EXPECT_NE(failure(8, 'd', f.createScalar("text")).find("not VELTRA_STRING"), std::string::npos);
    EXPECT_EQ(failure(8, 'd', f.createArray(vd::ArrayType::SPARSE_LOGICAL, {2, 2})),
              "Unknown DataType field in veltra::data::Array.");
    EXPECT_FALSE(errorOccurred());
}
