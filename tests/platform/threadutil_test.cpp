#include "foundation/msg_svc/threadutil.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace {

// Each frame keeps a page of its own alive across the recursive call, so the
// compiler can neither merge the frames nor turn the call into a jump.
std::uintptr_t lowestFrame(std::size_t depth) {
    volatile char page[4096];
    page[0] = static_cast<char>(depth);
    page[sizeof page - 1] = page[0];
    const auto here = reinterpret_cast<std::uintptr_t>(&page[0]);
    if (depth == 0)
        return here;
    const std::uintptr_t deeper = lowestFrame(depth - 1);
    return page[sizeof page - 1] == static_cast<char>(depth) ? deeper : here;
}

TEST(CreateThreadWithMaxStacksize, RunsRecursionFarBeyondADefaultStack) {
    constexpr std::size_t kDepth = 25'600;  // about 100 MiB at a page per frame
    std::uintptr_t top = 0, bottom = 0;
    boost::thread thread = foundation::msg_svc::threadutil::create_thread_with_max_stacksize([&] {
        volatile char marker = 0;
        top = reinterpret_cast<std::uintptr_t>(&marker);
        bottom = lowestFrame(kDepth);
    });
    thread.join();
    EXPECT_GE(top - bottom, kDepth * 4096);
}

}  // namespace
