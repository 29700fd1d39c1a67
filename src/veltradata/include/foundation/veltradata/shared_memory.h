// Large element buffers, and memory that another process can map.
//
// Element buffers of plain types (LOGICAL, CHAR, numeric and complex) of at
// least kLargeBufferBytes get pages of their own instead of the heap's:
//  - by default anonymous memory in whole huge pages where the system gives
//    them (a fresh buffer then costs one page fault per 2 MiB, not per 4 KiB);
//  - once enable() has been called, shareable memory: chunks of memfd memory
//    (no name in any file system, nothing left behind when the process ends)
//    that a connection to another process passes once by descriptor, after
//    which a buffer is known there by its chunk and offset. Freed buffers go
//    back to their chunk for the next large buffer of the process; chunks
//    that fall idle beyond a bounded reserve are given back to the system.
// The pages stay the process's own either way: this only decides where a
// buffer lives, never who may write it (see adoptBorrowed for that).
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "foundation/veltradata/array.h"
#include "foundation/veltradata/types.h"

namespace foundation::veltradata::shared_memory {

inline constexpr std::size_t kLargeBufferBytes = std::size_t{256} << 10;

// From now on large element buffers of this process live in shareable
// memory. Idempotent and safe from any thread; it cannot be undone. Where
// the system has no memfd, large buffers stay in anonymous memory and
// enabled() stays false.
void enable();
bool enabled() noexcept;

// Where bytes of shareable memory lie: a chunk, known by a number that this
// process never gives to another chunk, and the offset in it.
struct Place {
    std::uint64_t chunk = 0;
    std::uint64_t offset = 0;
    std::uint64_t chunkBytes = 0;
    // The chunk's memfd, sealed against shrinking and growing; owned by the
    // pool and open as long as any buffer in the chunk lives.
    int fd = -1;
};

// The place of `bytes` bytes at `data` when they lie within one chunk of
// this process's shareable memory.
std::optional<Place> locate(const void* data, std::size_t bytes);

// Calls `gone(chunk)` whenever a chunk is given back to the system (on the
// thread that freed its last buffer, with no lock of the pool held), until
// the returned ticket is given to stopListening.
std::uint64_t onChunkGone(std::function<void(std::uint64_t chunk)> gone);
void stopListening(std::uint64_t ticket);

// What the pool holds now: chunks, and their bytes in all and in use.
struct Usage {
    std::size_t chunks = 0;
    std::size_t bytes = 0;
    std::size_t usedBytes = 0;
};
Usage usage();

// An array of a plain type over memory that this process only borrows (a
// buffer of another process, mapped read-only). Its elements are read in
// place; a write through any holder, and release(), first give that holder
// a copy of its own, even when it is the only holder. `done(data)` is called
// once when the last holder ends. Throws InvalidArgumentException for a type
// other than 2 and 4 to 23 (logical bytes would need normalising in place).
Array adoptBorrowed(ArrayType type, std::vector<std::size_t> dims, const void* data,
                    void (*done)(void*));

}  // namespace foundation::veltradata::shared_memory
