// Writes the fuzzer's seed corpus: one real frame of every kind on the plain
// road, frames in a ring (one of them wrapping around its end), and frames
// that name the shared memory on offer.
//   vx_wire_seeds DIR
#include <cstring>
#include <fstream>
#include <iostream>

#include "fuzz/roads.h"
#include "support/arrays.h"
#include "support/frames.h"
#include "wire/wire_codec.h"

namespace {

using namespace vxpy::wire;
namespace vd = foundation::veltradata;
namespace fuzz = vxtest::fuzz;

// Names every large block as the offer of road 2.
class Offered : public BlockExchange {
  public:
    explicit Offered(Storage storage) : storage_(storage) {}
    std::optional<SharedBlock> lend(const vd::Array&, std::uint64_t bytes) override {
        if (bytes < vd::shared_memory::kLargeBufferBytes) {
            return std::nullopt;
        }
        return SharedBlock{storage_, 1, 1, fuzz::kOfferedOffset};
    }
    vd::Array resolve(const SharedBlock&, vd::ArrayType, const std::vector<std::size_t>&,
                      std::uint64_t) override {
        throw WireError("seeds are only written");
    }

  private:
    Storage storage_;
};

void write(const std::string& path, std::uint8_t road, const std::vector<std::byte>& bytes) {
    std::ofstream out(path, std::ios::binary);
    out.put(static_cast<char>(road));
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
}

// A ring holding `frame` from position `at`, as road 1 reads it.
std::vector<std::byte> inRing(const std::vector<std::byte>& frame, std::uint64_t at) {
    const std::uint64_t positions[2] = {at + frame.size(), at};
    std::vector<std::byte> all(sizeof positions + fuzz::kRingBytes);
    std::memcpy(all.data(), positions, sizeof positions);
    for (std::size_t i = 0; i < frame.size(); ++i) {
        all[sizeof positions + (at + i) % fuzz::kRingBytes] = frame[i];
    }
    return all;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: vx_wire_seeds DIR\n";
        return 2;
    }
    const std::string folder = argv[1];
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
        {"notice", noticeFrame({1, 2}, {3})},
    };
    for (const auto& [name, frame] : frames) {
        write(folder + "/" + name, fuzz::Bytes, vxtest::bytesOf(frame));
    }
    const std::vector<std::byte> request = vxtest::bytesOf(frames[1].second);
    write(folder + "/ring", fuzz::Ring, inRing(request, 0));
    write(folder + "/ring-wrapped", fuzz::Ring, inRing(request, fuzz::kRingBytes - 10));

    const vd::Array offered = f.createArray<double>({fuzz::kOfferedElements, 1});
    Offered lent(Storage::Lent);
    Offered returned(Storage::Returned);
    write(folder + "/lent", fuzz::References,
          vxtest::bytesOf(replyFrame(6, {offered, every[1]}, &lent)));
    write(folder + "/returned", fuzz::References,
          vxtest::bytesOf(replyFrame(7, {offered}, &returned)));
    return 0;
}
