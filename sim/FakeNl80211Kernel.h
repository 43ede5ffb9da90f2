#pragma once

#include <functional>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>
#include <linux/netlink.h>

#include "sim/EventLoop.h"
#include "sim/NetlinkPacket.h"
#include "sim/NetlinkRule.h"
#include "sim/RadioState.h"
#include "sim/Record.h"

namespace sim {

/** What a script answers a request with. */
struct NetlinkAnswer {
    std::vector<std::string> packets;
    bool hangUp = false;   ///< The connection is closed then.
    bool endless = false;  ///< The packets are sent again and again until the client closes.
};

/**
 * The kernel's end of nl80211: a SOCK_SEQPACKET listener on which each packet is what a netlink
 * socket would have sent. Answers the question for the family, interface and station dumps, vendor
 * and frame commands from the radio's state, by rule or by script, and refuses the rest with
 * EOPNOTSUPP. Ignores interface indexes: they are the host kernel's, which has none of these
 * interfaces. One thread.
 */
class FakeNl80211Kernel {
  public:
    /** Doesn't listen yet. */
    FakeNl80211Kernel(EventLoop& loop, Recorder& recorder, const RadioState& radio,
                      std::string path);
    /** Stops listening and removes the path. */
    ~FakeNl80211Kernel();
    FakeNl80211Kernel(const FakeNl80211Kernel&) = delete;
    FakeNl80211Kernel& operator=(const FakeNl80211Kernel&) = delete;

    /** Returns why listening was not possible, or an empty text. Does nothing when it listens. */
    std::string listen();
    /** Hangs up on everyone and stops listening. The path stays. */
    void close();
    void removePath();

    /** 0: there is no nl80211. */
    void setFamily(int id) { family_ = id; }
    /** The newest rule that fits a request decides. */
    void addRule(const NetlinkRule& rule) { rules_.push_front(rule); }
    /** Removes the rules for `request`, or all for Any. */
    void removeRules(NetlinkRequest request);

    /**
     * Decides, ahead of the rules, about a request unless it has no value. Such a request is not
     * recorded, and its answer waits for a client that does not read.
     */
    using Script = std::function<std::optional<NetlinkAnswer>(const nlmsghdr& request)>;
    void setScript(Script script) { script_ = std::move(script); }
    /** Called with the number of open connections when one has come or gone. */
    void onConnections(std::function<void(size_t open)> callback) {
        onConnections_ = std::move(callback);
    }

  private:
    struct Request;

    void onConnection();
    void onPacket(int fd);
    void hangUp(int fd);
    /** Answers one message; false when the connection is to be closed. */
    bool handle(int fd, const nlmsghdr& header);
    void tellConnections() const;
    /** What kind of request it is, with its description in words; empty when it is unknown. */
    Request describe(const nlmsghdr& header) const;
    const NetlinkRule* useRule(const Request& request);
    /** Packets that answer a request when all is well, or with its data spoilt as a rule asks. */
    std::vector<NetlinkPacket> answer(const Request& request, const NetlinkRule* rule) const;
    NetlinkPacket familyReply(const Request& request) const;
    NetlinkPacket interfaceDump(const Request& request) const;
    NetlinkPacket stationDump(const Request& request, const NetlinkRule* rule) const;

    EventLoop& loop_;
    Recorder& recorder_;
    const RadioState& radio_;
    const std::string path_;
    std::vector<uint32_t> buffer_;  // netlink headers must be aligned
    android::base::unique_fd listener_;
    std::map<int, android::base::unique_fd> connections_;
    int family_ = 28;
    std::list<NetlinkRule> rules_;
    NetlinkRule usedRule_{};
    Script script_;
    std::function<void(size_t)> onConnections_;
};

}  // namespace sim
