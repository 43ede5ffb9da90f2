#pragma once

#include <string>
#include <string_view>

#include <android-base/unique_fd.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace sim {

/**
 * A supplicant's control socket, one system call per function: a UNIX datagram socket that requests
 * come in on, and replies and events go out of. One thread, but for send().
 */
class ControlSocket {
  public:
    struct Address {
        sockaddr_un name{};
        socklen_t length = 0;

        /** The path, or an abstract name behind "@". */
        std::string text() const;
        bool operator==(const Address& other) const;
    };
    struct Request {
        std::string text;
        Address from;
    };

    /** Binds `path`, which must not exist. Returns why it failed, or an empty text. */
    std::string open(const std::string& path);
    int fd() const { return fd_.get(); }
    const Address& address() const { return address_; }

    /** Takes the next request into `request`; `flags` as of recv(). False when there is none. */
    bool receive(Request& request, int flags = 0) const;
    /** Returns 0, or the errno if `to` did not take it. `flags` as of send(). Any thread. */
    int send(const Address& to, std::string_view bytes, int flags = 0) const;
    /** Makes pending receives of `peer` fail at once; its unread requests are lost. */
    void reset(const Address& peer) const;

    /** Whether half of the send buffer, which all receivers share, is free. */
    bool hasRoom() const;

  private:
    Address address_;
    android::base::unique_fd fd_;
    int half_ = 0;  ///< Bytes.
};

}  // namespace sim
