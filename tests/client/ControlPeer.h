#pragma once

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>

#include <android-base/unique_fd.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace Ursa::OS::Wifi {

/** The supplicant's end, without a thread: it does what the test says, when it says it. */
class ControlPeer {
  public:
    struct Request {
        std::string text;
        sockaddr_un from;
        socklen_t length;

        std::string sender() const { return from.sun_path; }
    };

    explicit ControlPeer(const std::string& path) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof(address.sun_path));
        unlink(path.c_str());
        if (bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) !=
            0) {
            abort();
        }
    }

    /** Waits for the next request. One without a text and a sender after half a minute. */
    Request receive() const {
        pollfd readable = {socket_.get(), POLLIN, 0};
        Request request = {};
        if (poll(&readable, 1, 30'000) != 1) {
            ADD_FAILURE() << "there is no request";
            return request;
        }
        char text[256];
        request.length = sizeof(request.from);
        const ssize_t length =
            recvfrom(socket_.get(), text, sizeof(text), MSG_DONTWAIT,
                     reinterpret_cast<sockaddr*>(&request.from), &request.length);
        request.text.assign(text, static_cast<size_t>(std::max<ssize_t>(length, 0)));
        return request;
    }

    /** Sends to who sent `request`. False if nobody has that address any more. */
    bool send(const Request& request, const std::string& text) const {
        return sendto(socket_.get(), text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
                      reinterpret_cast<const sockaddr*>(&request.from), request.length) >= 0;
    }

  private:
    android::base::unique_fd socket_{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};

/** The files in /tmp that the library has made for this process. */
inline std::set<std::string> controlClientFiles() {
    const std::string prefix = "/tmp/wpa_ctrl_" + std::to_string(getpid()) + "-";
    std::set<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator("/tmp")) {
        if (entry.path().string().compare(0, prefix.size(), prefix) == 0) {
            found.insert(entry.path());
        }
    }
    return found;
}

/**
 * Removes the files that an earlier process with the number of this one left when it was killed. A
 * fixture that counts files derives from it: no connection is open when it is made.
 */
class NoOldControlClientFiles {
  protected:
    NoOldControlClientFiles() {
        for (const std::string& file : controlClientFiles()) {
            unlink(file.c_str());
        }
    }
};

}  // namespace Ursa::OS::Wifi
