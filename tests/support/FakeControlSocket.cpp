#include "tests/support/FakeControlSocket.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <sys/eventfd.h>
#include <sys/time.h>

namespace test {

namespace {

sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        abort();
    }
    path.copy(address.sun_path, path.size());
    return address;
}

android::base::unique_fd listenAt(const sockaddr_un& address) {
    android::base::unique_fd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    unlink(address.sun_path);
    if (bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        abort();
    }
    const timeval patience = {10, 0};
    setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof(patience));
    return fd;
}

}  // namespace

bool FakeControlSocket::Peer::operator==(const Peer& other) const {
    return length == other.length && memcmp(&address, &other.address, length) == 0;
}

FakeControlSocket::FakeControlSocket(std::string path)
    : path_(std::move(path)),
      address_(addressOf(path_)),
      socket_(listenAt(address_)),
      stopEvent_(eventfd(0, EFD_CLOEXEC)),
      answer_([](const std::string&) { return "OK\n"; }),
      thread_([this] { run_(); }) {}

FakeControlSocket::~FakeControlSocket() {
    if (!crashed_) {
        crash();
        unlink(path_.c_str());  // in this order, like a supplicant that ends
    }
}

void FakeControlSocket::crash() {
    eventfd_write(stopEvent_.get(), 1);
    thread_.join();
    // As close() would, but for the descriptor: another thread may be about to send an event.
    shutdown(socket_.get(), SHUT_RDWR);
    const android::base::unique_fd closed(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    dup3(closed.get(), socket_.get(), O_CLOEXEC);
    crashed_ = true;
}

void FakeControlSocket::answerAttach(Attach how) {
    const std::lock_guard<std::mutex> lock(mutex_);
    attachAnswer_ = how;
}

void FakeControlSocket::ignoreDetach() {
    const std::lock_guard<std::mutex> lock(mutex_);
    ignoresDetach_ = true;
}

void FakeControlSocket::answerCommands(Answer answer) {
    const std::lock_guard<std::mutex> lock(mutex_);
    answer_ = std::move(answer);
}

void FakeControlSocket::resetOnCommands(std::function<bool(const std::string&)> which) {
    const std::lock_guard<std::mutex> lock(mutex_);
    resets_ = std::move(which);
}

size_t FakeControlSocket::sendEvent(std::string_view event) {
    std::vector<Peer> peers;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        peers = peers_;
    }
    size_t sent = 0;
    for (const Peer& peer : peers) {
        if (sendto(socket_.get(), event.data(), event.size(), MSG_NOSIGNAL,
                   reinterpret_cast<const sockaddr*>(&peer.address), peer.length) >= 0) {
            ++sent;
        } else {
            drop_(peer);
        }
    }
    return sent;
}

void FakeControlSocket::resetConnections() {
    // Something unread for resetPeer_(). Our thread may take the first, and then waits for the
    // lock.
    const std::lock_guard<std::mutex> lock(mutex_);
    const android::base::unique_fd sender(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    for (const Peer& peer : peers_) {
        for (int i = 0; i < 2; ++i) {
            sendto(sender.get(), "", 0, 0, reinterpret_cast<const sockaddr*>(&address_),
                   sizeof(address_));
        }
        resetPeer_(peer);
    }
}

std::vector<std::string> FakeControlSocket::commands() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return commands_;
}

size_t FakeControlSocket::attached() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return peers_.size();
}

size_t FakeControlSocket::attachRequests() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return attachRequests_;
}

size_t FakeControlSocket::detachRequests() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return detachRequests_;
}

bool FakeControlSocket::waitForAttached(size_t count) const {
    return waitUntil_([&] { return peers_.size() == count; });
}

bool FakeControlSocket::waitForCommand(const std::string& command) const {
    return waitUntil_(
        [&] { return std::find(commands_.begin(), commands_.end(), command) != commands_.end(); });
}

template <typename Condition>
bool FakeControlSocket::waitUntil_(Condition condition) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(30), condition);
}

void FakeControlSocket::run_() {
    std::array<pollfd, 2> fds = {{{socket_.get(), POLLIN, 0}, {stopEvent_.get(), POLLIN, 0}}};
    std::array<char, 8192> buffer;
    while (poll(fds.data(), fds.size(), -1) >= 0 && fds[1].revents == 0) {
        Peer from = {};
        from.length = sizeof(from.address);
        const ssize_t length =
            recvfrom(socket_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT | MSG_PEEK,
                     reinterpret_cast<sockaddr*>(&from.address), &from.length);
        if (length < 0) {
            continue;
        }
        const std::string request(buffer.data(), static_cast<size_t>(length));
        if (!reset_(request, from)) {
            recv(socket_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
            handle_(request, from);
        }
    }
}

void FakeControlSocket::handle_(const std::string& request, const Peer& from) {
    if (from.length <= sizeof(sa_family_t)) {  // no name: resetConnections()
        const std::lock_guard<std::mutex> lock(mutex_);
        return;
    }
    if (request == "ATTACH") {
        attach_(from);
        return;
    }
    if (request == "DETACH") {
        bool ignored;
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            ++detachRequests_;
            ignored = ignoresDetach_;
        }
        drop_(from);
        if (!ignored) {
            reply_("OK\n", from);
        }
        return;
    }
    Answer answer;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        commands_.push_back(request);
        answer = answer_;
    }
    changed_.notify_all();
    if (const auto text = answer(request)) {
        reply_(*text, from);
    }
}

bool FakeControlSocket::reset_(const std::string& request, const Peer& from) {
    std::function<bool(const std::string&)> resets;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        resets = resets_;
    }
    if (request == "ATTACH" || request == "DETACH" || resets == nullptr || !resets(request)) {
        return false;
    }
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        commands_.push_back(request);
    }
    changed_.notify_all();
    resetPeer_(from);  // the request is still in the queue, and goes with this
    return true;
}

void FakeControlSocket::attach_(const Peer& from) {
    // Under the lock, so that no event comes ahead of the reply, and nobody who has the reply finds
    // the peer missing.
    const std::lock_guard<std::mutex> lock(mutex_);
    ++attachRequests_;
    if (attachAnswer_ != Attach::Ignore) {
        reply_(attachAnswer_ == Attach::Accept ? "OK\n" : "FAIL\n", from);
    }
    if (attachAnswer_ == Attach::Accept) {
        peers_.push_back(from);
    }
    changed_.notify_all();
}

void FakeControlSocket::reply_(const std::string& text, const Peer& to) const {
    sendto(socket_.get(), text.data(), text.size(), MSG_NOSIGNAL,
           reinterpret_cast<const sockaddr*>(&to.address), to.length);
}

void FakeControlSocket::resetPeer_(const Peer& peer) const {
    // The kernel resets the peer of a datagram socket that leaves it with something unread.
    // Through a descriptor of its own: the thread sanitizer takes a connect for the descriptor's
    // creation, and another thread may be using it, to send an event or to look for a request.
    const android::base::unique_fd same(dup(socket_.get()));
    const sockaddr nobody = {AF_UNSPEC, {}};
    (void)connect(same.get(), reinterpret_cast<const sockaddr*>(&peer.address), peer.length);
    (void)connect(same.get(), &nobody, sizeof(nobody));
}

void FakeControlSocket::drop_(const Peer& peer) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        peers_.erase(std::remove(peers_.begin(), peers_.end(), peer), peers_.end());
    }
    changed_.notify_all();
}

}  // namespace test
