// Factory operations: scalars, shapes, cells, buffers.
#include <gtest/gtest.h>

#include <complex>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "foundation/veltradata.h"

namespace {

using namespace foundation::veltradata;

class FactoryTest : public ::testing::Test {
  protected:
    standalone::ArrayFactory factory;
};

TEST_F(FactoryTest, ScalarsShapesFreshContentsAndCells) {
    EXPECT_EQ(Array().getNumberOfElements(), 0u);
    EXPECT_EQ(Array().getType(), ArrayType::DOUBLE);
    EXPECT_EQ(factory.createEmptyArray().getDimensions(), (std::vector<std::size_t>{0, 0}));
    EXPECT_EQ(factory.createArray<double>({5}).getDimensions(), (std::vector<std::size_t>{1, 5}));
    EXPECT_EQ(factory.createArray<double>({2, 3, 1, 1}).getDimensions(),
              (std::vector<std::size_t>{2, 3}));
    EXPECT_TRUE(factory.createArray<double>({2, 0, 3}).isEmpty());
    EXPECT_THROW(factory.createArray<double>({}), InvalidDimensionsException);
    const std::size_t huge = std::size_t{1} << 40;
    EXPECT_THROW(factory.createArray<double>({huge, huge}), InvalidDimensionsException);

    for (double v : factory.createArray<double>({3, 3})) {
        EXPECT_EQ(v, 0.0);
    }
    for (const Array& v : factory.createArray<Array>({2, 1})) {
        EXPECT_EQ(v.getType(), ArrayType::DOUBLE);
        EXPECT_TRUE(v.isEmpty());
    }
    EnumArray enums(factory.createArray(ArrayType::ENUM, {1, 2}));
    EXPECT_EQ(enums.begin()->getName(), "");

    // A cell array from arrays needs one per element.
    std::vector<Array> three{factory.createScalar(1.0), factory.createScalar(2.0), Array()};
    TypedArray<Array> cell = factory.createCellArray({1, 3}, three);
    EXPECT_TRUE(three[1].sharesDataWith(Array(cell[1])));
    EXPECT_THROW(factory.createCellArray({2, 2}, three), InvalidDimensionsException);
    EXPECT_THROW(factory.createCellArray({1, 2}, three), InvalidDimensionsException);

    auto check = [](const Array& a, ArrayType type) {
        EXPECT_EQ(a.getType(), type);
        EXPECT_EQ(a.getDimensions(), (std::vector<std::size_t>{1, 1}));
    };
    check(factory.createScalar(true), ArrayType::LOGICAL);
    check(factory.createScalar(2.5), ArrayType::DOUBLE);
    check(factory.createScalar(std::int64_t{-3}), ArrayType::INT64);
    check(factory.createScalar(std::uint64_t{3}), ArrayType::UINT64);
    check(factory.createScalar(7LL), ArrayType::INT64);
    check(factory.createScalar(7), ArrayType::INT32);
    check(factory.createScalar(std::complex<double>(1, 2)), ArrayType::COMPLEX_DOUBLE);
    check(factory.createScalar("text"), ArrayType::VELTRA_STRING);
    EXPECT_FALSE(VELTRAString(factory.createScalar(VELTRAString())[0]).has_value());
}

TEST_F(FactoryTest, ArrayFromBufferTakesItOverWithoutCopyAndReordersRowMajorData) {
    auto buffer = factory.createBuffer(ArrayType::DOUBLE, 6);
    auto* values = static_cast<double*>(buffer.get());
    for (int i = 0; i < 6; ++i) {
        values[i] = i;
    }
    Array a = factory.createArrayFromBuffer({2, 3}, ArrayType::DOUBLE, std::move(buffer));
    EXPECT_EQ(a.getReadOnlyData(), values);
    EXPECT_EQ(double(TypedArray<double>(a)[1][2]), 5.0);

    // A released buffer goes back in, still without copy.
    auto released = TypedArray<double>(std::move(a)).release();
    double* raw = released.get();
    TypedArray<double> again = factory.createArrayFromBuffer<double>({6}, std::move(released));
    EXPECT_EQ(again.getReadOnlyData(), raw);

    void* rawBuffer = nullptr;
    void (*deleter)(void*) = nullptr;
    factory.createBuffer(&rawBuffer, &deleter, static_cast<int>(ArrayType::INT32), 2);
    ASSERT_NE(rawBuffer, nullptr);
    Array ints = factory.createArrayFromBuffer(
        {1, 2}, ArrayType::INT32, std::unique_ptr<void, void (*)(void*)>(rawBuffer, deleter));
    EXPECT_EQ(int32_t(TypedArray<int32_t>(ints)[1]), 0);

    // A foreign buffer of a plain type, with its own deleter; LOGICAL bytes normalised.
    auto* bytes = static_cast<unsigned char*>(std::malloc(3));
    bytes[0] = 0, bytes[1] = 7, bytes[2] = 1;
    TypedArray<bool> flags = factory.createArrayFromBuffer(
        {1, 3}, ArrayType::LOGICAL, std::unique_ptr<void, void (*)(void*)>(bytes, &std::free));
    EXPECT_EQ(std::memcmp(flags.getReadOnlyData(), "\0\1\1", 3), 0);

    auto cube = factory.createBuffer<double>(24);
    for (int i = 0; i < 24; ++i) {
        cube[i] = i;  // row-major: (i, j, k) at 12 i + 4 j + k
    }
    TypedArray<double> c =
        factory.createArrayFromBuffer<double>({2, 3, 4}, std::move(cube), MemoryLayout::ROW_MAJOR);
    for (std::size_t k = 0; k < 24; ++k) {
        const std::size_t i = k % 2, j = k / 2 % 3, l = k / 6;  // column-major position k
        EXPECT_EQ(double(c[k]), double(12 * i + 4 * j + l));
    }
}

TEST_F(FactoryTest, BadBuffersAreRefused) {
    using Buffer = std::unique_ptr<void, void (*)(void*)>;
    EXPECT_THROW(factory.createArrayFromBuffer({1, 5}, ArrayType::DOUBLE,
                                               factory.createBuffer(ArrayType::DOUBLE, 4)),
                 InvalidBufferException);
    EXPECT_THROW(factory.createArrayFromBuffer({1, 4}, ArrayType::INT64,
                                               factory.createBuffer(ArrayType::DOUBLE, 4)),
                 InvalidBufferException);
    EXPECT_THROW(
        factory.createArrayFromBuffer({1, 1}, ArrayType::DOUBLE, Buffer(nullptr, &std::free)),
        InvalidBufferException);
    EXPECT_TRUE(
        factory.createArrayFromBuffer({0, 1}, ArrayType::DOUBLE, Buffer(nullptr, &std::free))
            .isEmpty());
    EXPECT_THROW(factory.createArrayFromBuffer({1, 1}, ArrayType::VELTRA_STRING,
                                               Buffer(std::malloc(64), &std::free)),
                 InvalidBufferException);
    EXPECT_THROW(factory.createArrayFromBuffer({1, 1}, ArrayType::SPARSE_DOUBLE,
                                               Buffer(std::malloc(8), &std::free)),
                 InvalidArgumentException);
    EXPECT_THROW(factory.createBuffer(ArrayType::UNKNOWN, 1), InvalidArgumentException);
    EXPECT_THROW(factory.createBuffer(nullptr, nullptr, 4, 1), InvalidArgumentException);

    // Class-type buffers from the library are accepted.
    auto strings = factory.createBuffer<VELTRAString>(2);
    strings[1] = u"b";
    TypedArray<VELTRAString> s =
        factory.createArrayFromBuffer<VELTRAString>({1, 2}, std::move(strings));
    EXPECT_EQ(std::u16string(s[0][1]), u"b");
}

}  // namespace
