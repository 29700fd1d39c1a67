// Frames of the wire (wire_format.h) to and from host arrays, over any byte
// stream: a connected stream socket, a ring in shared memory, or bytes in
// memory.
#pragma once

#include <sys/uio.h>

#include <foundation/veltradata.h>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "wire/wire_format.h"

namespace vxpy::wire {

// Bad input: a frame that breaks the format or its limits, an array the wire
// cannot carry, or a connection that failed in the middle of a frame.
class WireError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The peer's end: the connection closed between two frames.
class ConnectionClosed : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Where frames come from and go to. One reader and one writer at a time.
class ByteStream {
  public:
    virtual ~ByteStream() = default;
    // Reads exactly `size` bytes. `atStart`: no byte of a frame has been read
    // yet, so the peer's end is ConnectionClosed rather than WireError.
    virtual void read(void* out, std::size_t size, bool atStart) = 0;
    // Reads into each piece, in order.
    virtual void readPieces(std::span<iovec> pieces);
    // Writes every piece, in order. WireError when the connection failed.
    virtual void write(std::span<const iovec> pieces) = 0;
};

// A block of elements named by where it lies in shared memory (Storage Lent
// or Returned in wire_format.h).
struct SharedBlock {
    Storage storage = Storage::Inline;
    std::uint64_t loan = 0;
    std::uint64_t chunk = 0;   // Lent only
    std::uint64_t offset = 0;  // Lent only
};

// The shared-memory side of a connection, as the codec sees it.
class BlockExchange {
  public:
    virtual ~BlockExchange() = default;
    // Sending: the block of `array` (LOGICAL, CHAR or numeric, `bytes` long)
    // as a reference, or nothing: then its bytes travel in the frame.
    virtual std::optional<SharedBlock> lend(const foundation::veltradata::Array& array,
                                            std::uint64_t bytes) = 0;
    // Receiving: the array that a reference names, checked against the
    // shape it claims. Throws WireError for a reference that is not good.
    virtual foundation::veltradata::Array resolve(const SharedBlock& block,
                                                  foundation::veltradata::ArrayType type,
                                                  const std::vector<std::size_t>& dims,
                                                  std::uint64_t bytes) = 0;
};

// One received frame; which fields are filled depends on the kind.
struct Frame {
    FrameKind kind = FrameKind::Hello;
    std::uint32_t flags = 0;
    std::uint64_t id = 0;
    std::string name;                                   // Request
    std::uint64_t nlhs = 0;                             // Request
    std::vector<foundation::veltradata::Array> arrays;  // Request, Reply, Print
    std::string type;                                   // Failure
    std::string message;                                // Failure
    std::vector<std::uint64_t> loans;                   // Notice: given back
    std::vector<std::uint64_t> chunks;                  // Notice: gone
};

// A frame ready to send: the header and the description in one buffer, the
// element blocks by reference into the arrays' own storage. The arrays must
// live until the frame is sent.
class OutFrame {
  public:
    OutFrame(FrameKind kind, std::uint64_t id, std::uint32_t flags = 0);

    // Everything to write, in order.
    std::vector<iovec> pieces() const;
    // The header and description alone.
    iovec description() const;
    std::uint64_t totalBytes() const { return meta_.size() + dataBytes_; }
    std::uint64_t dataBytes() const { return dataBytes_; }

    // Description fields, in the order of the frame kind.
    void putU64(std::uint64_t value);
    void putText(std::string_view text);
    // Throws WireError, before anything is sent, for a frame beyond the
    // limits. With an exchange, blocks that it lends travel as references.
    void putArrays(const std::vector<foundation::veltradata::Array>& arrays,
                   BlockExchange* exchange = nullptr);

  private:
    void putBytes(const void* bytes, std::size_t count);
    void putArray(const foundation::veltradata::Array& array, std::uint32_t depth,
                  BlockExchange* exchange);
    void updateHeader();

    std::vector<std::byte> meta_;  // begins with the header
    std::vector<iovec> blocks_;
    std::uint64_t dataBytes_ = 0;
};

OutFrame helloFrame(std::uint64_t pid, std::uint32_t flags = 0);
OutFrame requestFrame(std::uint64_t id, std::string_view name, std::uint64_t nlhs,
                      const std::vector<foundation::veltradata::Array>& args,
                      BlockExchange* exchange = nullptr, std::uint32_t flags = 0);
OutFrame replyFrame(std::uint64_t id, const std::vector<foundation::veltradata::Array>& values,
                    BlockExchange* exchange = nullptr);
OutFrame failureFrame(std::uint64_t id, std::string_view type, std::string_view message);
// Keeps the char array it makes inside `holder`, which must outlive the frame.
OutFrame printFrame(std::uint64_t id, const std::u16string& text,
                    std::vector<foundation::veltradata::Array>& holder);
OutFrame printDoneFrame(std::uint64_t id);
OutFrame noticeFrame(const std::vector<std::uint64_t>& loans,
                     const std::vector<std::uint64_t>& chunks);

// Writes the whole frame.
void sendFrame(ByteStream& stream, const OutFrame& frame);

// Reads one frame. ConnectionClosed when the peer ended before the frame
// began; WireError for bad input or an end in the middle of a frame (the
// caller then closes the connection). References to shared memory need an
// exchange; without one they are bad input.
Frame receiveFrame(ByteStream& stream, BlockExchange* exchange = nullptr);

// A whole frame held in memory (tests, the fuzzer). Throws WireError for
// anything but exactly one valid frame.
Frame decodeFrame(std::span<const std::byte> bytes, BlockExchange* exchange = nullptr);

// A connected stream socket as a byte stream; never raises SIGPIPE.
class SocketStream : public ByteStream {
  public:
    explicit SocketStream(int fd) : fd_(fd) {}
    void read(void* out, std::size_t size, bool atStart) override;
    void readPieces(std::span<iovec> pieces) override;
    void write(std::span<const iovec> pieces) override;

  private:
    int fd_;
};

}  // namespace vxpy::wire
