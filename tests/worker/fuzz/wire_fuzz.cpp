// libFuzzer target for everything a peer can put in front of this side. The
// first byte of an input chooses the road; the rest is the peer's:
//   0  a frame's bytes, for the decoder;
//   1  a ring of the shared segment: the peer's written and taken positions
//      (8 bytes each), then the ring's bytes; frames are read until the ring
//      runs dry;
//   2  a frame that names shared memory: chunk 1 of the peer (a real chunk,
//      its descriptor passed as a peer passes it) and loan 1 of this side
//      are on offer, anything else is unknown.
// Every input is either refused (WireError, or ConnectionClosed where the
// peer's socket has nothing more to give) or decodes to arrays that encode
// and decode to the same arrays. Any other exception, a crash, a hang or a
// sanitizer report is a finding.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "fuzz/roads.h"
#include "support/arrays.h"
#include "support/frames.h"
#include "transport/buffer_exchange.h"
#include "transport/descriptors.h"
#include "transport/ring.h"
#include "transport/segment.h"
#include "wire/wire_codec.h"

namespace {

using namespace vxpy::wire;
using namespace vxpy::transport;
namespace vd = foundation::veltradata;

void checkRoundTrip(const Frame& frame) {
    const Frame again = decodeFrame(vxtest::bytesOf(replyFrame(frame.id, frame.arrays)));
    if (again.arrays.size() != frame.arrays.size()) {
        std::abort();
    }
    for (std::size_t i = 0; i < frame.arrays.size(); ++i) {
        if (!vxtest::sameArray(again.arrays[i], frame.arrays[i])) {
            std::abort();
        }
    }
}

void decodeBytes(std::span<const std::byte> bytes) {
    Frame frame;
    try {
        frame = decodeFrame(bytes);
    } catch (const WireError&) {
        return;
    }
    checkRoundTrip(frame);
}

void readRing(std::span<const std::byte> input) {
    static Segment segment = Segment::create(vxtest::fuzz::kRingBytes);
    std::uint64_t positions[2] = {0, 0};
    std::memcpy(positions, input.data(), std::min(input.size(), sizeof positions));
    input = input.subspan(std::min(input.size(), sizeof positions));
    Control& control = segment.control();
    std::memset(segment.requestBytes(), 0, segment.ringBytes());
    std::memcpy(segment.requestBytes(), input.data(), std::min(input.size(), segment.ringBytes()));
    control.requests.taken.store(positions[1]);
    control.requests.written.store(positions[0]);
    RingStream ring(&control.requests, segment.requestBytes(), nullptr, nullptr,
                    segment.ringBytes(), control.replies.readerSleepers,
                    {std::chrono::nanoseconds(0), std::chrono::nanoseconds(0)});
    ring.close();  // nothing more will come: reading stops where the bytes end
    for (;;) {
        try {
            checkRoundTrip(receiveFrame(ring));
        } catch (const WireError&) {
            return;
        } catch (const ConnectionClosed&) {
            return;
        }
    }
}

// This side's exchange, with chunk 1 of a peer and loan 1 of its own on
// offer. The peer's chunk is a memfd of its own, as another process's would
// be: no buffer of this process ever lands in it.
struct Offer {
    int sockets[2] = {-1, -1};
    BufferExchange* mine = nullptr;
    vd::Array lentByMe;
    Offer() {
        vd::shared_memory::enable();
        ::socketpair(AF_UNIX, SOCK_STREAM, 0, sockets);
        mine = new BufferExchange(sockets[0]);
        const std::size_t bytes = std::size_t{1} << 20;
        const int chunk = ::memfd_create("peer", MFD_CLOEXEC | MFD_ALLOW_SEALING);
        ::ftruncate(chunk, static_cast<off_t>(bytes));
        ::fcntl(chunk, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW);
        PassedRecord record;
        record.what = static_cast<std::uint32_t>(Passed::Chunk);
        record.count = 1;
        record.id = 1;
        record.bytes = bytes;
        passDescriptors(sockets[1], record, {chunk});
        ::close(chunk);
        // The peer has nothing more to pass.
        ::shutdown(sockets[1], SHUT_WR);
        lentByMe = vd::ArrayFactory().createArray<double>({vxtest::fuzz::kOfferedElements, 1});
        mine->lend(lentByMe, vxtest::fuzz::kOfferedElements * sizeof(double));
    }
};

void resolveReferences(std::span<const std::byte> bytes) {
    static Offer* offer = new Offer;
    try {
        checkRoundTrip(decodeFrame(bytes, offer->mine));
    } catch (const WireError&) {
    } catch (const ConnectionClosed&) {
    }
    // What was borrowed goes back, as with the next frame.
    std::vector<std::uint64_t> loans, chunks;
    offer->mine->takeNotice(loans, chunks);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::span<const std::byte> rest(reinterpret_cast<const std::byte*>(data) + 1, size - 1);
    switch (data[0] % 3) {
        case 0:
            decodeBytes(rest);
            break;
        case 1:
            readRing(rest);
            break;
        default:
            resolveReferences(rest);
    }
    return 0;
}
