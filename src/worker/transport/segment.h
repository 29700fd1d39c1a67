// The shared segment of a connection: one memfd that the client creates,
// seals and passes to the worker at the handshake.
//
//   offset           size        what
//   0                64          SegmentHeader (written once by the client)
//   64               ...         Control: the two rings' positions and the
//                                words their readers and writers sleep on,
//                                and the print acknowledgement
//   kControlBytes    ringBytes   requests, client -> worker
//   + ringBytes      ringBytes   replies and prints, worker -> client
//
// Each side copies the header's numbers when it maps the segment and never
// reads them again; every position it reads later is the other side's
// claim and is checked before use (ring.h).
#pragma once

#include <foundation/msg_svc/spin_wait.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "transport/futex.h"

namespace vxpy::transport {

using foundation::msg_svc::threadutil::SpinWait;

inline constexpr std::uint32_t kSegmentMagic = 0x53505856;  // 'V' 'X' 'P' 'S'
inline constexpr std::uint32_t kSegmentVersion = 1;
inline constexpr std::size_t kControlBytes = 4096;
inline constexpr std::size_t kDefaultRingBytes = std::size_t{1} << 20;

struct SegmentHeader {
    std::uint32_t magic;
    std::uint32_t version;
    std::uint64_t bytes;
    std::uint64_t ringBytes;
};

// One direction. Each field has a cache line of its own, so that the reader
// and the writer do not take each other's lines for what only one of them writes.
struct RingControl {
    alignas(64) std::atomic<std::uint64_t> written;  // bytes written in all, by the writer
    alignas(64) std::atomic<std::uint64_t> taken;    // bytes read in all, by the reader
    alignas(64) SpinWait::Counter readerSleepers;    // the reader waits for bytes
    FutexWord readerWake;
    alignas(64) SpinWait::Counter writerSleepers;  // the writer waits for room
    FutexWord writerWake;
};

// The client's acknowledgement of the worker's prints.
struct PrintControl {
    alignas(64) std::atomic<std::uint64_t> acknowledged;  // highest print id shown
    SpinWait::Counter sleepers;
    FutexWord wake;
};

struct Control {
    alignas(64) SegmentHeader header;
    RingControl requests;
    RingControl replies;
    PrintControl prints;
};
static_assert(sizeof(Control) <= kControlBytes);
static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

// A mapping of the segment. Move-only; unmaps and closes its descriptor at the end.
class Segment {
  public:
    // The client's side: a new sealed memfd of two rings of `ringBytes` (a
    // power of two), mapped and initialised. Throws std::system_error.
    static Segment create(std::size_t ringBytes = kDefaultRingBytes);
    // The worker's side: takes over `fd` and checks that it is a sealed memfd
    // whose size and header agree; throws std::runtime_error when not.
    static Segment adopt(int fd);

    Segment(Segment&& other) noexcept;
    Segment& operator=(Segment&&) = delete;
    ~Segment();

    int fd() const { return fd_; }
    Control& control() const { return *reinterpret_cast<Control*>(base_); }
    std::size_t ringBytes() const { return ringBytes_; }
    std::byte* requestBytes() const { return base_ + kControlBytes; }
    std::byte* replyBytes() const { return base_ + kControlBytes + ringBytes_; }

  private:
    Segment(int fd, std::byte* base, std::size_t bytes, std::size_t ringBytes)
        : fd_(fd), base_(base), bytes_(bytes), ringBytes_(ringBytes) {}

    int fd_ = -1;
    std::byte* base_ = nullptr;
    std::size_t bytes_ = 0;
    std::size_t ringBytes_ = 0;
};

}  // namespace vxpy::transport
