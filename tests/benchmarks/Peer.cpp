#include "Peer.h"

#include <unistd.h>

#include <cstdlib>
#include <utility>

namespace corvid::benchmarks {

namespace {

constexpr std::string_view kStop = "STOP";

}  // namespace

Peer::Peer(std::string path) : path_(std::move(path)) {
    if (!socket_.open(path_).empty()) {
        abort();
    }
}

Peer::~Peer() {
    stop();
    unlink(path_.c_str());
}

Peer::Request Peer::receive() const {
    Request request;
    socket_.receive(request);
    return request;
}

void Peer::reply(const Request& request, std::string_view text) const {
    // Nobody may be there any more to take it.
    static_cast<void>(socket_.send(request.from, text));
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
        for (Request request = receive(); request.text != kStop; request = receive()) {
            const bool attaches = request.text == "ATTACH";
            reply(request, attaches ? "OK\n" : kReply);
            if (attaches) {
                monitor_ = std::move(request);
            }
        }
    });
}

void Peer::stop() {
    if (server_.joinable()) {
        static_cast<void>(socket_.send(socket_.address(), kStop));
        server_.join();
    }
}

}  // namespace corvid::benchmarks
