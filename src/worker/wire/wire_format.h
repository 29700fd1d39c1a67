// The wire between the host client and vxpy-worker: frames in both
// directions over a byte stream, which is either the connected stream socket
// itself or, by default, a pair of rings in a shared-memory segment beside it
// (transport/segment.h). This header is the whole description of the frames;
// both ends include it.
//
// Frame
// -----
// Every frame is a fixed 40-byte header, then `metaBytes` of description,
// then `dataBytes` of element data. Integers are in the machine's own byte
// order (both ends run on one machine; the magic word tells a foreign order).
//
//   offset  size  field
//        0     4  magic      kMagic ("VXPW" read as bytes)
//        4     4  version    kWireVersion; a peer speaking another version is
//                            refused at its first frame
//        8     4  kind       FrameKind
//       12     4  flags      FrameFlags
//       16     8  id         request id (Request/Reply/Failure), print id
//                            (Print/PrintDone), process id (Hello)
//       24     8  metaBytes  length of the description
//       32     8  dataBytes  length of the element data
//
// The description holds everything but the elements of numeric, logical and
// char arrays. Those travel in the data section as one block per array, in
// the order in which the description names the arrays, back to back, so that
// a sender writes them straight from the arrays' storage and a receiver reads
// them straight into the storage of the new arrays, or they do not travel at
// all: on the shared-memory transport a large block that lies in shareable
// memory is named by where it lies (see Storage below).
//
// Description of each frame kind (u64 = 8 bytes, text = u64 byte count then
// UTF-8 bytes, arrays = u64 count then that many arrays):
//
//   Hello      (both ways, first frame)  empty; id = the sender's process id;
//                                        the client's flags choose the transport
//   Request    (client -> worker)        text name, u64 nlhs, arrays
//   Reply      (worker -> client)        arrays
//   Failure    (worker -> client)        text C++ type name, text message
//   Print      (worker -> client)        arrays: one char row of UTF-16 text
//   PrintDone  (client -> worker)        empty; id = the print's id (socket
//                                        transport; shared memory has a word)
//   Notice     (both ways)               u64 count, that many loans given back
//                                        (see Storage); u64 count, that many
//                                        chunks of shareable memory gone
//
// Array
// -----
//   i32 type (foundation::veltradata::ArrayType value, or any other value),
//   u16 ndims, u16 storage (Storage), u64 dims[ndims] (at least 2), then by type:
//     LOGICAL, CHAR, numeric and complex (1, 2, 4 to 23)
//                    storage Inline: nothing here; numel * element size bytes
//                    in the data section. Otherwise the reference of Storage.
//     VELTRA_STRING  per element: u64 unit count (kMissingString for a missing
//                    element), then that many UTF-16 code units
//     CELL           numel arrays, in storage order
//     STRUCT         u64 field count, the field names as texts, then for each
//                    element in storage order one array per field, in field order
//     VALUE_OBJECT, HANDLE_OBJECT_REF
//                    numel u64 tokens
//     ENUM           numel texts (member names)
//     any other value (UNKNOWN, sparse, values without a type)
//                    nothing: such arrays have a shape and no elements
//
// Storage (shared-memory transport only; the socket transport sends Inline)
//   Inline    0   as above
//   Lent      1   u64 loan, u64 chunk, u64 offset: the elements lie in the
//                 sender's shareable memory, in a chunk whose descriptor the
//                 sender has passed over the socket before this frame. The
//                 receiver maps the chunk read-only (once per chunk) and reads
//                 the elements in place; the sender keeps the storage as it is
//                 until the receiver gives the loan back in a Notice.
//   Returned  2   u64 loan: the elements are the receiver's own, lent to the
//                 sender earlier and still on loan.
//
// Limits (a frame beyond them is refused and the connection closed)
// -------
//   kMaxFrameBytes  metaBytes + dataBytes, 64 GiB
//   kMaxDims        dimensions of one array
//   kMaxDepth       nesting of cells and structs
//   kMaxOutputs     nlhs of a request
//   kMaxBareStructElements
//                   elements of a struct array without fields (nothing in the
//                   frame pays for them, so they are counted apart)
// A dimension product or a byte count that overflows 64 bits is refused.
// Memory is committed only as bytes arrive: the description is read in
// growing chunks, and element blocks are allocated only within dataBytes.
#pragma once

#include <cstdint>

namespace vxpy::wire {

inline constexpr std::uint32_t kMagic = 0x57505856;  // 'V' 'X' 'P' 'W'
inline constexpr std::uint32_t kWireVersion = 2;

inline constexpr std::uint64_t kMaxFrameBytes = std::uint64_t{64} << 30;
inline constexpr std::uint32_t kMaxDims = 64;
inline constexpr std::uint32_t kMaxDepth = 512;
inline constexpr std::uint64_t kMaxOutputs = 65536;
inline constexpr std::uint64_t kMaxBareStructElements = std::uint64_t{1} << 20;
inline constexpr std::uint64_t kMissingString = ~std::uint64_t{0};

enum class FrameKind : std::uint32_t {
    Hello = 1,
    Request = 2,
    Reply = 3,
    Failure = 4,
    Print = 5,
    PrintDone = 6,
    Notice = 7,
};

namespace FrameFlags {
// Request: nobody waits for the answer; the worker sends none.
inline constexpr std::uint32_t kNoReply = 1;
// The client's Hello: the connection goes on through the shared segment,
// whose descriptor follows over the socket.
inline constexpr std::uint32_t kSharedMemory = 2;
}  // namespace FrameFlags

enum class Storage : std::uint16_t {
    Inline = 0,
    Lent = 1,
    Returned = 2,
};

struct FrameHeader {
    std::uint32_t magic = kMagic;
    std::uint32_t version = kWireVersion;
    std::uint32_t kind = 0;
    std::uint32_t flags = 0;
    std::uint64_t id = 0;
    std::uint64_t metaBytes = 0;
    std::uint64_t dataBytes = 0;
};
static_assert(sizeof(FrameHeader) == 40, "the header is 40 bytes on the wire");

}  // namespace vxpy::wire
