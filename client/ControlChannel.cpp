#include "client/ControlChannel.h"

#include <fcntl.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include "client/StartsWith.h"
#include "os/Mutex.h"

namespace Ursa::OS::Wifi {

namespace {

/** The library numbers its connections without a lock; two with one number share an address. */
Mutex openMutex;

/** Events and forwarded events: the library does not take them for replies either. */
bool isUnsolicited(std::string_view message) {
    return startsWith(message, "<") || startsWith(message, "IFNAME=");
}

}  // namespace

bool ControlChannel::open(const std::string& path) {
    close();
    // The library would fail too, but leave its own socket file behind.
    if (path.size() >= sizeof(sockaddr_un::sun_path)) {
        return false;
    }
    MutexLock lock(openMutex);
    connection_.reset(wpa_ctrl_open(path.c_str()));
    return isOpen();
}

void ControlChannel::waitInReceive(std::chrono::microseconds timeout) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(timeout);
    const std::chrono::microseconds rest = timeout - seconds;
    timeval limit = {};
    limit.tv_sec = static_cast<time_t>(seconds.count());
    limit.tv_usec = static_cast<suseconds_t>(rest.count());
    if (setsockopt(fd(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit)) == 0) {
        fcntl(fd(), F_SETFL, fcntl(fd(), F_GETFL) & ~O_NONBLOCK);
    }
}

bool ControlChannel::hasUnread() const {
    char byte;
    return recv(fd(), &byte, sizeof(byte), MSG_PEEK | MSG_DONTWAIT) >= 0 || errno != EAGAIN;
}

RequestResult ControlChannel::request(std::string_view command, std::string& reply,
                                      std::chrono::milliseconds timeout,
                                      std::chrono::steady_clock::time_point start) {
    if (!send_(command, start + timeout / 2)) {
        return RequestResult::NotSent;
    }
    return receive_(reply, start + timeout);
}

void ControlChannel::sendOnly(std::string_view command) {
    (void)send(fd(), command.data(), command.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
}

bool ControlChannel::send_(std::string_view command, Clock::time_point deadline) {
    while (send(fd(), command.data(), command.size(), MSG_DONTWAIT | MSG_NOSIGNAL) < 0) {
        if (errno != EAGAIN || !wait_(POLLOUT, deadline)) {
            return false;
        }
    }
    return true;
}

RequestResult ControlChannel::receive_(std::string& reply, Clock::time_point deadline) {
    std::array<char, kMaxReply> buffer;
    int flags = 0;  // the first recv() blocks if waitInReceive() was called
    while (true) {
        const ssize_t result = recv(fd(), buffer.data(), buffer.size(), flags);
        const std::string_view message(buffer.data(),
                                       static_cast<size_t>(std::max<ssize_t>(result, 0)));
        if (result >= 0 && !isUnsolicited(message)) {
            reply = message;
            return RequestResult::Replied;
        }
        if (result < 0 && errno != EAGAIN && errno != EINTR) {
            return RequestResult::Failed;
        }
        if (!wait_(POLLIN, deadline)) {
            return RequestResult::TimedOut;
        }
        flags = MSG_DONTWAIT;
    }
}

bool ControlChannel::wait_(short events, Clock::time_point deadline) const {
    while (true) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) {
            return false;
        }
        pollfd waited = {fd(), events, 0};
        if (poll(&waited, 1, static_cast<int>(left)) > 0) {
            return true;
        }
    }
}

bool CommandChannel::open(const std::string& path) {
    path_ = path;
    isOpen_ = connect_();
    return isOpen_;
}

void CommandChannel::close() {
    channel_.close();
    isOpen_ = false;
}

RequestResult CommandChannel::request(std::string_view command, std::string& reply,
                                      std::chrono::steady_clock::time_point start) {
    // A message that is there before the command is sent is not its reply, and more may follow.
    if (channel_.isOpen() && channel_.hasUnread()) {
        channel_.close();
    }
    if (!channel_.isOpen() && !connect_()) {
        return RequestResult::NotSent;
    }
    const RequestResult result = channel_.request(command, reply, timeout_, start);
    if (result == RequestResult::TimedOut || result == RequestResult::Failed) {
        channel_.close();  // a late reply then goes to an address that is gone
    }
    return result;
}

bool CommandChannel::connect_() {
    if (!channel_.open(path_)) {
        return false;
    }
    // The other half may be spent waiting for room.
    channel_.waitInReceive(std::chrono::microseconds(timeout_) / 2);
    return true;
}

}  // namespace Ursa::OS::Wifi
