#include "tests/support/FakeNl80211.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <utility>

#include <linux/genetlink.h>
#include <linux/netlink.h>

#include "tests/support/Patience.h"

namespace test {

namespace {

FakeNl80211::Answer emptyAnswer(const NetlinkRequest& request) {
    const bool isDump = (request.flags & NLM_F_DUMP) == NLM_F_DUMP;
    return {{isDump ? done(request) : ack(request)}};
}

/**
 * The controller's answer to CTRL_CMD_GETFAMILY. As the kernel's, its acknowledgement is a packet
 * of its own, which is sent only if it is asked for.
 */
FakeNl80211::Answer familyAnswer(const NetlinkRequest& request) {
    FakeNl80211::Answer answer = {
        {reply(request, CTRL_CMD_NEWFAMILY,
               concat({attribute(CTRL_ATTR_FAMILY_NAME, terminatedText("nl80211")),
                       attribute(CTRL_ATTR_FAMILY_ID, number16(FakeNl80211::kFamily)),
                       attribute(CTRL_ATTR_VERSION, number32(1)),
                       attribute(CTRL_ATTR_HDRSIZE, number32(0)),
                       attribute(CTRL_ATTR_MAXATTR, number32(301))}))}};
    if ((request.flags & NLM_F_ACK) != 0) {
        answer.packets.push_back(ack(request));
    }
    return answer;
}

FakeNl80211::Answer noFamily(const NetlinkRequest& request) { return {{error(request, -ENOENT)}}; }

Bytes bytesOf(const nlmsghdr& header) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(&header);
    return Bytes(bytes, bytes + header.nlmsg_len);
}

sim::NetlinkAnswer packetsOf(const FakeNl80211::Answer& answer) {
    sim::NetlinkAnswer packets{{}, answer.hangUp, answer.endless};
    for (const Bytes& bytes : answer.packets) {
        packets.packets.emplace_back(bytes.begin(), bytes.end());
    }
    return packets;
}

}  // namespace

FakeNl80211::FakeNl80211(const std::string& root)
    : answerer_(emptyAnswer),
      familyAnswerer_(familyAnswer),
      kernel_(thread_.loop(), recorder_, radio_, root + "/dev/nl80211") {
    std::filesystem::create_directories(root + "/dev");
    thread_.run([this] {
        kernel_.setFamily(kFamily);
        kernel_.setScript([this](const nlmsghdr& header) { return script_(header); });
        kernel_.onConnections([this](size_t open) {
            const std::lock_guard<std::mutex> lock(mutex_);
            const int now = static_cast<int>(open);
            connections_ += std::max(now - openConnections_, 0);
            openConnections_ = now;
            closed_.notify_all();
        });
        if (const std::string error = kernel_.listen(); !error.empty()) {
            std::fprintf(stderr, "%s\n", error.c_str());
            std::abort();
        }
    });
}

FakeNl80211::~FakeNl80211() {
    thread_.run([this] { kernel_.close(); });
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

void FakeNl80211::answerLikeTheSimulated() {
    const std::lock_guard<std::mutex> lock(mutex_);
    answerer_ = familyAnswerer_ = nullptr;
}

void FakeNl80211::answerFamily(Answerer answerer) {
    const std::lock_guard<std::mutex> lock(mutex_);
    familyAnswerer_ = std::move(answerer);
}

void FakeNl80211::removeFamily() {
    const std::lock_guard<std::mutex> lock(mutex_);
    answerer_ = familyAnswerer_ = noFamily;
}

void FakeNl80211::change(
    const std::function<void(sim::FakeNl80211Kernel&, sim::RadioState&)>& change) {
    thread_.run([&] { change(kernel_, radio_); });
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
    return closed_.wait_for(lock, kPatience, [this] { return openConnections_ == 0; });
}

/** The test's answer; nothing leaves the request to the simulated kernel. */
std::optional<sim::NetlinkAnswer> FakeNl80211::script_(const nlmsghdr& header) {
    const NetlinkRequest request = parseRequest(bytesOf(header));
    Answerer answerer;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (request.type == GENL_ID_CTRL) {
            ++familyRequests_;
            answerer = familyAnswerer_;
        } else {
            requests_.push_back(request);
            answerer = answerer_;
        }
    }
    if (answerer == nullptr) {
        return std::nullopt;
    }
    return packetsOf(answerer(request));
}

}  // namespace test
