// The wire format on its own: every array type there and back, and bad input
// refused with a message instead of a crash or an unbounded allocation.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "failure_of.h"
#include "fuzz/roads.h"
#include "support/arrays.h"
#include "support/frames.h"
#include "wire/wire_codec.h"

namespace {

using namespace vxpy::wire;
using ::testing::HasSubstr;
using vxtest::bytesOf;
using vxtest::sameArray;
namespace vd = foundation::veltradata;

// The frame with its header changed.
template <class Change>
std::vector<std::byte> withHeader(std::vector<std::byte> bytes, Change change) {
    FrameHeader header;
    std::memcpy(&header, bytes.data(), sizeof header);
    change(header);
    std::memcpy(bytes.data(), &header, sizeof header);
    return bytes;
}

// The message of the WireError that decoding throws; "no failure" when none is.
std::string refusal(const std::vector<std::byte>& bytes) {
    return vxtest::failureOf<WireError>([&] { decodeFrame(bytes); });
}

TEST(WireFormat, EveryArrayTypeCrossesUnchanged) {
    const std::vector<vd::Array> values = vxtest::everyKindOfArray();
    const Frame frame = decodeFrame(bytesOf(replyFrame(42, values)));
    EXPECT_EQ(frame.kind, FrameKind::Reply);
    EXPECT_EQ(frame.id, 42u);
    ASSERT_EQ(frame.arrays.size(), values.size());
    for (size_t i = 0; i < values.size(); ++i) {
        EXPECT_TRUE(sameArray(frame.arrays[i], values[i])) << "array " << i;
    }

    const Frame request = decodeFrame(bytesOf(requestFrame(7, "pyInvoke", 3, values)));
    EXPECT_EQ(request.name, "pyInvoke");
    EXPECT_EQ(request.nlhs, 3u);
    EXPECT_EQ(request.arrays.size(), values.size());

    const Frame failure =
        decodeFrame(bytesOf(failureFrame(9, "pylnk_core::InternalPyException", "bad \xcf\x80")));
    EXPECT_EQ(failure.type, "pylnk_core::InternalPyException");
    EXPECT_EQ(failure.message, "bad \xcf\x80");

    std::vector<vd::Array> holder;
    const Frame print = decodeFrame(bytesOf(printFrame(3, u"\u03c0\U0001F600", holder)));
    EXPECT_EQ(vd::CharArray(print.arrays.at(0)).toUTF16(), u"\u03c0\U0001F600");
}

TEST(WireFormat, LogicalBytesArriveAsZeroOrOne) {
    vd::TypedArray<bool> flags = vd::ArrayFactory().createArray<bool>({1, 3});
    flags[1] = true;
    std::vector<std::byte> bytes = bytesOf(replyFrame(1, {flags}));
    bytes[bytes.size() - 2] = std::byte{0x7f};  // element 1, as a non-canonical true
    const vd::Array back = decodeFrame(bytes).arrays.at(0);
    const auto* raw = static_cast<const unsigned char*>(back.getReadOnlyData());
    EXPECT_EQ(raw[0], 0);
    EXPECT_EQ(raw[1], 1);
    EXPECT_EQ(raw[2], 0);
}

TEST(WireFormat, ShapesWithoutElementsCrossAndLimitsHold) {
    vd::ArrayFactory f;
    // UNKNOWN, a value between the types, sparse, and values outside them.
    for (const int raw : {0, 26, 31, -3, 1000}) {
        const Frame frame = decodeFrame(bytesOf(
            replyFrame(1, {f.createCellArray({1, 1}, {f.createOpaqueArray(raw, {2, 3, 4})})})));
        const vd::Array inner = vd::TypedArray<vd::Array>(frame.arrays.at(0))[0];
        EXPECT_EQ(static_cast<int>(inner.getType()), raw);
        EXPECT_EQ(inner.getDimensions(), (std::vector<std::size_t>{2, 3, 4}));
    }
    EXPECT_THROW(replyFrame(1, {vxtest::nestedCells(kMaxDepth + 1)}), WireError);
    EXPECT_NO_THROW(replyFrame(1, {vxtest::nestedCells(kMaxDepth)}));
    EXPECT_THROW(replyFrame(1, {f.createStructArray({kMaxBareStructElements + 1, 1}, {})}),
                 WireError);
}

TEST(WireFormat, DecoderRefusesBrokenFrames) {
    vd::ArrayFactory f;
    const std::vector<std::byte> good =
        bytesOf(replyFrame(5, {f.createScalar(1.5), f.createCharArray(std::string("abc")),
                               vxtest::everyKindOfArray()[0]}));
    ASSERT_NO_THROW(decodeFrame(good));

    // Every truncation, and one byte too many.
    for (size_t size = 0; size < good.size(); ++size) {
        EXPECT_THROW(decodeFrame(std::span(good).first(size)), WireError) << "size " << size;
    }
    std::vector<std::byte> longer = good;
    longer.push_back(std::byte{0});
    EXPECT_THROW(decodeFrame(longer), WireError);

    const auto header = [&](auto change) { return refusal(withHeader(good, change)); };
    EXPECT_THAT(header([](FrameHeader& h) { h.magic = 0x12345678; }), HasSubstr("magic"));
    EXPECT_THAT(header([](FrameHeader& h) { h.version = kWireVersion + 1; }),
                HasSubstr("version 3"));
    EXPECT_THAT(header([](FrameHeader& h) { h.kind = 99; }), HasSubstr("kind 99"));
    EXPECT_THAT(header([](FrameHeader& h) { h.dataBytes = kMaxFrameBytes; }), HasSubstr("limit"));
    // Lengths that disagree with each other: the description absorbs one data byte.
    EXPECT_NE(header([](FrameHeader& h) {
                  h.metaBytes += 1;
                  h.dataBytes -= 1;
              }),
              "no failure");
}

// A Reply frame of one array whose description is written by hand.
std::vector<std::byte> handMade(const std::vector<std::uint64_t>& words32and64,
                                std::uint64_t dataBytes = 0) {
    OutFrame frame(FrameKind::Reply, 1);
    frame.putU64(1);  // one array
    std::vector<std::byte> bytes = bytesOf(frame);
    for (std::uint64_t word : words32and64) {
        // An array's head (type, ndims, storage) is one 64-bit word.
        const auto* raw = reinterpret_cast<const std::byte*>(&word);
        bytes.insert(bytes.end(), raw, raw + 8);
    }
    const std::uint64_t metaBytes = bytes.size() - sizeof(FrameHeader);
    bytes = withHeader(std::move(bytes), [&](FrameHeader& h) {
        h.metaBytes = metaBytes;
        h.dataBytes = dataBytes;
    });
    bytes.resize(bytes.size() + dataBytes);
    return bytes;
}

std::uint64_t head(vd::ArrayType type, std::uint16_t ndims, std::uint16_t storage = 0) {
    return static_cast<std::uint32_t>(type) | (std::uint64_t{ndims} << 32) |
           (std::uint64_t{storage} << 48);
}

TEST(WireFormat, DecoderRefusesBadArraysBeforeAllocating) {
    using T = vd::ArrayType;
    using Words = std::vector<std::uint64_t>;
    // A hand-made frame that is valid, so the refusals below are about one field.
    EXPECT_NO_THROW(decodeFrame(handMade({head(T::DOUBLE, 2), 2, 1}, 16)));

    const std::uint64_t name8 = 0x6161616161616161;  // "aaaaaaaa"
    // Nesting beyond the limit, built by hand so the sender's own check is not in the way.
    Words deep;
    for (std::uint32_t i = 0; i <= kMaxDepth; ++i) {
        deep.insert(deep.end(), {head(T::CELL, 2), 1, 1});
    }
    // Each description, its data section's size, and a part of the refusal
    // ("" where any message will do, but "no failure" is none).
    const std::tuple<Words, std::uint64_t, const char*> refused[] = {
        // Shared storage: only for blocks of elements, and only where shared memory is.
        {{head(T::CELL, 2, 1), 1, 1, 7, 1, 0}, 0, "storage 1"},
        {{head(T::DOUBLE, 2, 3), 1, 1}, 0, "storage 3"},
        {{head(T::DOUBLE, 2, 1), 1, 1, 7, 1, 0}, 0, "without it"},
        {{head(T::DOUBLE, 1), 1, 1}, 0, "dimensions"},
        {{head(T::DOUBLE, kMaxDims + 1), 1, 1}, 0, "dimensions"},
        {{head(T::DOUBLE, 2), std::uint64_t{1} << 40, std::uint64_t{1} << 40}, 0, "overflows"},
        // Numbers beyond the data section, strings and cells beyond the description.
        {{head(T::DOUBLE, 2), 1000000, 1000000}, 16, "data section"},
        {{head(T::VELTRA_STRING, 2), std::uint64_t{1} << 30, std::uint64_t{1} << 30}, 0, ""},
        {{head(T::VELTRA_STRING, 2), 1, 1, std::uint64_t{1} << 20}, 0, ""},
        {{head(T::CELL, 2), std::uint64_t{1} << 31, std::uint64_t{1} << 31}, 0, ""},
        {{head(T::STRUCT, 2), 1, 1, std::uint64_t{1} << 40}, 0, ""},
        // Elements of a struct without fields take no bytes at all, so they
        // have a limit of their own.
        {{head(T::STRUCT, 2), 1, kMaxBareStructElements + 1, 0}, 0, "without fields"},
        {{head(T::ENUM, 2), 1, 3, 2, 0, 0}, 0, ""},
        // A struct with a duplicate field name is a malformed array, not a crash.
        {{head(T::STRUCT, 2), 0, 1, 2, 8, name8, 8, name8}, 0, "malformed"},
        {deep, 0, "nested"},
    };
    for (const auto& [words, dataBytes, message] : refused) {
        SCOPED_TRACE("type " + std::to_string(words[0] & 0xffffffff) + ", " + message);
        const std::string text = refusal(handMade(words, dataBytes));
        EXPECT_THAT(text, HasSubstr(message));
        EXPECT_NE(text, "no failure");
    }
}

TEST(WireFormat, SocketCarriesLargeFramesAndRefusesClaimsBeyondTheLimit) {
    int pair[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    vd::ArrayFactory f;
    vd::TypedArray<double> big = f.createArray<double>({1000, 1000});
    for (size_t k = 0; k < 1000000; k += 997) {
        big[k] = static_cast<double>(k);
    }
    const std::vector<vd::Array> values = {big, vxtest::everyKindOfArray()[0], big};
    SocketStream writing(pair[0]);
    SocketStream reading(pair[1]);
    std::thread writer([&] { sendFrame(writing, replyFrame(11, values)); });
    const Frame frame = receiveFrame(reading);
    writer.join();
    ASSERT_EQ(frame.arrays.size(), 3u);
    for (size_t i = 0; i < values.size(); ++i) {
        EXPECT_TRUE(sameArray(frame.arrays[i], values[i]));
    }

    // A header that claims more than the limit is refused before anything is read.
    FrameHeader header;
    header.kind = static_cast<std::uint32_t>(FrameKind::Reply);
    header.metaBytes = std::uint64_t{1} << 40;
    ASSERT_EQ(::write(pair[0], &header, sizeof header), static_cast<ssize_t>(sizeof header));
    EXPECT_THROW(receiveFrame(reading), WireError);

    // A frame cut short by the end of the connection.
    header.metaBytes = 1000;
    ASSERT_EQ(::write(pair[0], &header, sizeof header), static_cast<ssize_t>(sizeof header));
    ::close(pair[0]);
    EXPECT_THROW(receiveFrame(reading), WireError);
    // And then a clean end between frames.
    EXPECT_THROW(receiveFrame(reading), ConnectionClosed);
    ::close(pair[1]);
}

// The fuzzer's seeds hold real frames of the current version (rewrite them
// with build/tests/vx_wire_seeds tests/worker/fuzz/corpus after a format
// change). Those of the plain road decode as they are.
TEST(WireFormat, SeedCorpusIsCurrent) {
    size_t plain = 0;
    for (const auto& entry : std::filesystem::directory_iterator(VX_SEED_CORPUS)) {
        std::ifstream in(entry.path(), std::ios::binary);
        const std::string raw((std::istreambuf_iterator<char>(in)),
                              std::istreambuf_iterator<char>());
        ASSERT_FALSE(raw.empty()) << entry.path();
        if (raw[0] != vxtest::fuzz::Bytes) {
            continue;
        }
        const auto* first = reinterpret_cast<const std::byte*>(raw.data()) + 1;
        EXPECT_NO_THROW(decodeFrame(std::vector<std::byte>(first, first + raw.size() - 1)))
            << entry.path();
        ++plain;
    }
    EXPECT_GE(plain, 8u);
}

}  // namespace
