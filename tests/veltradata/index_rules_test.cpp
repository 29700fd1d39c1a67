// The three index rules and their refusals.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "foundation/veltradata.h"

namespace {

using namespace foundation::veltradata;

class IndexRulesTest : public ::testing::Test {
  protected:
    ArrayFactory factory;
    // An array whose elements hold their storage positions.
    TypedArray<double> counting(std::vector<std::size_t> dims) {
        std::vector<double> v(factory.createArray<double>(dims).getNumberOfElements());
        std::iota(v.begin(), v.end(), 0.0);
        return factory.createArray<double>(dims, v.begin(), v.end());
    }
};

TEST_F(IndexRulesTest, OneIndexIsStorageOrderTwoAreRowAndColumnAndMoreFoldTheRest) {
    TypedArray<double> m = counting({2, 3});
    for (std::size_t k = 0; k < 6; ++k) {
        EXPECT_EQ(double(m[k]), double(k));
        EXPECT_EQ(double(m[k % 2][k / 2]), double(k));  // column-major: (i, j) at i + 2 j
    }
    m[1][2] = -5.0;
    EXPECT_EQ(double(m[5]), -5.0);

    // Untyped reading: a[0][0] read as a value of the element type.
    Array untyped = m;
    double x = untyped[1][1];
    EXPECT_EQ(x, 3.0);
    EXPECT_THROW(untyped[0].operator float(), InvalidArrayTypeException);

    // The last subscript spans the remaining dimensions; subscripts past the
    // last dimension range over 1, so a row vector walks with [0][j] and a
    // column vector does not.
    TypedArray<double> a = counting({2, 3, 4});
    EXPECT_EQ(double(a[1][2][3]), 1 + 2 * 2 + 3 * 6.0);
    EXPECT_EQ(double(a[1][11]), 1 + 2 * 11.0);
    EXPECT_EQ(double(a[1][2][3][0]), 23.0);
    EXPECT_THROW(a[1][2][3][1].operator double(), IndexOutOfBoundsException);
    EXPECT_THROW(a[1][12].operator double(), IndexOutOfBoundsException);
    EXPECT_THROW(a[2][0].operator double(), IndexOutOfBoundsException);

    TypedArray<double> row = counting({4});  // one entry: 1 by n
    EXPECT_EQ(double(row[0][3]), 3.0);
    TypedArray<double> column = counting({4, 1});
    EXPECT_EQ(double(column[3][0]), 3.0);
    EXPECT_THROW(column[0][1].operator double(), IndexOutOfBoundsException);
}

TEST_F(IndexRulesTest, EveryIndexPastTheEndThrowsAndWritesNothing) {
    TypedArray<double> a = counting({2, 2});
    Array shared = a;
    EXPECT_THROW(a[4] = 1.0, IndexOutOfBoundsException);
    EXPECT_THROW(a[0][2] = 1.0, IndexOutOfBoundsException);
    EXPECT_TRUE(a.sharesDataWith(shared));  // a refused write copies nothing
    EXPECT_THROW(a.setElement(9, 0.0), IndexOutOfBoundsException);
    EXPECT_THROW((void)Array()[0].operator double(), IndexOutOfBoundsException);
    EXPECT_THROW(a[static_cast<std::size_t>(-1)].operator double(), IndexOutOfBoundsException);

    TypedArray<VELTRAString> s = factory.createArray<VELTRAString>({1, 1});
    EXPECT_THROW(s[1] = u"x", IndexOutOfBoundsException);
    StructArray st = factory.createStructArray({1, 2}, {"f"});
    EXPECT_THROW(st[2]["f"] = Array(), IndexOutOfBoundsException);
    EXPECT_THROW((void)Array(st[0][2]["f"]), IndexOutOfBoundsException);
    TypedArray<Array> cell = factory.createArray<Array>({1, 2});
    EXPECT_THROW(cell[0][2] = Array(), IndexOutOfBoundsException);
    EXPECT_THROW((void)Array(cell[2]), IndexOutOfBoundsException);

    EXPECT_THAT([&] { (void)double(a[7]); },
                testing::ThrowsMessage<IndexOutOfBoundsException>(testing::HasSubstr("2x2")));
}

TEST_F(IndexRulesTest, CellElementsReadAndAssign) {
    TypedArray<Array> cell = factory.createCellArray(
        {1, 3},
        {factory.createScalar(1.0), factory.createCharArray("b"), factory.createScalar(u"c")});
    Array first = cell[0][0];
    Array second = cell[1];
    EXPECT_EQ(first.getType(), ArrayType::DOUBLE);
    EXPECT_EQ(CharArray(second).toUTF16(), u"b");
    TypedArray<VELTRAString> third = cell[0][2];
    EXPECT_EQ(std::u16string(third[0][0]), u"c");

    cell[0][1] = factory.createScalar(int64_t{42});
    EXPECT_EQ(int64_t(TypedArray<int64_t>(Array(cell[1]))[0]), 42);
    cell[0][0] = cell[0][2];  // element to element copies the value
    EXPECT_EQ(Array(cell[0]).getType(), ArrayType::VELTRA_STRING);

    // The element read out shares its storage with the one held.
    TypedArray<double> big = factory.createArray<double>({100, 100});
    cell[0][0] = big;
    EXPECT_TRUE(big.sharesDataWith(Array(cell[0][0])));

    auto it = cell.begin();
    it.increment();
    EXPECT_EQ(it.getRef().getType(), ArrayType::INT64);
}

}  // namespace
