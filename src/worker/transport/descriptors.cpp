#include "transport/descriptors.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "wire/wire_codec.h"

namespace vxpy::transport {

namespace {

constexpr std::size_t kMaxPassed = 4;

}  // namespace

bool passDescriptors(int socket, const PassedRecord& record, const std::vector<int>& fds) {
    alignas(cmsghdr) char space[CMSG_SPACE(sizeof(int) * kMaxPassed)] = {};
    iovec piece{const_cast<PassedRecord*>(&record), sizeof record};
    msghdr message{};
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    if (!fds.empty()) {
        message.msg_control = space;
        message.msg_controllen = CMSG_SPACE(sizeof(int) * fds.size());
        cmsghdr* header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(sizeof(int) * fds.size());
        std::memcpy(CMSG_DATA(header), fds.data(), sizeof(int) * fds.size());
    }
    for (;;) {
        const ssize_t sent = ::sendmsg(socket, &message, MSG_NOSIGNAL);
        if (sent == static_cast<ssize_t>(sizeof record)) {
            return true;
        }
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        return false;
    }
}

PassedRecord receiveDescriptors(int socket, std::vector<int>& fds) {
    PassedRecord record;
    alignas(cmsghdr) char space[CMSG_SPACE(sizeof(int) * kMaxPassed)] = {};
    iovec piece{&record, sizeof record};
    msghdr message{};
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    message.msg_control = space;
    message.msg_controllen = sizeof space;
    ssize_t received;
    do {
        received = ::recvmsg(socket, &message, MSG_CMSG_CLOEXEC | MSG_WAITALL);
    } while (received < 0 && errno == EINTR);
    // Whatever came is ours to close, even when the record is bad.
    fds.clear();
    for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr;
         header = CMSG_NXTHDR(&message, header)) {
        if (header->cmsg_level == SOL_SOCKET && header->cmsg_type == SCM_RIGHTS) {
            const std::size_t count = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
            const auto* data = reinterpret_cast<const int*>(CMSG_DATA(header));
            fds.insert(fds.end(), data, data + count);
        }
    }
    auto refuse = [&](const std::string& why) {
        for (const int fd : fds) {
            ::close(fd);
        }
        fds.clear();
        throw wire::WireError(why);
    };
    if (received == 0) {
        for (const int fd : fds) {
            ::close(fd);
        }
        fds.clear();
        throw wire::ConnectionClosed("the peer closed the connection");
    }
    if (received < 0) {
        refuse(std::string("cannot read a descriptor from the connection: ") +
               std::strerror(errno));
    }
    if (received != static_cast<ssize_t>(sizeof record) || (message.msg_flags & MSG_CTRUNC) != 0 ||
        record.count != fds.size()) {
        refuse("a descriptor record that does not hold what it says");
    }
    return record;
}

}  // namespace vxpy::transport
