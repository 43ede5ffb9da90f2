// Replaces socket calls of a program that LD_PRELOADs this library. A NETLINK_GENERIC socket
// becomes a SOCK_SEQPACKET connection to $CORVID_WIFI_ROOT/dev/nl80211, whose listener answers in
// the kernel's place; to the program it still looks like a netlink socket. If that path does not
// exist, the socket is the kernel's own; if nobody listens there, socket() fails.
//
// read(), write(), poll() and the rest are not replaced: after the listener has hung up they report
// end of file instead of an error reply.
//
// A program that gcc built with a sanitizer needs the sanitizer's run-time preloaded first:
// LD_PRELOAD="libasan.so.8 libnl80211-redirect.so".

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <new>
#include <optional>
#include <string>

#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>

#include "HostRoot.h"
#include "RedirectTable.h"

namespace host {
namespace {

RedirectTable& table() { return RedirectTable::instance(); }

/** The C library's own `function`, or the next preloaded one. */
template <typename Function>
Function* next(Function* /*type*/, const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

#define NEXT(function)                                                  \
    ([] {                                                               \
        static auto* const found = ::host::next(::function, #function); \
        return found;                                                   \
    }())

/** What `call` returns; without memory -1, and ENOMEM: its callers are C and know no exceptions. */
template <typename Call>
auto orNoMemory(Call call) -> decltype(call()) {
    try {
        return call();
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        return -1;
    }
}

/** A netlink port that is unique in this process, and most likely among processes. */
uint32_t newPort() {
    static std::atomic<uint32_t> count{0};
    return (static_cast<uint32_t>(getpid()) & 0x3fffffU) + (count++ << 22);
}

void bindIfUnbound(Redirected& socket) {
    if (socket.port == 0) {
        socket.port = newPort();
    }
}

/** Writes the netlink address of `port`, cut to `*length` as the kernel does. */
void writeAddress(uint32_t port, sockaddr* address, socklen_t* length) {
    sockaddr_nl netlink = {};
    netlink.nl_family = AF_NETLINK;
    netlink.nl_pid = port;
    if (address != nullptr && length != nullptr) {
        memcpy(address, &netlink, std::min<size_t>(*length, sizeof(netlink)));
        *length = sizeof(netlink);
    }
}

/** Connects to the listener. Empty if the path does not exist; -1 and errno on failure. */
std::optional<int> connectToListener(int type) {
    const std::string path = rootedPath("/dev/nl80211");
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        errno = ENAMETOOLONG;
        return access(path.c_str(), F_OK) != 0 ? std::nullopt : std::optional<int>(-1);
    }
    path.copy(address.sun_path, path.size());
    const int fd = NEXT(socket)(AF_UNIX, SOCK_SEQPACKET | (type & SOCK_CLOEXEC), 0);
    if (fd < 0) {
        return -1;
    }
    int result = -1;
    do {
        result = NEXT(connect)(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    } while (result != 0 && errno == EINTR);
    // Not before: connect() may have to wait for a busy listener.
    if (result == 0 && (type & SOCK_NONBLOCK) != 0) {
        result = fcntl(fd, F_SETFL, O_RDWR | O_NONBLOCK);
    }
    if (result == 0) {
        return fd;
    }
    const int error = errno;
    close(fd);
    errno = error;
    if (error == ENOENT || error == ENOTDIR) {
        return std::nullopt;
    }
    return -1;
}

/** The first `size` bytes of a message in one piece; uses `storage` when they are in several. */
const void* inOnePiece(const msghdr& message, size_t size, std::string& storage) {
    if (message.msg_iovlen == 1) {
        return message.msg_iov->iov_base;
    }
    for (size_t i = 0; i < message.msg_iovlen; i++) {
        const size_t part = std::min(size - storage.size(), message.msg_iov[i].iov_len);
        storage.append(static_cast<const char*>(message.msg_iov[i].iov_base), part);
    }
    return storage.data();
}

size_t room(const msghdr& message) {
    size_t size = 0;
    for (size_t i = 0; i < message.msg_iovlen; i++) {
        size += message.msg_iov[i].iov_len;
    }
    return size;
}

bool hungUp(int error) {
    return error == EPIPE || error == ECONNRESET || error == ECONNREFUSED || error == ENOTCONN;
}

ssize_t sendPacket(int fd, const msghdr& message, int flags) {
    msghdr packet = message;
    packet.msg_name = nullptr;  // whatever the address: the listener is who answers
    packet.msg_namelen = 0;
    packet.msg_control = nullptr;
    packet.msg_controllen = 0;
    const size_t size = room(message);
    std::string storage;
    const void* bytes = inOnePiece(message, size, storage);
    // Before the packet is sent: another thread may read its answer at once.
    table().with(fd, [&](Redirected& socket) {
        bindIfUnbound(socket);
        socket.pending.sent(bytes, size);
    });
    const ssize_t result = NEXT(sendmsg)(fd, &packet, flags | MSG_NOSIGNAL);
    if (result >= 0) {
        return result;
    }
    const int error = errno;
    if (hungUp(error)) {
        return static_cast<ssize_t>(size);  // an error reply follows
    }
    table().with(fd, [&](Redirected& socket) { socket.pending.notSent(bytes, size); });
    errno = error;
    return -1;
}

struct ErrorReply {
    nlmsghdr header;
    nlmsgerr error;
};

/** What a receive call returns after the listener hung up: an error reply to the oldest request. */
ssize_t receiveHangUp(int fd, msghdr& message, int flags) {
    std::optional<nlmsghdr> request;
    uint32_t port = 0;
    table().with(fd, [&](Redirected& socket) {
        port = socket.port;
        request = socket.pending.oldest();
        if (request && (flags & MSG_PEEK) == 0) {
            socket.pending.dropOldest();
        }
    });
    if (!request) {
        errno = ECONNRESET;
        return -1;
    }
    ErrorReply reply = {};
    reply.header.nlmsg_len = sizeof(reply);
    reply.header.nlmsg_type = NLMSG_ERROR;
    reply.header.nlmsg_flags = NLM_F_CAPPED;  // of the request, only its header is repeated
    reply.header.nlmsg_seq = request->nlmsg_seq;
    reply.header.nlmsg_pid = port;
    reply.error.error = -ECONNRESET;
    reply.error.msg = *request;
    size_t copied = 0;
    for (size_t i = 0; i < message.msg_iovlen; i++) {
        const size_t part = std::min(sizeof(reply) - copied, message.msg_iov[i].iov_len);
        memcpy(message.msg_iov[i].iov_base, reinterpret_cast<const char*>(&reply) + copied, part);
        copied += part;
    }
    message.msg_flags = copied < sizeof(reply) ? MSG_TRUNC : 0;
    return static_cast<ssize_t>((flags & MSG_TRUNC) != 0 ? sizeof(reply) : copied);
}

ssize_t receivePacket(int fd, msghdr& message, int flags) {
    msghdr packet = message;
    packet.msg_name = nullptr;
    packet.msg_namelen = 0;
    packet.msg_control = nullptr;  // the kernel sends no descriptors either
    packet.msg_controllen = 0;
    const size_t size = room(message);
    ssize_t result = NEXT(recvmsg)(fd, &packet, flags);
    if (result < 0 && errno == ECONNRESET) {
        // The listener left without having read everything. What it sent before is still there.
        result = NEXT(recvmsg)(fd, &packet, flags);
    }
    message.msg_flags = packet.msg_flags & MSG_TRUNC;
    if (result == 0 && (size > 0 || (flags & MSG_TRUNC) != 0)) {
        result = receiveHangUp(fd, message, flags);
    } else if (result > 0 && (flags & MSG_PEEK) == 0) {
        std::string storage;
        const size_t received = std::min(static_cast<size_t>(result), size);
        const void* bytes = inOnePiece(message, received, storage);
        table().with(fd, [&](Redirected& socket) { socket.pending.received(bytes, received); });
    }
    if (result >= 0) {
        socklen_t length = message.msg_namelen;
        writeAddress(0, static_cast<sockaddr*>(message.msg_name), &length);
        message.msg_namelen = message.msg_name != nullptr ? length : 0;
        message.msg_controllen = 0;
    }
    return result;
}

msghdr messageOf(iovec& bytes) {
    msghdr message = {};
    message.msg_iov = &bytes;
    message.msg_iovlen = 1;
    return message;
}

int getRedirectedOption(int fd, int level, int option, void* value, socklen_t* length) {
    std::optional<int> answer;
    if (level == SOL_NETLINK) {
        answer = 0;
        // NOLINTNEXTLINE(bugprone-branch-clone): the domain and the protocol are both 16
    } else if (level == SOL_SOCKET && option == SO_DOMAIN) {
        answer = AF_NETLINK;
    } else if (level == SOL_SOCKET && option == SO_PROTOCOL) {
        answer = NETLINK_GENERIC;
    } else if (level == SOL_SOCKET && option == SO_TYPE) {
        table().with(fd, [&answer](const Redirected& socket) { answer = socket.type; });
    }
    if (!answer) {
        return NEXT(getsockopt)(fd, level, option, value, length);
    }
    *length = std::min<socklen_t>(*length, sizeof(*answer));
    memcpy(value, &*answer, *length);
    return 0;
}

}  // namespace
}  // namespace host

using host::table;

#define INTERPOSED extern "C" [[gnu::visibility("default")]]

INTERPOSED int socket(int domain, int type, int protocol) noexcept {
    if (domain == AF_NETLINK && protocol == NETLINK_GENERIC) {
        const auto fd = host::orNoMemory([&] { return host::connectToListener(type); });
        if (fd && *fd >= 0) {
            const int added = host::orNoMemory([&] {
                table().add(*fd, type & ~(SOCK_CLOEXEC | SOCK_NONBLOCK));
                return 0;
            });
            if (added < 0) {
                close(*fd);
                return -1;
            }
        }
        if (fd) {
            return *fd;
        }
    }
    return NEXT(socket)(domain, type, protocol);
}

INTERPOSED int bind(int fd, const sockaddr* address, socklen_t length) noexcept {
    int result = 0;
    const bool redirected = table().with(fd, [&](host::Redirected& socket) {
        if (length < sizeof(sockaddr_nl) || address->sa_family != AF_NETLINK) {
            errno = EINVAL;
            result = -1;
            return;
        }
        sockaddr_nl netlink;
        memcpy(&netlink, address, sizeof(netlink));
        if (netlink.nl_pid != 0) {
            socket.port = netlink.nl_pid;
        }
        host::bindIfUnbound(socket);
    });
    return redirected ? result : NEXT(bind)(fd, address, length);
}

INTERPOSED int connect(int fd, const sockaddr* address, socklen_t length) {
    return table().with(fd, host::bindIfUnbound) ? 0 : NEXT(connect)(fd, address, length);
}

INTERPOSED int getsockname(int fd, sockaddr* address, socklen_t* length) noexcept {
    const bool redirected = table().with(fd, [&](const host::Redirected& socket) {
        host::writeAddress(socket.port, address, length);
    });
    return redirected ? 0 : NEXT(getsockname)(fd, address, length);
}

INTERPOSED int getpeername(int fd, sockaddr* address, socklen_t* length) noexcept {
    if (!table().contains(fd)) {
        return NEXT(getpeername)(fd, address, length);
    }
    host::writeAddress(0, address, length);
    return 0;
}

INTERPOSED int getsockopt(int fd, int level, int option, void* value, socklen_t* length) noexcept {
    return table().contains(fd) ? host::getRedirectedOption(fd, level, option, value, length)
                                : NEXT(getsockopt)(fd, level, option, value, length);
}

INTERPOSED int setsockopt(int fd, int level, int option, const void* value,
                          socklen_t length) noexcept {
    // Netlink's own options (groups, extended acknowledgements) succeed without effect: the
    // listener decides what it sends.
    return level == SOL_NETLINK && table().contains(fd)
               ? 0
               : NEXT(setsockopt)(fd, level, option, value, length);
}

INTERPOSED ssize_t sendmsg(int fd, const msghdr* message, int flags) {
    if (!table().contains(fd)) {
        return NEXT(sendmsg)(fd, message, flags);
    }
    return host::orNoMemory([&] { return host::sendPacket(fd, *message, flags); });
}

INTERPOSED ssize_t sendto(int fd, const void* bytes, size_t size, int flags,
                          const sockaddr* address, socklen_t length) {
    if (!table().contains(fd)) {
        return NEXT(sendto)(fd, bytes, size, flags, address, length);
    }
    iovec part = {const_cast<void*>(bytes), size};
    return host::orNoMemory([&] { return host::sendPacket(fd, host::messageOf(part), flags); });
}

INTERPOSED ssize_t send(int fd, const void* bytes, size_t size, int flags) {
    if (!table().contains(fd)) {
        return NEXT(send)(fd, bytes, size, flags);
    }
    iovec part = {const_cast<void*>(bytes), size};
    return host::orNoMemory([&] { return host::sendPacket(fd, host::messageOf(part), flags); });
}

INTERPOSED ssize_t recvmsg(int fd, msghdr* message, int flags) {
    if (!table().contains(fd)) {
        return NEXT(recvmsg)(fd, message, flags);
    }
    return host::orNoMemory([&] { return host::receivePacket(fd, *message, flags); });
}

INTERPOSED ssize_t recvfrom(int fd, void* bytes, size_t size, int flags, sockaddr* address,
                            socklen_t* length) {
    if (!table().contains(fd)) {
        return NEXT(recvfrom)(fd, bytes, size, flags, address, length);
    }
    iovec part = {bytes, size};
    msghdr message = host::messageOf(part);
    const ssize_t result =
        host::orNoMemory([&] { return host::receivePacket(fd, message, flags); });
    if (result >= 0) {
        host::writeAddress(0, address, length);
    }
    return result;
}

INTERPOSED ssize_t recv(int fd, void* bytes, size_t size, int flags) {
    if (!table().contains(fd)) {
        return NEXT(recv)(fd, bytes, size, flags);
    }
    iovec part = {bytes, size};
    msghdr message = host::messageOf(part);
    return host::orNoMemory([&] { return host::receivePacket(fd, message, flags); });
}
