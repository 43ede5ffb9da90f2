#include "tests/support/FakeNl80211.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>

#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace test {

namespace {

/** A test that cannot set its scene up ends here. */
void require(bool condition, const char* what) {
    if (!condition) {
        perror(what);
        abort();
    }
}

FakeNl80211::Answer emptyAnswer(const NetlinkRequest& request) {
    const bool isDump = (request.flags & NLM_F_DUMP) == NLM_F_DUMP;
    return {{isDump ? done(request) : ack(request)}};
}

/** The controller's answer to CTRL_CMD_GETFAMILY, in two packets as the kernel sends it. */
FakeNl80211::Answer familyAnswer(const NetlinkRequest& request, bool hasFamily) {
    if (!hasFamily) {
        return {{error(request, -ENOENT)}};
    }
    return {{reply(request, CTRL_CMD_NEWFAMILY,
                   concat({attribute(CTRL_ATTR_FAMILY_NAME, terminatedText("nl80211")),
                           attribute(CTRL_ATTR_FAMILY_ID, number16(FakeNl80211::kFamily)),
                           attribute(CTRL_ATTR_VERSION, number32(1)),
                           attribute(CTRL_ATTR_HDRSIZE, number32(0)),
                           attribute(CTRL_ATTR_MAXATTR, number32(301))})),
             ack(request)}};
}

}  // namespace

FakeNl80211::FakeNl80211(const std::string& root)
    : path_(root + "/dev/nl80211"),
      listener_(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)),
      stop_(eventfd(0, EFD_CLOEXEC)),
      answerer_(emptyAnswer) {
    require(listener_.ok() && stop_.ok(), "descriptors of the nl80211 peer");
    std::filesystem::create_directories(root + "/dev");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    require(path_.size() < sizeof(address.sun_path), "length of the nl80211 peer's path");
    std::copy(path_.begin(), path_.end(), address.sun_path);
    require(bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0 &&
                listen(listener_.get(), 16) == 0,
            path_.c_str());
    thread_ = std::thread(&FakeNl80211::serve_, this);
}

FakeNl80211::~FakeNl80211() {
    const uint64_t one = 1;
    require(write(stop_.get(), &one, sizeof(one)) == sizeof(one), "stop of the nl80211 peer");
    thread_.join();
    unlink(path_.c_str());
}

void FakeNl80211::answer(Answerer answerer) {
    const std::lock_guard<std::mutex> lock(mutex_);
    answerer_ = std::move(answerer);
}

void FakeNl80211::answer(std::function<std::vector<Bytes>(const NetlinkRequest&)> packets) {
    answer([packets = std::move(packets)](const NetlinkRequest& request) {
        return Answer{packets(request)};
    });
}

void FakeNl80211::answerFamily(Answerer answerer) {
    const std::lock_guard<std::mutex> lock(mutex_);
    familyAnswerer_ = std::move(answerer);
}

void FakeNl80211::removeFamily() {
    const std::lock_guard<std::mutex> lock(mutex_);
    hasFamily_ = false;
}

std::vector<NetlinkRequest> FakeNl80211::requests() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
}

void FakeNl80211::forgetRequests() {
    const std::lock_guard<std::mutex> lock(mutex_);
    requests_.clear();
}

int FakeNl80211::familyRequests() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return familyRequests_;
}

int FakeNl80211::connections() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return connections_;
}

int FakeNl80211::openConnections() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return openConnections_;
}

bool FakeNl80211::waitUntilClosed() const {
    std::unique_lock<std::mutex> lock(mutex_);
    return closed_.wait_for(lock, std::chrono::seconds(30),
                            [this] { return openConnections_ == 0; });
}

void FakeNl80211::serve_() {
    std::vector<android::base::unique_fd> open;
    while (true) {
        std::vector<pollfd> polled = {{stop_.get(), POLLIN, 0}, {listener_.get(), POLLIN, 0}};
        for (const auto& connection : open) {
            polled.push_back({connection.get(), POLLIN, 0});
        }
        require(poll(polled.data(), polled.size(), -1) > 0 || errno == EINTR, "poll");
        if (polled[0].revents != 0) {
            return;
        }
        for (size_t i = open.size(); i-- > 0;) {
            if (polled[i + 2].revents != 0 && !serveRequest_(open[i].get())) {
                open.erase(open.begin() + static_cast<ptrdiff_t>(i));
                const std::lock_guard<std::mutex> lock(mutex_);
                --openConnections_;
                closed_.notify_all();
            }
        }
        if (polled[1].revents != 0) {
            open.emplace_back(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
            const std::lock_guard<std::mutex> lock(mutex_);
            ++connections_;
            ++openConnections_;
        }
    }
}

/** Answers the packet that waits on `connection`. Returns false when that connection is over. */
bool FakeNl80211::serveRequest_(int connection) {
    Bytes packet(65536);
    const ssize_t length = recv(connection, packet.data(), packet.size(), 0);
    if (length <= 0) {
        return false;
    }
    packet.resize(static_cast<size_t>(length));
    const Answer answer = answerTo_(parseRequest(packet));
    bool sent = true;
    do {
        for (const Bytes& bytes : answer.packets) {
            // A client that has gone in the meantime is its own business.
            sent = send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL) >= 0 && sent;
        }
    } while (answer.endless && sent);
    return !answer.hangUp;
}

FakeNl80211::Answer FakeNl80211::answerTo_(const NetlinkRequest& request) {
    Answerer answerer;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (request.type == GENL_ID_CTRL) {
            ++familyRequests_;
            if (familyAnswerer_ == nullptr) {
                return familyAnswer(request, hasFamily_);
            }
            answerer = familyAnswerer_;
        } else {
            requests_.push_back(request);
            if (!hasFamily_) {
                return {{error(request, -ENOENT)}};
            }
            answerer = answerer_;
        }
    }
    return answerer(request);
}

}  // namespace test
