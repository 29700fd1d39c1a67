// Frames of the wire (wire_format.h) to and from host arrays, in memory and
// over a connected stream socket.
#pragma once

#include <sys/uio.h>

#include <foundation/veltradata.h>
#include <cstddef>
#include <cstdint>
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

// The peer closed the connection between two frames.
class ConnectionClosed : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// One received frame; which fields are filled depends on the kind.
struct Frame {
    FrameKind kind = FrameKind::Hello;
    std::uint64_t id = 0;
    std::string name;                                   // Request
    std::uint64_t nlhs = 0;                             // Request
    std::vector<foundation::veltradata::Array> arrays;  // Request, Reply, Print
    std::string type;                                   // Failure
    std::string message;                                // Failure
};

// A frame ready to send: the header and the description in one buffer, the
// element blocks by reference into the arrays' own storage. The arrays must
// live until the frame is sent.
class OutFrame {
  public:
    OutFrame(FrameKind kind, std::uint64_t id);

    // Everything to write, in order.
    std::vector<iovec> pieces() const;
    std::uint64_t totalBytes() const { return meta_.size() + dataBytes_; }

    // Description fields, in the order of the frame kind.
    void putU64(std::uint64_t value);
    void putText(std::string_view text);
    // Throws WireError, before anything is sent, for an array the wire cannot
    // carry or a frame beyond the limits.
    void putArrays(const std::vector<foundation::veltradata::Array>& arrays);

  private:
    void putBytes(const void* bytes, std::size_t count);
    void putArray(const foundation::veltradata::Array& array, std::uint32_t depth);
    void updateHeader();

    std::vector<std::byte> meta_;  // begins with the header
    std::vector<iovec> blocks_;
    std::uint64_t dataBytes_ = 0;
};

OutFrame helloFrame(std::uint64_t pid);
OutFrame requestFrame(std::uint64_t id, std::string_view name, std::uint64_t nlhs,
                      const std::vector<foundation::veltradata::Array>& args);
OutFrame replyFrame(std::uint64_t id, const std::vector<foundation::veltradata::Array>& values);
OutFrame failureFrame(std::uint64_t id, std::string_view type, std::string_view message);
// Keeps the char array it makes inside `holder`, which must outlive the frame.
OutFrame printFrame(std::uint64_t id, const std::u16string& text,
                    std::vector<foundation::veltradata::Array>& holder);
OutFrame printDoneFrame(std::uint64_t id);

// A whole frame held in memory (tests, the fuzzer). Throws WireError for
// anything but exactly one valid frame.
Frame decodeFrame(std::span<const std::byte> bytes);

// Writes the whole frame; throws WireError when the connection fails.
// Never raises SIGPIPE.
void sendFrame(int fd, const OutFrame& frame);

// Reads one frame. Throws ConnectionClosed when the peer closed the
// connection before the frame began, WireError for bad input or a failure in
// the middle of a frame (the caller then closes the connection).
Frame receiveFrame(int fd);

}  // namespace vxpy::wire
