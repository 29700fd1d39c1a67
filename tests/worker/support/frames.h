// A frame as the bytes that go over the connection.
#pragma once

#include <cstddef>
#include <vector>

#include "wire/wire_codec.h"

namespace vxtest {

inline std::vector<std::byte> bytesOf(const vxpy::wire::OutFrame& frame) {
    std::vector<std::byte> all;
    for (const iovec& piece : frame.pieces()) {
        const auto* first = static_cast<const std::byte*>(piece.iov_base);
        all.insert(all.end(), first, first + piece.iov_len);
    }
    return all;
}

}  // namespace vxtest
