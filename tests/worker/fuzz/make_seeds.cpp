// Writes the fuzzer's seed corpus: one real frame of every kind.
//   vx_wire_seeds DIR
#include <fstream>
#include <iostream>

#include "support/arrays.h"
#include "support/frames.h"
#include "wire/wire_codec.h"

int main(int argc, char** argv) {
    using namespace vxpy::wire;
    namespace vd = foundation::veltradata;
    if (argc != 2) {
        std::cerr << "usage: vx_wire_seeds DIR\n";
        return 2;
    }
    const std::vector<vd::Array> every = vxtest::everyKindOfArray();
    vd::ArrayFactory f;
    std::vector<vd::Array> printed;
    const std::vector<std::pair<const char*, OutFrame>> frames = {
        {"hello", helloFrame(1234)},
        {"request", requestFrame(1, "pyInvoke", 1, {f.createScalar(std::uint64_t{42}), every[0]})},
        {"reply-every-type", replyFrame(2, every)},
        {"reply-nested", replyFrame(3, {vxtest::nestedCells(20)})},
        {"failure", failureFrame(4, "pylnk_core::InternalPyException", "ValueError: bad")},
        {"print", printFrame(5, u"line \u03c0\n", printed)},
        {"print-done", printDoneFrame(5)},
    };
    for (const auto& [name, frame] : frames) {
        const std::vector<std::byte> bytes = vxtest::bytesOf(frame);
        std::ofstream(std::string(argv[1]) + "/" + name, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
    }
    return 0;
}
