// libFuzzer target for the frame decoder: any input is either refused with a
// WireError or decodes to arrays that encode and decode to the same arrays.
// Any other exception, a crash or a sanitizer report is a finding.
#include <cstdint>
#include <cstdlib>

#include "support/arrays.h"
#include "support/frames.h"
#include "wire/wire_codec.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vxpy::wire;
    Frame frame;
    try {
        frame = decodeFrame(std::span(reinterpret_cast<const std::byte*>(data), size));
    } catch (const WireError&) {
        return 0;
    }
    const Frame again = decodeFrame(vxtest::bytesOf(replyFrame(frame.id, frame.arrays)));
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
