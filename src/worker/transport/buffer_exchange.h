// The large buffers that the two ends of a shared-memory connection lend
// each other, so that element data crosses without a copy.
//
// A buffer of this process's shareable memory (shared_memory.h) is sent as
// a loan: its chunk's descriptor goes over the socket once, the frame names
// chunk and offset, and this side keeps a holder of the array until the
// peer gives the loan back. While that holder lives, a write by anyone here
// detaches (copy on write), so what the peer reads never changes under it.
// The peer maps the chunk read-only and reads the elements in place through
// an array over borrowed storage, which it never writes either; when its
// last holder ends, the loan goes back with the next frame the peer sends.
// A borrowed array that goes back to its owner is named by its loan, and
// the owner answers with the array it lent.
//
// Mappings of the peer's chunks stay as long as anything borrowed from them
// lives, even after the connection has ended: arrays already received keep
// their values. Chunks that the pool gives back are forgotten by the peer at
// the next frame.
#pragma once

#include <foundation/veltradata.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "wire/wire_codec.h"

namespace vxpy::transport {

class BufferExchange : public wire::BlockExchange {
  public:
    // Descriptors of chunks are passed and received over `socket`.
    explicit BufferExchange(int socket);
    ~BufferExchange() override;
    BufferExchange(const BufferExchange&) = delete;
    BufferExchange& operator=(const BufferExchange&) = delete;

    std::optional<wire::SharedBlock> lend(const foundation::veltradata::Array& array,
                                          std::uint64_t bytes) override;
    foundation::veltradata::Array resolve(const wire::SharedBlock& block,
                                          foundation::veltradata::ArrayType type,
                                          const std::vector<std::size_t>& dims,
                                          std::uint64_t bytes) override;

    // The peer's Notice: loans it gave back, chunks of its own it gave up.
    void noticed(const std::vector<std::uint64_t>& loans, const std::vector<std::uint64_t>& chunks);
    // What this side has to tell the peer; false when nothing.
    bool takeNotice(std::vector<std::uint64_t>& loans, std::vector<std::uint64_t>& chunks);

    // The connection has ended: loans are forgotten (nobody will give them
    // back), and so are mappings that nothing borrowed still reads.
    void end();

    // Loans out and chunks of the peer mapped here (tests).
    std::size_t lentCount() const;
    std::size_t peerChunkCount() const;

    struct State;

  private:
    std::shared_ptr<State> state_;
};

}  // namespace vxpy::transport
