// Shared copies, copy on write, release and the read-only data pointer.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "foundation/veltradata.h"

namespace {

using namespace foundation::veltradata;

class SharingTest : public ::testing::Test {
  protected:
    ArrayFactory factory;
    TypedArray<double> numbers() {
        std::vector<double> v{1, 2, 3, 4, 5, 6};
        return factory.createArray<double>({2, 3}, v.begin(), v.end());
    }
};

TEST_F(SharingTest, CopiesShareUntilOneHolderWritesWhateverTheElements) {
    TypedArray<double> a = numbers();
    Array b = a;
    TypedArray<double> c(b);
    EXPECT_TRUE(a.sharesDataWith(b));
    EXPECT_TRUE(a.sharesDataWith(c));

    a[0] = 100.0;  // through a reference
    c.setElement(1, 200.0);
    EXPECT_FALSE(a.sharesDataWith(b));
    EXPECT_FALSE(c.sharesDataWith(b));
    EXPECT_EQ((std::vector<double>{a[0], a[1], c[0], c[1], b[0], b[1]}),
              (std::vector<double>{100, 2, 1, 200, 1, 2}));

    // The only holder writes in place: no copy.
    const void* before = a.getReadOnlyData();
    a[2] = 7.0;
    EXPECT_EQ(a.getReadOnlyData(), before);

    // Class-type elements are copied on write too.
    TypedArray<VELTRAString> s = factory.createArray<VELTRAString>({1, 2});
    s[0] = u"one";
    TypedArray<VELTRAString> t = s;
    t[0][1] = "two";
    EXPECT_FALSE(VELTRAString(s[1]).has_value());
    EXPECT_EQ(std::u16string(t[0][1]), u"two");

    // A scalar keeps its element inside the array: copies share it too.
    TypedArray<std::complex<double>> z = factory.createScalar(std::complex<double>(1, 2));
    Array w = z;
    z[0] = std::complex<double>(3, 4);
    const TypedArray<std::complex<double>> unchanged(w);
    EXPECT_EQ(std::complex<double>(unchanged[0]), std::complex<double>(1, 2));
    EXPECT_EQ(std::complex<double>(z[0]), std::complex<double>(3, 4));

    StructArray st = factory.createStructArray({1, 1}, {"x"});
    StructArray copy = st;
    st[0]["x"] = factory.createScalar(1.0);
    EXPECT_EQ(double(TypedArray<double>(Array(st[0]["x"]))[0]), 1.0);
    EXPECT_TRUE(Array(copy[0]["x"]).isEmpty());

    TypedArray<Array> cell = factory.createCellArray({1, 2}, {Array(), factory.createScalar(2.0)});
    Array other = cell;
    cell[0][0] = factory.createCharArray("z");
    EXPECT_EQ(CharArray(cell[0][0]).toAscii(), "z");
    EXPECT_EQ(Array(TypedArray<Array>(other)[0][0]).getType(), ArrayType::DOUBLE);
}

// The sole holder hands its storage over; with a second holder, release
// copies and leaves the other intact, class-type elements included.
TEST_F(SharingTest, ReleaseHandsOverTheStorageOrCopiesItAndReadOnlyDataStays) {
    TypedArray<double> a = numbers();
    const void* storage = a.getReadOnlyData();
    auto released = a.release();
    EXPECT_EQ(static_cast<const void*>(released.get()), storage);
    EXPECT_EQ(released[5], 6.0);
    EXPECT_EQ(a.getNumberOfElements(), 0u);
    EXPECT_THROW(a[0].operator double(), IndexOutOfBoundsException);

    TypedArray<double> b = numbers();
    Array keeper = b;
    auto copy = b.release();
    EXPECT_NE(static_cast<const void*>(copy.get()), keeper.getReadOnlyData());
    copy[0] = -1.0;
    EXPECT_EQ(double(keeper[0]), 1.0);
    EXPECT_EQ(keeper.getNumberOfElements(), 6u);

    // A scalar's element is inside the array: release hands out a buffer of
    // its own, which goes back into an array like any other.
    TypedArray<double> scalar = factory.createScalar(2.5);
    auto alone = scalar.release();
    EXPECT_EQ(alone[0], 2.5);
    EXPECT_EQ(
        TypedArray<double>(factory.createArrayFromBuffer<double>({1, 1}, std::move(alone)))[0],
        2.5);

    TypedArray<VELTRAString> s = factory.createArray<VELTRAString>({1, 3});
    s[1] = u"b";
    Array sKeeper = s;
    auto strings = s.release();
    EXPECT_FALSE(strings[0].has_value());
    EXPECT_EQ(*strings[1], u"b");
    EXPECT_EQ(std::u16string(TypedArray<VELTRAString>(sKeeper)[1]), u"b");

    // The read-only data pointer outlives the holder it came from.
    const double* data = nullptr;
    Array survivor;
    {
        TypedArray<double> holder = numbers();
        data = static_cast<const double*>(holder.getReadOnlyData());
        survivor = holder;
        holder[0] = 50.0;  // the holder detaches; the storage stays with survivor
    }
    EXPECT_EQ(survivor.getReadOnlyData(), data);
    EXPECT_EQ(data[0], 1.0);

    // No pointer where there is no plain storage.
    for (const Array& none : std::initializer_list<Array>{
             Array(), factory.createArray<double>({0, 3}), factory.createScalar("text"),
             factory.createCellArray({1, 1}, {Array()}),
             factory.createArray(ArrayType::SPARSE_DOUBLE, {3, 3})}) {
        EXPECT_EQ(none.getReadOnlyData(), nullptr);
    }
    EXPECT_NE(factory.createCharArray("a").getReadOnlyData(), nullptr);
}

// Many threads copy, write and drop holders of one shared storage; the
// original must stay intact and every storage must be freed once.
TEST_F(SharingTest, ConcurrentCopiesKeepCountsRight) {
    TypedArray<double> original = numbers();
    TypedArray<Array> cell = factory.createCellArray({1, 2}, {original, original});
    std::atomic<bool> wrong{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 2000; ++i) {
                TypedArray<double> mine = original;
                std::vector<Array> copies(4, mine);
                Array nested = TypedArray<Array>(cell)[0][i % 2];
                if (i % 3 == 0) {
                    mine[0] = double(t);
                    if (double(mine[0]) != double(t)) {
                        wrong = true;
                    }
                }
                if (double(TypedArray<double>(copies[1])[0]) != 1.0 ||
                    double(TypedArray<double>(nested)[0]) != 1.0) {
                    wrong = true;
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_FALSE(wrong);
    EXPECT_EQ(double(original[0]), 1.0);
    EXPECT_TRUE(original.sharesDataWith(Array(TypedArray<Array>(cell)[0][1])));
}

}  // namespace
