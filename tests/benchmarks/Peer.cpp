#include "Peer.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace corvid::benchmarks {

namespace {

constexpr std::string_view kStop = "STOP";

sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    return address;
}

}  // namespace

Peer::Peer(const std::string& path)
    : path_(path), socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_un address = addressOf(path_);
    if (bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        abort();
    }
}

Peer::~Peer() {
    stop();
    unlink(path_.c_str());
}

Peer::Request Peer::receive() const {
    Request request = {};
    request.fromLength = sizeof(request.from);
    char buffer[256];
    const ssize_t length =
        recvfrom(socket_.get(), buffer, sizeof(buffer), 0,
                 reinterpret_cast<sockaddr*>(&request.from), &request.fromLength);
    request.text.assign(buffer, length > 0 ? static_cast<size_t>(length) : 0);
    return request;
}

void Peer::reply(const Request& request, std::string_view text) const {
    // Nobody may be there any more to take it.
    static_cast<void>(sendto(socket_.get(), text.data(), text.size(), 0,
                             reinterpret_cast<const sockaddr*>(&request.from), request.fromLength));
}

void Peer::acceptMonitor() {
    do {
        monitor_ = receive();
        reply(monitor_, "OK\n");
    } while (monitor_.text != "ATTACH");
}

void Peer::send(std::string_view event) const { reply(monitor_, event); }

void Peer::serve() {
    server_ = std::thread([this] {
        while (true) {
            Request request = receive();
            if (request.text == kStop) {
                return;
            }
            if (request.text == "ATTACH") {
                monitor_ = request;
                reply(request, "OK\n");
            } else {
                reply(request, kReply);
            }
        }
    });
}

void Peer::stop() {
    if (server_.joinable()) {
        const sockaddr_un address = addressOf(path_);
        sendto(socket_.get(), kStop.data(), kStop.size(), 0,
               reinterpret_cast<const sockaddr*>(&address), sizeof(address));
        server_.join();
    }
}

}  // namespace corvid::benchmarks
