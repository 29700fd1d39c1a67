// Large buffers in shareable memory, and arrays over borrowed elements.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <atomic>
#include <cstring>
#include <vector>

#include "foundation/veltradata.h"

namespace {

using namespace foundation::veltradata;
namespace sm = foundation::veltradata::shared_memory;

constexpr std::size_t kLargeCount = sm::kLargeBufferBytes / sizeof(double) + 1;

TEST(SharedMemory, LargeBuffersLiveInSealedChunksAndComeBackCleared) {
    ArrayFactory factory;
    TypedArray<double> before = factory.createArray<double>({1, kLargeCount});
    EXPECT_FALSE(sm::locate(before.getReadOnlyData(), 8));  // made before the pool was on

    sm::enable();
    ASSERT_TRUE(sm::enabled());
    TypedArray<double> small = factory.createArray<double>({1, 4});
    EXPECT_FALSE(sm::locate(small.getReadOnlyData(), 8));

    TypedArray<double> large = factory.createArray<double>({1, kLargeCount});
    const auto place = sm::locate(large.getReadOnlyData(), kLargeCount * sizeof(double));
    ASSERT_TRUE(place);
    EXPECT_EQ(::fcntl(place->fd, F_GET_SEALS) & (F_SEAL_SHRINK | F_SEAL_GROW),
              F_SEAL_SHRINK | F_SEAL_GROW);
    // Another mapping of the chunk (as a peer process makes) sees the elements.
    large[kLargeCount - 1] = 2.5;
    auto* other = static_cast<const std::byte*>(
        ::mmap(nullptr, place->chunkBytes, PROT_READ, MAP_SHARED, place->fd, 0));
    ASSERT_NE(other, MAP_FAILED);
    double seen = 0;
    std::memcpy(&seen, other + place->offset + (kLargeCount - 1) * sizeof(double), sizeof seen);
    EXPECT_EQ(seen, 2.5);
    ::munmap(const_cast<std::byte*>(other), place->chunkBytes);

    // The range goes back to the pool and is cleared for the next array.
    const void* where = large.getReadOnlyData();
    for (std::size_t i = 0; i < kLargeCount; ++i) {
        large[i] = 1.0;
    }
    large = TypedArray<double>(factory.createArray<double>({1, 1}));
    TypedArray<double> again = factory.createArray<double>({1, kLargeCount});
    EXPECT_EQ(again.getReadOnlyData(), where);
    EXPECT_EQ(again[0], 0.0);
    EXPECT_EQ(again[kLargeCount - 1], 0.0);
}

TEST(SharedMemory, IdleChunksBeyondTheReserveGoBackToTheSystem) {
    sm::enable();
    std::atomic<int> gone{0};
    const std::uint64_t ticket = sm::onChunkGone([&](std::uint64_t) { ++gone; });
    ArrayFactory factory;
    {
        std::vector<Array> arrays;
        for (int i = 0; i < 8; ++i) {  // 8 chunks of over 64 MiB each
            arrays.push_back(factory.createArray<std::uint8_t>({std::size_t{64} << 20, 1}));
        }
        EXPECT_GE(sm::usage().chunks, 8u);
    }
    sm::stopListening(ticket);
    EXPECT_GE(gone.load(), 4);
    EXPECT_LE(sm::usage().bytes, std::size_t{256 + 70} << 20);
    EXPECT_EQ(sm::usage().usedBytes, 0u);
}

std::atomic<int> doneCalls{0};
void countDone(void*) {
    ++doneCalls;
}

TEST(SharedMemory, BorrowedElementsAreReadInPlaceAndNeverWritten) {
    const std::vector<double> owner{1, 2, 3, 4};
    doneCalls = 0;
    {
        TypedArray<double> borrowed(
            sm::adoptBorrowed(ArrayType::DOUBLE, {2, 2}, owner.data(), countDone));
        EXPECT_EQ(borrowed.getReadOnlyData(), owner.data());
        EXPECT_EQ(borrowed[3], 4.0);
        Array copy = borrowed;
        // A write detaches even the only holder; the owner's bytes stay.
        borrowed[0] = 9.0;
        EXPECT_EQ(owner[0], 1.0);
        EXPECT_NE(borrowed.getReadOnlyData(), owner.data());
        // release() hands out a copy, never the borrowed storage.
        TypedArray<double> last(copy);
        copy = Array();
        auto released = last.release();
        EXPECT_NE(static_cast<const void*>(released.get()), owner.data());
        EXPECT_EQ(released[1], 2.0);
    }
    EXPECT_EQ(doneCalls.load(), 1);
    EXPECT_THROW(sm::adoptBorrowed(ArrayType::LOGICAL, {1, 1}, owner.data(), countDone),
                 InvalidArgumentException);
}

}  // namespace
