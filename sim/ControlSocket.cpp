#include "sim/ControlSocket.h"

#include <cerrno>
#include <cstddef>
#include <cstring>

#include <linux/sockios.h>
#include <sys/ioctl.h>

namespace sim {

namespace {

/** Longest command that the supplicant reads. */
constexpr size_t kLongestCommand = 8192;

}  // namespace

std::string ControlSocket::Address::text() const {
    const size_t offset = offsetof(sockaddr_un, sun_path);
    if (length <= offset) {
        return "";
    }
    // An abstract name begins with NUL; a path may end with one.
    const std::string path(name.sun_path, length - offset);
    return path[0] == '\0' ? "@" + path.substr(1) : path.substr(0, path.find('\0'));
}

bool ControlSocket::Address::operator==(const Address& other) const {
    return length == other.length && std::memcmp(&name, &other.name, length) == 0;
}

std::string ControlSocket::open(const std::string& path) {
    if (path.size() >= sizeof(address_.name.sun_path)) {
        return "the socket's path is too long: " + path;
    }
    address_.name.sun_family = AF_UNIX;
    path.copy(address_.name.sun_path, path.size());
    address_.length = sizeof(address_.name);
    fd_.reset(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!fd_.ok()) {
        return std::string("no socket: ") + std::strerror(errno);
    }
    if (bind(fd_.get(), reinterpret_cast<const sockaddr*>(&address_.name), address_.length) != 0) {
        return "cannot bind " + path + ": " + std::strerror(errno);
    }
    socklen_t size = sizeof(half_);
    getsockopt(fd_.get(), SOL_SOCKET, SO_SNDBUF, &half_, &size);
    half_ /= 2;
    return "";
}

bool ControlSocket::receive(Request& request, int flags) const {
    char buffer[kLongestCommand];
    request.from.length = sizeof(request.from.name);
    const ssize_t length =
        recvfrom(fd_.get(), buffer, sizeof(buffer), flags,
                 reinterpret_cast<sockaddr*>(&request.from.name), &request.from.length);
    request.text.assign(buffer, length > 0 ? static_cast<size_t>(length) : 0);
    return length >= 0;
}

int ControlSocket::send(const Address& to, std::string_view bytes, int flags) const {
    const ssize_t sent = sendto(fd_.get(), bytes.data(), bytes.size(), flags | MSG_NOSIGNAL,
                                reinterpret_cast<const sockaddr*>(&to.name), to.length);
    return sent >= 0 ? 0 : errno;
}

void ControlSocket::reset(const Address& peer) const {
    // The kernel resets the peer of a datagram socket that leaves it with something unread, so
    // there must be something.
    const android::base::unique_fd sender(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    (void)sendto(sender.get(), "", 0, MSG_DONTWAIT,
                 reinterpret_cast<const sockaddr*>(&address_.name), address_.length);
    const sockaddr nobody = {AF_UNSPEC, {}};
    (void)connect(fd_.get(), reinterpret_cast<const sockaddr*>(&peer.name), peer.length);
    (void)connect(fd_.get(), &nobody, sizeof(nobody));
}

bool ControlSocket::hasRoom() const {
    int used = 0;
    return ioctl(fd_.get(), SIOCOUTQ, &used) != 0 || used < half_;
}

}  // namespace sim
