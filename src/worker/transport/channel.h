// One end of the connection between the host's client and the worker:
// frames out, frames in, the acknowledgement of prints, the end. Two kinds:
//  - the socket alone (vxpy::Transport::Socket): frames over the stream
//    socket, prints acknowledged by PrintDone frames;
//  - shared memory beside the socket (the default): frames through the two
//    rings of the segment, large element blocks lent in place, prints
//    acknowledged through a word of the segment. The socket then carries
//    only descriptors, and its end tells each side that the other is gone.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "transport/segment.h"
#include "wire/wire_codec.h"

namespace vxpy::transport {

class Channel {
  public:
    using Clock = std::chrono::steady_clock;
    virtual ~Channel() = default;

    // Lends large element blocks in place (shared memory), or null.
    virtual wire::BlockExchange* exchange() = 0;

    // Writes one frame, preceded by a Notice when the peer is due one. Any
    // thread, one at a time. WireError when the connection failed.
    virtual void send(const wire::OutFrame& frame) = 0;

    // Reads the next frame; one reader at a time. Notices are taken in here
    // and never returned. ConnectionClosed at the end, WireError for bad input.
    virtual wire::Frame receive() = 0;
    // A frame has begun to arrive; never blocks.
    virtual bool readable() = 0;
    // Waits until a frame begins to arrive; false when the deadline came first.
    virtual bool await(Clock::time_point deadline) = 0;

    // Every wait, now and later, ends with ConnectionClosed.
    virtual void close() = 0;

    // The client: print `id` has been shown.
    virtual void acknowledgePrint(std::uint64_t id) = 0;
    // The worker: sends the text and waits until the client has shown it.
    // Any thread, while another may be in receive().
    virtual void print(std::uint64_t id, const std::u16string& text) = 0;
};

// Both kinds take `nudge`, an eventfd (owned) that the worker raises by one
// before each print, so that a client with no call waiting reads it.

// The socket alone. The channel does not own `fd`.
std::unique_ptr<Channel> socketChannel(int fd, int nudge);

// Shared memory: the rings of `segment`, chunk descriptors over `socket`
// (not owned).
enum class Side { Client, Worker };
std::unique_ptr<Channel> sharedMemoryChannel(int socket, Segment segment, int nudge, Side side);

}  // namespace vxpy::transport
