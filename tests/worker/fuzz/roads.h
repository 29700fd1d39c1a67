// What the fuzz target and its seeds agree on: the roads an input may take
// (its first byte) and what road 2 has on offer.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vxtest::fuzz {

enum Road : std::uint8_t { Bytes = 0, Ring = 1, References = 2 };

inline constexpr std::size_t kRingBytes = 4096;
// What is on offer: chunk 1 of the peer (1 MiB, read at kOfferedOffset under
// loan 1 by the seeds), and loan 1 of this side (kOfferedElements doubles);
// both large enough to be lent.
inline constexpr std::size_t kOfferedElements = 65536;
inline constexpr std::uint64_t kOfferedOffset = 64;

}  // namespace vxtest::fuzz
