// The shared-memory transport's pieces on their own: rings that carry frames
// of any size and refuse positions they never gave, waits that end when the
// peer does, and large blocks lent in place with their loans given back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <future>
#include <thread>

#include "failure_of.h"
#include "support/arrays.h"
#include "support/frames.h"
#include "transport/buffer_exchange.h"
#include "transport/ring.h"
#include "transport/segment.h"

namespace {

using namespace vxpy::transport;
using namespace vxpy::wire;
using ::testing::HasSubstr;
using vxtest::sameArray;
namespace vd = foundation::veltradata;
using std::chrono::microseconds;

constexpr std::size_t kSmallRing = 4096;

// The two ends of one segment, as the client and the worker see them.
struct Ends {
    Segment segment = Segment::create(kSmallRing);
    int sockets[2] = {-1, -1};
    std::unique_ptr<RingStream> client;
    std::unique_ptr<RingStream> worker;

    Ends() {
        ::socketpair(AF_UNIX, SOCK_STREAM, 0, sockets);
        Control& c = segment.control();
        client = std::make_unique<RingStream>(
            &c.replies, segment.replyBytes(), &c.requests, segment.requestBytes(), kSmallRing,
            c.requests.readerSleepers, RingStream::Waits{microseconds(50), microseconds(50)},
            sockets[0]);
        worker = std::make_unique<RingStream>(
            &c.requests, segment.requestBytes(), &c.replies, segment.replyBytes(), kSmallRing,
            c.replies.readerSleepers, RingStream::Waits{microseconds(50), microseconds(50)},
            sockets[1]);
    }
    ~Ends() {
        ::close(sockets[0]);
        ::close(sockets[1]);
    }
};

TEST(Rings, FramesOfAnySizeCrossInOrderBothWays) {
    Ends ends;
    vd::ArrayFactory f;
    // Many small frames and frames many times the ring's size, so that
    // writes wrap around and wait for room while the reader drains.
    std::vector<std::vector<vd::Array>> sent;
    for (int i = 0; i < 300; ++i) {
        if (i % 50 == 7) {
            vd::TypedArray<double> big = f.createArray<double>({100, 100 + std::size_t(i)});
            big[i] = i;
            sent.push_back({big, vxtest::everyKindOfArray()[i % 5]});
        } else {
            sent.push_back({f.createScalar(static_cast<double>(i)),
                            f.createCharArray("frame " + std::to_string(i))});
        }
    }
    // The worker echoes every request; the client writes on one thread and
    // reads the replies on another, as calls and the watcher would.
    auto worker = std::async(std::launch::async, [&] {
        for (std::size_t i = 0; i < sent.size(); ++i) {
            Frame frame = receiveFrame(*ends.worker);
            sendFrame(*ends.worker, replyFrame(frame.id, frame.arrays));
        }
    });
    auto writer = std::async(std::launch::async, [&] {
        for (std::size_t i = 0; i < sent.size(); ++i) {
            sendFrame(*ends.client, requestFrame(i + 1, "pyInvoke", 1, sent[i]));
        }
    });
    for (std::size_t i = 0; i < sent.size(); ++i) {
        const Frame frame = receiveFrame(*ends.client);
        ASSERT_EQ(frame.id, i + 1);
        ASSERT_EQ(frame.arrays.size(), 2u);
        EXPECT_TRUE(sameArray(frame.arrays[0], sent[i][0])) << i;
        EXPECT_TRUE(sameArray(frame.arrays[1], sent[i][1])) << i;
    }
    writer.get();
    worker.get();
    EXPECT_FALSE(ends.client->readable());
}

TEST(Rings, PositionsThePeerNeverGaveEndTheConnection) {
    {
        Ends ends;
        // A writer claiming more bytes than the ring holds.
        ends.segment.control().requests.written.store(kSmallRing + 1);
        EXPECT_THAT(vxtest::failureOf<WireError>([&] { ends.worker->readable(); }),
                    HasSubstr("write position"));
    }
    {
        Ends ends;
        // A reader claiming to have taken bytes that were never written.
        ends.segment.control().requests.taken.store(5);
        EXPECT_THAT(vxtest::failureOf<WireError>(
                        [&] { sendFrame(*ends.client, requestFrame(1, "Ping", 1, {})); }),
                    HasSubstr("read position"));
    }
}

TEST(Rings, AWaitingReaderLearnsOfTheEndAtOnceOrByTheSocket) {
    {
        Ends ends;
        auto reader = std::async(std::launch::async, [&] {
            return vxtest::failureOf<ConnectionClosed>([&] { receiveFrame(*ends.worker); });
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(20));  // asleep by now
        ends.worker->close();
        EXPECT_EQ(reader.get(), "the connection was closed");
    }
    {
        // Half a frame, then the writer's process ends: the reader finds the
        // end on the socket instead of waiting for the rest.
        Ends ends;
        const std::vector<std::byte> half(20, std::byte{0});
        const iovec piece{const_cast<std::byte*>(half.data()), half.size()};
        ends.client->write(std::span(&piece, 1));
        auto reader = std::async(std::launch::async, [&] {
            return vxtest::failureOf<ConnectionClosed>([&] { receiveFrame(*ends.worker); });
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        ::shutdown(ends.sockets[0], SHUT_RDWR);
        ASSERT_EQ(reader.wait_for(std::chrono::seconds(2)), std::future_status::ready);
        EXPECT_EQ(reader.get(), "the connection was closed");
    }
}

// Two exchanges over one socket pair, as the two processes' would be.
struct Exchanges {
    int sockets[2] = {-1, -1};
    std::unique_ptr<BufferExchange> host;
    std::unique_ptr<BufferExchange> worker;
    Exchanges() {
        vd::shared_memory::enable();
        ::socketpair(AF_UNIX, SOCK_STREAM, 0, sockets);
        host = std::make_unique<BufferExchange>(sockets[0]);
        worker = std::make_unique<BufferExchange>(sockets[1]);
    }
    ~Exchanges() {
        host.reset();
        worker.reset();
        ::close(sockets[0]);
        ::close(sockets[1]);
    }
    // The worker's side gives back what it dropped, with its next frame.
    void giveBack() {
        std::vector<std::uint64_t> loans, chunks;
        if (worker->takeNotice(loans, chunks)) {
            host->noticed(loans, chunks);
        }
    }
};

TEST(Exchange, LentBlocksAreReadInPlaceStayValuesAndComeBack) {
    Exchanges x;
    vd::TypedArray<double> matrix = vd::ArrayFactory().createArray<double>({512, 512});
    matrix[5] = 2.5;
    const std::vector<vd::Array> args = {matrix, vd::ArrayFactory().createScalar(1.0)};
    Frame frame =
        decodeFrame(vxtest::bytesOf(requestFrame(1, "pyCreateMemoryView", 1, args, x.host.get())),
                    x.worker.get());
    EXPECT_EQ(x.host->lentCount(), 1u);  // only the large one is lent
    vd::TypedArray<double> seen(frame.arrays.at(0));
    EXPECT_EQ(seen[5], 2.5);
    EXPECT_NE(seen.getReadOnlyData(), matrix.getReadOnlyData());  // another mapping of the pages

    // A write by the host now detaches its array: the worker's view stays.
    const void* before = matrix.getReadOnlyData();
    matrix[5] = -1.0;
    EXPECT_NE(matrix.getReadOnlyData(), before);
    EXPECT_EQ(seen[5], 2.5);

    // Sent back, the block is named by its loan: the host gets its lent array.
    Frame back = decodeFrame(vxtest::bytesOf(replyFrame(1, {seen}, x.worker.get())), x.host.get());
    EXPECT_EQ(vd::TypedArray<double>(back.arrays.at(0))[5], 2.5);
    EXPECT_EQ(back.arrays.at(0).getReadOnlyData(), before);

    // The worker drops what it borrowed; the loan comes back with the next frame.
    frame.arrays.clear();
    seen = vd::TypedArray<double>(vd::ArrayFactory().createArray<double>({1, 1}));
    x.giveBack();
    EXPECT_EQ(x.host->lentCount(), 0u);
    EXPECT_EQ(vd::TypedArray<double>(back.arrays.at(0))[5], 2.5);  // the host's own copy lives on
}

TEST(Exchange, ReferencesThatAreNotGoodAreRefused) {
    Exchanges x;
    vd::TypedArray<double> matrix = vd::ArrayFactory().createArray<double>({512, 512});
    const std::vector<std::byte> good = vxtest::bytesOf(replyFrame(1, {matrix}, x.host.get()));
    // The same frame with its reference changed: the last three words are
    // loan, chunk and offset.
    const auto changed = [&](int word, std::uint64_t value) {
        std::vector<std::byte> bytes = good;
        std::memcpy(bytes.data() + bytes.size() - 8 * (3 - word), &value, 8);
        return vxtest::failureOf<WireError>([&] { decodeFrame(bytes, x.worker.get()); });
    };
    EXPECT_THAT(changed(2, std::uint64_t{1} << 40), HasSubstr("does not lie within chunk"));
    EXPECT_THAT(changed(2, 4), HasSubstr("does not lie within chunk"));  // misaligned
    EXPECT_EQ(changed(2, 0), "no failure");
    // A loan that the worker claims to give back but never had.
    const Frame named = decodeFrame(good, x.worker.get());
    std::vector<std::byte> returned =
        vxtest::bytesOf(replyFrame(2, {named.arrays.at(0)}, x.worker.get()));
    std::uint64_t loan = 999;
    std::memcpy(returned.data() + returned.size() - 8, &loan, 8);
    EXPECT_THAT(vxtest::failureOf<WireError>([&] { decodeFrame(returned, x.host.get()); }),
                HasSubstr("loan 999"));
    // A chunk whose descriptor never comes: the end of the socket, not a hang.
    ::shutdown(x.sockets[0], SHUT_WR);
    EXPECT_THROW(changed(1, 12345), ConnectionClosed);
}

}  // namespace
