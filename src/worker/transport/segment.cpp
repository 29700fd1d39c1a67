#include "transport/segment.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

namespace vxpy::transport {

namespace {

// What must never change under a mapping: a segment that shrank would fault
// on the pages past its new end.
constexpr int kSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL;

[[noreturn]] void systemFailure(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

std::byte* mapShared(int fd, std::size_t bytes) {
    void* mapped = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    return mapped == MAP_FAILED ? nullptr : static_cast<std::byte*>(mapped);
}

bool powerOfTwo(std::uint64_t value) {
    return value != 0 && (value & (value - 1)) == 0;
}

}  // namespace

Segment Segment::create(std::size_t ringBytes) {
    if (!powerOfTwo(ringBytes) || ringBytes < 4096) {
        throw std::invalid_argument("a ring of " + std::to_string(ringBytes) + " bytes");
    }
    const std::size_t bytes = kControlBytes + 2 * ringBytes;
    const int fd = ::memfd_create("vxpy-connection", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (fd < 0) {
        systemFailure("memfd_create");
    }
    std::byte* base = nullptr;
    if (::ftruncate(fd, static_cast<off_t>(bytes)) != 0 || ::fcntl(fd, F_ADD_SEALS, kSeals) != 0 ||
        (base = mapShared(fd, bytes)) == nullptr) {
        const int error = errno;
        ::close(fd);
        errno = error;
        systemFailure("cannot make the shared segment");
    }
    // A fresh memfd reads as zeros: every position and counter starts at 0.
    Control* control = new (base) Control{};
    control->header = SegmentHeader{kSegmentMagic, kSegmentVersion, bytes, ringBytes};
    return Segment(fd, base, bytes, ringBytes);
}

Segment Segment::adopt(int fd) {
    struct stat status {};
    const int seals = ::fcntl(fd, F_GET_SEALS);
    if (::fstat(fd, &status) != 0 || seals < 0 || (seals & kSeals) != kSeals) {
        ::close(fd);
        throw std::runtime_error("the shared segment is not a sealed memfd");
    }
    const auto size = static_cast<std::uint64_t>(status.st_size);
    if (size < kControlBytes) {
        ::close(fd);
        throw std::runtime_error("the shared segment is too small");
    }
    std::byte* base = mapShared(fd, size);
    if (base == nullptr) {
        ::close(fd);
        systemFailure("cannot map the shared segment");
    }
    SegmentHeader header;
    std::memcpy(&header, base, sizeof header);
    if (header.magic != kSegmentMagic || header.version != kSegmentVersion ||
        header.bytes != size || !powerOfTwo(header.ringBytes) || header.ringBytes < 4096 ||
        header.ringBytes > (size - kControlBytes) / 2 ||
        kControlBytes + 2 * header.ringBytes != size) {
        ::munmap(base, size);
        ::close(fd);
        throw std::runtime_error("the shared segment's header does not describe it");
    }
    return Segment(fd, base, size, header.ringBytes);
}

Segment::Segment(Segment&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)),
      base_(std::exchange(other.base_, nullptr)),
      bytes_(other.bytes_),
      ringBytes_(other.ringBytes_) {}

Segment::~Segment() {
    if (base_ != nullptr) {
        ::munmap(base_, bytes_);
    }
    if (fd_ >= 0) {
        ::close(fd_);
    }
}

}  // namespace vxpy::transport
