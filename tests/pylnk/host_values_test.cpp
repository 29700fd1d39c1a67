// Host arrays as Python values, by type and shape: scalars, array.array
// copies for vectors, buffer objects over the host's storage otherwise,
// text, cells and plain structs, the refused types, and pyCreateNumericArray.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <complex>
#include <limits>

#include "support/conversion.h"

using namespace vxtest;

namespace {

struct HostValues : SessionTest {
    HostValues() : SessionTest("import numpy\n") {}

    vd::Array numbers(std::vector<size_t> dims) {
        vd::TypedArray<double> a = f.createArray<double>(std::move(dims));
        for (size_t k = 0; k < a.getNumberOfElements(); ++k) {
            a[k] = static_cast<double>(k + 1);
        }
        return a;
    }
    static constexpr const char* kValue = "(type(x).__name__, x)";
    static constexpr const char* kBuffer = "(numpy.asarray(x).shape, numpy.asarray(x).dtype.str)";
};

}  // namespace

TEST_F(HostValues, ScalarsArrayArraysAndBuffersByShape) {
    EXPECT_EQ(seen(kValue, f.createScalar(std::int32_t{-5})), "('int', -5)");
    EXPECT_EQ(seen(kValue, f.createScalar(std::numeric_limits<std::uint32_t>::max())),
              "('int', 4294967295)");
    EXPECT_EQ(seen(kValue, f.createScalar(std::numeric_limits<std::uint64_t>::max())),
              "('int', 18446744073709551615)");
    EXPECT_EQ(seen("x == float(numpy.float32(0.1))", f.createScalar(0.1f)), "True");
    EXPECT_EQ(seen(kValue, f.createScalar(true)), "('bool', True)");
    EXPECT_EQ(seen(kValue, f.createScalar(std::complex<float>(0.5f, 2))), "('complex', (0.5+2j))");
    EXPECT_EQ(seen(kValue, numbers({1, 1, 1})), "('float', 1.0)") << "the count decides";

    const std::vector<std::pair<vd::ArrayType, std::string>> codes = {
        {vd::ArrayType::DOUBLE, "d8"}, {vd::ArrayType::SINGLE, "f4"}, {vd::ArrayType::INT8, "b1"},
        {vd::ArrayType::UINT8, "B1"},  {vd::ArrayType::INT16, "h2"},  {vd::ArrayType::UINT16, "H2"},
        {vd::ArrayType::INT32, "i4"},  {vd::ArrayType::UINT32, "I4"}, {vd::ArrayType::INT64, "q8"},
        {vd::ArrayType::UINT64, "Q8"}};
    for (const auto& [type, code] : codes) {
        EXPECT_EQ(seen("x.typecode + str(x.itemsize) + str(len(x))", f.createArray(type, {1, 3})),
                  code + "3");
    }
    EXPECT_EQ(seen("x.typecode + str(len(x))", f.createArray(vd::ArrayType::INT16, {4, 1})), "h4");
    EXPECT_EQ(seen("repr(x)", f.createArray(vd::ArrayType::DOUBLE, {0, 0})), "array('d')");
    // A copy: Python's changes stay in Python.
    vd::Array row = numbers({1, 3});
    exec("def change(x):\n    x[0] = 99.0\n    return x.tolist()\n");
    EXPECT_EQ(replyText(invokeFastInput(eval("change"), {row})), "[99.0, 2.0, 3.0]");
    EXPECT_EQ(valueOf<double>(row), 1.0);

    vd::Array matrix = numbers({2, 3});
    exec("def where(x):\n    a = numpy.asarray(x)\n    return (a[1, 0], a.ctypes.data)\n");
    EXPECT_EQ(
        replyText(invokeFastInput(eval("where"), {matrix})),
        "(2.0, " + std::to_string(reinterpret_cast<std::uintptr_t>(matrix.getReadOnlyData())) + ")")
        << "host element (1, 0), on the host's own storage";
    EXPECT_EQ(seen(kBuffer, numbers({1, 1, 3})), "((1, 1, 3), '<f8')");
    EXPECT_EQ(seen(kBuffer, f.createArray<std::complex<double>>({2, 1})), "((2, 1), '<c16')");
    EXPECT_EQ(seen(kBuffer, f.createArray<bool>({1, 2})), "((1, 2), '|b1')");
    EXPECT_EQ(seen(kBuffer, f.createArray<bool>({0, 0})), "((0, 0), '|b1')");
}

TEST_F(HostValues, TextCellsAndPlainStructs) {
    vd::CharArray grid = f.createArray<char16_t>({2, 2});
    for (size_t k = 0; k < 4; ++k) {
        grid[k] = u"acbd"[k];
    }
    EXPECT_EQ(seen("repr(x)", grid), "'acbd'") << "all characters in storage order";
    EXPECT_EQ(seen("x == 'caf\\u00e9 \\U0001F600'", f.createCharArray(u"caf\u00e9 \U0001F600")),
              "True");
    vd::TypedArray<vd::VELTRAString> strings = f.createArray<vd::VELTRAString>({1, 2});
    strings[1] = std::u16string(u"second");
    EXPECT_EQ(seen("repr(x)", strings), "None") << "element 0 only, and it is missing";
    EXPECT_THROW(seen("x", f.createArray<vd::VELTRAString>({1, 0})), std::invalid_argument);

    EXPECT_EQ(seen("repr(x)", cellOf({cellOf({f.createScalar(1.5)}), cellOf({})})), "((1.5,), ())");
    EXPECT_THROW(seen("x", f.createCellArray({2, 1}, {f.createScalar(1.0), f.createScalar(2.0)})),
                 std::exception)
        << "cells are read as row vectors";
    vd::StructArray row = f.createStructArray({1, 2}, {"b", "a"});
    row[0]["b"] = f.createCharArray(std::string("x"));
    row[0]["a"] = structOf({{"inner", f.createScalar(std::int64_t{7})}});
    EXPECT_EQ(seen("repr(x)", row), "{'b': 'x', 'a': {'inner': 7}}") << "element 0, field order";
    EXPECT_EQ(seen("repr(x)", f.createStructArray({1, 1}, {})), "{}");
    EXPECT_THROW(seen("x", f.createStructArray({0, 1}, {"a"})), std::invalid_argument);
}

TEST_F(HostValues, TypesWithoutPythonFormAreRefused) {
    exec("called = 0\ndef count(*a):\n    global called\n    called += 1\n");
    const vd::Array complexInt = f.createArray(vd::ArrayType::COMPLEX_INT8, {1, 1});
    for (const vd::Array& value :
         {complexInt, f.createArray(vd::ArrayType::VALUE_OBJECT, {1, 1}),
          f.createArray(vd::ArrayType::ENUM, {1, 1}),
          f.createArray(vd::ArrayType::SPARSE_DOUBLE, {2, 2}), f.createOpaqueArray(26, {1, 1}),
          cellOf({f.createScalar(1.0), complexInt}), structOf({{"a", complexInt}})}) {
        const vd::Array reply = invokeFastInput(eval("count"), {value});
        EXPECT_TRUE(reply.getType() == vd::ArrayType::DOUBLE && reply.isEmpty());
    }
    EXPECT_EQ(strOf(eval("called")), "0");
    EXPECT_FALSE(errorOccurred());
}

TEST_F(HostValues, CreateNumericArrayTakesWholeItems) {
    auto create = [](std::uint64_t bytes, char code, const vd::Array& data) {
        return strOf(addressOf(
            call("pyCreateNumericArray",
                 {uint64Array(bytes), vd::ArrayFactory().createScalar(std::uint8_t(code)), data})));
    };
    EXPECT_EQ(create(16, 'd', numbers({3, 1})), "array('d', [1.0, 2.0])");
    EXPECT_EQ(create(4, 'i', f.createArray<std::uint8_t>({1, 4})), "array('i', [0])");
    const std::tuple<std::uint64_t, char, vd::Array, const char*> refused[] = {
        {32, 'd', numbers({1, 3}), "within the data"},
        {6, 'i', numbers({1, 3}), "whole number"},
        {1, 'x', numbers({1, 3}), "type code"},
        {0, 'd', cellOf({}), "not CELL"},
        {8, 'd', f.createArray(vd::ArrayType::SPARSE_LOGICAL, {2, 2}),
         "Unknown DataType field in veltra::data::Array."},
    };
    for (const auto& [bytes, code, data, message] : refused) {
        EXPECT_THAT(failureOf([&] { create(bytes, code, data); }), ::testing::HasSubstr(message));
    }
    EXPECT_FALSE(errorOccurred());
}
