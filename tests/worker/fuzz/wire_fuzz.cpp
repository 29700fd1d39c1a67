// libFuzzer target for the frame decoder: any input is either refused with a
// WireError or decodes to arrays that encode and decode to the same arrays.
// Any other exception, a crash or a sanitizer report is a finding.
#include <cstdint>
#include <cstdlib>

#include "support/arrays.h"
#include "wire/wire_codec.h"

namespace {

std::vector<std::byte> bytesOf(const vxpy::wire::OutFrame& frame) {
    std::vector<std::byte> all;
    for (const iovec& piece : frame.pieces()) {
        const auto* first = static_cast<const std::byte*>(piece.iov_base);
        all.insert(all.end(), first, first + piece.iov_len);
    }
    return all;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vxpy::wire;
    Frame frame;
    try {
        frame = decodeFrame(std::span(reinterpret_cast<const std::byte*>(data), size));
    } catch (const WireError&) {
        return 0;
    }
    const Frame again = decodeFrame(bytesOf(replyFrame(frame.id, frame.arrays)));
    if (again.arrays.size() != frame.arrays.size()) {
        std::abort();
    }
    for (std::size_t i = 0; i < frame.arrays.size(); ++i) {
        if (!vxtest::sameArray(again.arrays[i], frame.arrays[i])) {
            std::abort();
        }
    }
    return 0;
}
