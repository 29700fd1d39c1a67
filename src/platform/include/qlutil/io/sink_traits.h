#pragma once

namespace qlutil::io {

// How a writer treats a stream handed to it.
struct SinkTraits {
    // Synchronise the stream after every message, so that nothing waits in a
    // buffer when the process ends.
    bool flushEachWrite = true;

    bool operator==(const SinkTraits&) const = default;
};

}  // namespace qlutil::io
