#include "transport/buffer_exchange.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "transport/descriptors.h"

namespace vxpy::transport {

namespace vd = foundation::veltradata;
namespace sm = foundation::veltradata::shared_memory;

namespace {

// A chunk of the peer's shareable memory, mapped read-only here.
struct PeerChunk {
    const std::byte* base = nullptr;
    std::size_t bytes = 0;
    PeerChunk(const std::byte* mapped, std::size_t size) : base(mapped), bytes(size) {}
    PeerChunk(const PeerChunk&) = delete;
    PeerChunk& operator=(const PeerChunk&) = delete;
    ~PeerChunk() { ::munmap(const_cast<std::byte*>(base), bytes); }
};

[[noreturn]] void fail(const std::string& message) {
    throw wire::WireError(message);
}

}  // namespace

struct BufferExchange::State {
    explicit State(int fd) : socket(fd) {}

    const int socket;
    mutable std::mutex mutex;  // guards everything below
    bool ended = false;
    std::uint64_t nextLoan = 1;
    std::unordered_map<std::uint64_t, vd::Array> lent;
    std::unordered_set<std::uint64_t> announced;  // own chunks the peer knows
    std::vector<std::uint64_t> goneChunks;        // announced chunks given up since the last notice
    std::vector<std::uint64_t> givenBack;  // the peer's loans given back since the last notice
    std::unordered_map<std::uint64_t, std::shared_ptr<PeerChunk>> peerChunks;
    std::uint64_t ticket = 0;
};

namespace {

// What this process has borrowed, by the address of the elements: the same
// address may be borrowed more than once (each loan comes back once).
struct Borrowed {
    std::weak_ptr<BufferExchange::State> from;
    std::uint64_t loan;
    std::shared_ptr<PeerChunk> chunk;  // keeps the mapping while the elements are read
};

struct BorrowedRegistry {
    std::mutex mutex;
    std::unordered_multimap<const void*, Borrowed> entries;
};

BorrowedRegistry& borrowed() {
    static auto* const registry = new BorrowedRegistry;  // arrays may end after exit begins
    return *registry;
}

// The deleter of every borrowed array: the loan goes back with the next frame.
void giveBack(void* data) {
    Borrowed entry;
    {
        BorrowedRegistry& registry = borrowed();
        std::lock_guard<std::mutex> lock(registry.mutex);
        const auto found = registry.entries.find(data);
        if (found == registry.entries.end()) {
            return;
        }
        entry = std::move(found->second);
        registry.entries.erase(found);
    }
    if (auto state = entry.from.lock()) {
        std::lock_guard<std::mutex> lock(state->mutex);
        if (!state->ended) {
            state->givenBack.push_back(entry.loan);
        }
    }
    // `entry.chunk` ends here: the mapping goes with the last array in it.
}

// The loan under which `data` was borrowed from `state`, if it was.
std::optional<std::uint64_t> borrowedFrom(const std::shared_ptr<BufferExchange::State>& state,
                                          const void* data) {
    BorrowedRegistry& registry = borrowed();
    std::lock_guard<std::mutex> lock(registry.mutex);
    const auto [first, last] = registry.entries.equal_range(data);
    for (auto entry = first; entry != last; ++entry) {
        if (entry->second.from.lock() == state) {
            return entry->second.loan;
        }
    }
    return std::nullopt;
}

}  // namespace

BufferExchange::BufferExchange(int socket) : state_(std::make_shared<State>(socket)) {
    std::weak_ptr<State> weak = state_;
    state_->ticket = sm::onChunkGone([weak](std::uint64_t chunk) {
        if (auto state = weak.lock()) {
            std::lock_guard<std::mutex> lock(state->mutex);
            if (state->announced.erase(chunk) != 0 && !state->ended) {
                state->goneChunks.push_back(chunk);
            }
        }
    });
}

BufferExchange::~BufferExchange() {
    end();
}

std::optional<wire::SharedBlock> BufferExchange::lend(const vd::Array& array, std::uint64_t bytes) {
    // Logical elements would need normalising on the other side: they travel.
    if (bytes < sm::kLargeBufferBytes || array.getType() == vd::ArrayType::LOGICAL) {
        return std::nullopt;
    }
    const void* data = array.getReadOnlyData();
    if (const auto loan = borrowedFrom(state_, data)) {
        return wire::SharedBlock{wire::Storage::Returned, *loan, 0, 0};
    }
    const std::optional<sm::Place> place = sm::locate(data, bytes);
    if (!place) {
        return std::nullopt;
    }
    std::lock_guard<std::mutex> lock(state_->mutex);
    if (state_->ended) {
        return std::nullopt;
    }
    if (state_->announced.count(place->chunk) == 0) {
        // The descriptor goes first: the peer reads it when the frame names the chunk.
        PassedRecord record;
        record.what = static_cast<std::uint32_t>(Passed::Chunk);
        record.count = 1;
        record.id = place->chunk;
        record.bytes = place->chunkBytes;
        if (!passDescriptors(state_->socket, record, {place->fd})) {
            return std::nullopt;  // the connection is failing: the bytes go, or fail, in the frame
        }
        state_->announced.insert(place->chunk);
    }
    const std::uint64_t loan = state_->nextLoan++;
    state_->lent.emplace(loan, array);
    return wire::SharedBlock{wire::Storage::Lent, loan, place->chunk, place->offset};
}

vd::Array BufferExchange::resolve(const wire::SharedBlock& block, vd::ArrayType type,
                                  const std::vector<std::size_t>& dims, std::uint64_t bytes) {
    if (block.storage == wire::Storage::Returned) {
        vd::Array original;
        {
            std::lock_guard<std::mutex> lock(state_->mutex);
            const auto found = state_->lent.find(block.loan);
            if (found == state_->lent.end()) {
                fail("the peer names loan " + std::to_string(block.loan) +
                     ", which it does not hold");
            }
            original = found->second;
        }
        if (original.getType() != type ||
            original.getNumberOfElements() * original.getElementSize() != bytes) {
            fail("the peer names loan " + std::to_string(block.loan) + " as an array it is not");
        }
        if (original.getDimensions() == dims) {
            return original;
        }
        // Same elements in another shape: an array of its own.
        vd::ArrayFactory factory;
        auto buffer = factory.createUninitialisedBuffer(type, original.getNumberOfElements());
        std::memcpy(buffer.get(), original.getReadOnlyData(), bytes);
        return factory.createArrayFromBuffer(dims, type, std::move(buffer));
    }

    std::shared_ptr<PeerChunk> chunk;
    {
        std::lock_guard<std::mutex> lock(state_->mutex);
        while (state_->peerChunks.count(block.chunk) == 0) {
            // The peer passed the chunk's descriptor before this frame.
            std::vector<int> fds;
            const PassedRecord record = receiveDescriptors(state_->socket, fds);
            if (record.what != static_cast<std::uint32_t>(Passed::Chunk) || fds.size() != 1) {
                for (const int fd : fds) {
                    ::close(fd);
                }
                fail("a descriptor that is not a chunk of shareable memory");
            }
            const int fd = fds[0];
            struct stat status {};
            const int seals = ::fcntl(fd, F_GET_SEALS);
            const bool sound = ::fstat(fd, &status) == 0 && seals >= 0 &&
                               (seals & F_SEAL_SHRINK) != 0 && record.bytes != 0 &&
                               static_cast<std::uint64_t>(status.st_size) == record.bytes;
            void* mapped =
                sound ? ::mmap(nullptr, record.bytes, PROT_READ, MAP_SHARED, fd, 0) : MAP_FAILED;
            ::close(fd);
            if (mapped == MAP_FAILED) {
                fail("chunk " + std::to_string(record.id) +
                     " is not a sealed memfd of the size it claims");
            }
            state_->peerChunks[record.id] =
                std::make_shared<PeerChunk>(static_cast<const std::byte*>(mapped), record.bytes);
        }
        chunk = state_->peerChunks.at(block.chunk);
    }
    std::uint64_t count = 1;
    for (const std::size_t d : dims) {
        count *= d;  // the codec has checked the product
    }
    const std::uint64_t elementSize = count == 0 ? 1 : bytes / count;
    if (block.offset > chunk->bytes || bytes > chunk->bytes - block.offset ||
        block.offset % std::min<std::uint64_t>(elementSize, 16) != 0) {
        fail("an array of " + std::to_string(bytes) + " bytes at offset " +
             std::to_string(block.offset) + " does not lie within chunk " +
             std::to_string(block.chunk) + " of " + std::to_string(chunk->bytes) + " bytes");
    }
    const void* data = chunk->base + block.offset;
    vd::Array array = sm::adoptBorrowed(type, dims, data, &giveBack);
    BorrowedRegistry& registry = borrowed();
    std::lock_guard<std::mutex> lock(registry.mutex);
    registry.entries.emplace(data, Borrowed{state_, block.loan, std::move(chunk)});
    return array;
}

void BufferExchange::noticed(const std::vector<std::uint64_t>& loans,
                             const std::vector<std::uint64_t>& chunks) {
    std::vector<vd::Array> returned;  // ended outside the lock
    std::lock_guard<std::mutex> lock(state_->mutex);
    for (const std::uint64_t loan : loans) {
        // An unknown loan is ignored: it can only be the peer's mistake.
        if (const auto found = state_->lent.find(loan); found != state_->lent.end()) {
            returned.push_back(std::move(found->second));
            state_->lent.erase(found);
        }
    }
    for (const std::uint64_t chunk : chunks) {
        state_->peerChunks.erase(chunk);
    }
}

bool BufferExchange::takeNotice(std::vector<std::uint64_t>& loans,
                                std::vector<std::uint64_t>& chunks) {
    std::lock_guard<std::mutex> lock(state_->mutex);
    if (state_->givenBack.empty() && state_->goneChunks.empty()) {
        return false;
    }
    loans.swap(state_->givenBack);
    chunks.swap(state_->goneChunks);
    state_->givenBack.clear();
    state_->goneChunks.clear();
    return true;
}

void BufferExchange::end() {
    std::unordered_map<std::uint64_t, vd::Array> lent;
    std::unordered_map<std::uint64_t, std::shared_ptr<PeerChunk>> chunks;
    {
        std::lock_guard<std::mutex> lock(state_->mutex);
        if (state_->ended) {
            return;
        }
        state_->ended = true;
        lent.swap(state_->lent);
        chunks.swap(state_->peerChunks);
    }
    sm::stopListening(state_->ticket);
}

std::size_t BufferExchange::lentCount() const {
    std::lock_guard<std::mutex> lock(state_->mutex);
    return state_->lent.size();
}

std::size_t BufferExchange::peerChunkCount() const {
    std::lock_guard<std::mutex> lock(state_->mutex);
    return state_->peerChunks.size();
}

}  // namespace vxpy::transport
