// Large element buffers: anonymous huge-page memory, or the pool of
// shareable memfd chunks once shared_memory::enable() has been called.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>

#include "foundation/veltradata/shared_memory.h"
#include "internal.h"

namespace foundation::veltradata {

namespace detail {

namespace {

constexpr std::size_t kHugePage = std::size_t{2} << 20;
// Bytes in front of the data of a large buffer: the mapping's size at the
// start (anonymous buffers), the BufferHeader right before the data. Keeps
// the data 64-byte aligned.
constexpr std::size_t kFront = 64;
static_assert(kFront >= sizeof(std::uint64_t) + sizeof(BufferHeader));

std::size_t roundUp(std::size_t value, std::size_t step) {
    return (value + step - 1) / step * step;
}

// Anonymous memory aligned to a huge page, advised to take huge pages: the
// kernel hands out zero pages, so nothing needs clearing.
std::byte* mapAnonymous(std::size_t bytes) {
    const std::size_t span = bytes + kHugePage;
    void* mapped =
        ::mmap(nullptr, span, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) {
        return nullptr;
    }
    auto* start = static_cast<std::byte*>(mapped);
    auto* aligned =
        reinterpret_cast<std::byte*>(roundUp(reinterpret_cast<std::uintptr_t>(start), kHugePage));
    if (aligned != start) {
        ::munmap(start, static_cast<std::size_t>(aligned - start));
    }
    const std::size_t tail = span - static_cast<std::size_t>(aligned - start) - bytes;
    if (tail != 0) {
        ::munmap(aligned + bytes, tail);
    }
    // Advice only: refused, the pages are ordinary ones.
    ::madvise(aligned, bytes, MADV_HUGEPAGE);
    return aligned;
}

// The shareable memory of the process: memfd chunks, each mapped once here,
// carved into ranges. Ranges are handed out best fit and coalesce when they
// come back; a chunk with nothing in use is given back to the system once
// the idle chunks hold more than kIdleReserve.
class Pool {
  public:
    static constexpr std::size_t kGranule = std::size_t{64} << 10;
    static constexpr std::size_t kChunkBytes = std::size_t{64} << 20;
    static constexpr std::size_t kIdleReserve = std::size_t{256} << 20;

    bool enable() {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!enabled_) {
            const int probe = ::memfd_create("vxarrays", MFD_CLOEXEC | MFD_ALLOW_SEALING);
            if (probe >= 0) {
                ::close(probe);
                enabled_.store(true);
            }
        }
        return enabled_;
    }
    bool enabled() const noexcept { return enabled_.load(std::memory_order_relaxed); }

    // A range of at least `bytes`, or nullptr when no chunk can be made.
    std::byte* allocate(std::size_t bytes, bool zeroed) {
        const std::size_t need = roundUp(bytes, kGranule);
        std::lock_guard<std::mutex> lock(mutex_);
        Chunk* best = nullptr;
        std::map<std::size_t, std::size_t>::iterator bestRange;
        for (auto& [address, chunk] : chunks_) {
            for (auto range = chunk.free.begin(); range != chunk.free.end(); ++range) {
                if (range->second >= need &&
                    (best == nullptr || range->second < bestRange->second)) {
                    best = &chunk;
                    bestRange = range;
                }
            }
        }
        if (best == nullptr) {
            best = newChunk(std::max(kChunkBytes, roundUp(need, kHugePage)));
            if (best == nullptr) {
                return nullptr;
            }
            bestRange = best->free.begin();
        }
        const std::size_t offset = bestRange->first;
        const std::size_t length = bestRange->second;
        best->free.erase(bestRange);
        if (length > need) {
            best->free.emplace(offset + need, length - need);
        }
        best->used.emplace(offset, need);
        best->usedBytes += need;
        std::byte* start = best->base + offset;
        if (zeroed && offset < best->touched) {
            // Below the high-water mark a range may hold an earlier buffer's bytes.
            std::memset(start, 0, std::min(need, best->touched - offset));
        }
        best->touched = std::max(best->touched, offset + need);
        return start;
    }

    // False when `start` is not a range of the pool.
    bool release(std::byte* start) {
        std::uint64_t gone = 0;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            Chunk* chunk = chunkAt(start);
            if (chunk == nullptr) {
                return false;
            }
            const std::size_t offset = static_cast<std::size_t>(start - chunk->base);
            const auto used = chunk->used.find(offset);
            if (used == chunk->used.end()) {
                return false;
            }
            std::size_t begin = offset;
            std::size_t length = used->second;
            chunk->usedBytes -= length;
            chunk->used.erase(used);
            // Coalesce with the free neighbours.
            auto next = chunk->free.lower_bound(begin);
            if (next != chunk->free.end() && next->first == begin + length) {
                length += next->second;
                next = chunk->free.erase(next);
            }
            if (next != chunk->free.begin()) {
                auto previous = std::prev(next);
                if (previous->first + previous->second == begin) {
                    begin = previous->first;
                    length += previous->second;
                    chunk->free.erase(previous);
                }
            }
            chunk->free.emplace(begin, length);
            if (chunk->usedBytes == 0 && idleBytes() > kIdleReserve) {
                gone = chunk->id;
                destroy(*chunk);
                chunks_.erase(reinterpret_cast<std::uintptr_t>(chunk->base));
            }
        }
        if (gone != 0) {
            announceGone(gone);
        }
        return true;
    }

    std::optional<shared_memory::Place> locate(const void* data, std::size_t bytes) {
        std::lock_guard<std::mutex> lock(mutex_);
        const auto* first = static_cast<const std::byte*>(data);
        Chunk* chunk = chunkAt(first);
        if (chunk == nullptr) {
            return std::nullopt;
        }
        const std::size_t offset = static_cast<std::size_t>(first - chunk->base);
        if (bytes > chunk->bytes - offset) {
            return std::nullopt;
        }
        return shared_memory::Place{chunk->id, offset, chunk->bytes, chunk->fd};
    }

    shared_memory::Usage usage() {
        std::lock_guard<std::mutex> lock(mutex_);
        shared_memory::Usage result;
        for (const auto& [address, chunk] : chunks_) {
            ++result.chunks;
            result.bytes += chunk.bytes;
            result.usedBytes += chunk.usedBytes;
        }
        return result;
    }

    std::uint64_t listen(std::function<void(std::uint64_t)> gone) {
        std::lock_guard<std::mutex> lock(listenersMutex_);
        listeners_.emplace(++nextTicket_, std::move(gone));
        return nextTicket_;
    }

    void stopListening(std::uint64_t ticket) {
        std::lock_guard<std::mutex> lock(listenersMutex_);
        listeners_.erase(ticket);
    }

  private:
    struct Chunk {
        std::uint64_t id = 0;
        int fd = -1;
        std::byte* base = nullptr;
        std::size_t bytes = 0;
        std::map<std::size_t, std::size_t> free;  // offset -> length
        std::map<std::size_t, std::size_t> used;  // offset -> length
        std::size_t usedBytes = 0;
        std::size_t touched = 0;  // ranges below may hold old bytes
    };

    Chunk* newChunk(std::size_t bytes) {
        const int fd = ::memfd_create("vxarrays", MFD_CLOEXEC | MFD_ALLOW_SEALING);
        if (fd < 0) {
            return nullptr;
        }
        // Sealed, so that a process that maps the chunk can trust its size:
        // a chunk that shrank under a mapping would fault on every page past
        // its new end.
        void* mapped = MAP_FAILED;
        if (::ftruncate(fd, static_cast<off_t>(bytes)) == 0 &&
            ::fcntl(fd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) == 0) {
            mapped = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        }
        if (mapped == MAP_FAILED) {
            ::close(fd);
            return nullptr;
        }
        Chunk chunk;
        chunk.id = nextChunk_++;
        chunk.fd = fd;
        chunk.base = static_cast<std::byte*>(mapped);
        chunk.bytes = bytes;
        chunk.free.emplace(0, bytes);
        auto [entry, added] = chunks_.emplace(reinterpret_cast<std::uintptr_t>(mapped), chunk);
        return &entry->second;
    }

    static void destroy(Chunk& chunk) {
        ::munmap(chunk.base, chunk.bytes);
        ::close(chunk.fd);
    }

    Chunk* chunkAt(const std::byte* address) {
        auto after = chunks_.upper_bound(reinterpret_cast<std::uintptr_t>(address));
        if (after == chunks_.begin()) {
            return nullptr;
        }
        Chunk& chunk = std::prev(after)->second;
        return address < chunk.base + chunk.bytes ? &chunk : nullptr;
    }

    std::size_t idleBytes() const {
        std::size_t idle = 0;
        for (const auto& [address, chunk] : chunks_) {
            idle += chunk.usedBytes == 0 ? chunk.bytes : 0;
        }
        return idle;
    }

    void announceGone(std::uint64_t chunk) {
        std::lock_guard<std::mutex> lock(listenersMutex_);
        for (const auto& [ticket, gone] : listeners_) {
            gone(chunk);
        }
    }

    std::atomic<bool> enabled_{false};
    std::mutex mutex_;
    std::map<std::uintptr_t, Chunk> chunks_;  // by base address
    std::uint64_t nextChunk_ = 1;
    std::mutex listenersMutex_;
    std::map<std::uint64_t, std::function<void(std::uint64_t)>> listeners_;
    std::uint64_t nextTicket_ = 0;
};

Pool& pool() {
    static auto* const instance = new Pool;  // never destroyed: buffers may outlive exit
    return *instance;
}

}  // namespace

void* allocateLarge(std::size_t bytes, bool zeroed) {
    const std::size_t total = kFront + bytes;
    if (pool().enabled()) {
        if (std::byte* start = pool().allocate(total, zeroed)) {
            return start + kFront;
        }
    }
    const std::size_t mapped = roundUp(total, kHugePage);
    std::byte* start = mapAnonymous(mapped);
    if (start == nullptr) {
        return nullptr;
    }
    const std::uint64_t size = mapped;
    std::memcpy(start, &size, sizeof size);
    return start + kFront;
}

void freeLarge(BufferHeader* head) noexcept {
    std::byte* start = reinterpret_cast<std::byte*>(head) + sizeof(BufferHeader) - kFront;
    if (pool().release(start)) {
        return;
    }
    std::uint64_t mapped = 0;
    std::memcpy(&mapped, start, sizeof mapped);
    ::munmap(start, mapped);
}

}  // namespace detail

namespace shared_memory {

void enable() {
    detail::pool().enable();
}

bool enabled() noexcept {
    return detail::pool().enabled();
}

std::optional<Place> locate(const void* data, std::size_t bytes) {
    return detail::pool().locate(data, bytes);
}

std::uint64_t onChunkGone(std::function<void(std::uint64_t chunk)> gone) {
    return detail::pool().listen(std::move(gone));
}

void stopListening(std::uint64_t ticket) {
    detail::pool().stopListening(ticket);
}

Usage usage() {
    return detail::pool().usage();
}

Array adoptBorrowed(ArrayType type, std::vector<std::size_t> dims, const void* data,
                    void (*done)(void*)) {
    const int raw = static_cast<int>(type);
    if (!detail::isPlain(raw) || type == ArrayType::LOGICAL) {
        throw InvalidArgumentException("Borrowed elements must be of type CHAR or numeric, not " +
                                       toString(type) + ".");
    }
    std::size_t numel = 0;
    dims = detail::normalizeDims(std::move(dims), &numel);
    if (data == nullptr && numel != 0) {
        throw InvalidBufferException("Borrowed elements need an address.");
    }
    auto impl = std::make_unique<detail::ArrayImpl>();
    impl->type = raw;
    impl->borrowed = true;
    impl->numel = numel;
    impl->dims = std::move(dims);
    impl->data = const_cast<void*>(data);
    impl->deleter = done;
    return detail::ArrayAccess::adopt(impl.release());
}

}  // namespace shared_memory

}  // namespace foundation::veltradata
