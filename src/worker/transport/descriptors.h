// Descriptors passed over the connection's socket (SCM_RIGHTS), each with a
// fixed record that says what it is.
#pragma once

#include <cstdint>
#include <vector>

namespace vxpy::transport {

enum class Passed : std::uint32_t {
    Nudge = 1,    // client -> worker, at the handshake: the eventfd it raises after a print
    Segment = 2,  // the same with the shared segment first
    Chunk = 3,    // either way: a chunk of the sender's shareable memory
};

struct PassedRecord {
    std::uint32_t what = 0;   // Passed
    std::uint32_t count = 0;  // descriptors that come with it
    std::uint64_t id = 0;     // Chunk: its number
    std::uint64_t bytes = 0;  // Chunk: its size
};

// Sends the record with the descriptors; false when the connection failed.
bool passDescriptors(int socket, const PassedRecord& record, const std::vector<int>& fds);

// Reads one record and its descriptors (close-on-exec). Throws
// wire::ConnectionClosed at the peer's end, wire::WireError for anything
// that is not a record with as many descriptors as it says.
PassedRecord receiveDescriptors(int socket, std::vector<int>& fds);

}  // namespace vxpy::transport
