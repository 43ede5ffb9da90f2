#pragma once

#include <list>
#include <map>
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

/**
 * The kernel's end of generic netlink, as far as nl80211 goes: a SOCK_SEQPACKET listener on which
 * each packet is what a netlink socket would have sent. Knows the controller's question for the
 * family, the interface and station dumps, vendor and frame commands; everything else is refused
 * with EOPNOTSUPP. Interface indexes are not looked at, 0 included: they come from the host's own
 * kernel, which knows none of these interfaces.
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
    void setFamily(int id) { mFamily = id; }
    /** The newest rule that fits a request decides. */
    void addRule(const NetlinkRule& rule) { mRules.push_front(rule); }
    /** Removes the rules for `request`, or all for Any. */
    void removeRules(NetlinkRequest request);

  private:
    struct Request;

    void onConnection();
    void onPacket(int fd);
    void hangUp(int fd);
    /** Answers one message; false when the connection is to be closed. */
    bool handle(int fd, const nlmsghdr& header);
    /** What kind of request it is, with its description in words; empty when it is unknown. */
    Request describe(const nlmsghdr& header) const;
    const NetlinkRule* useRule(const Request& request);
    /** Packets that answer a request when all is well, or with its data spoilt as a rule asks. */
    std::vector<NetlinkPacket> answer(const Request& request, const NetlinkRule* rule) const;
    NetlinkPacket familyReply(const Request& request) const;
    NetlinkPacket interfaceDump(const Request& request) const;
    NetlinkPacket stationDump(const Request& request, const NetlinkRule* rule) const;

    EventLoop& mLoop;
    Recorder& mRecorder;
    const RadioState& mRadio;
    const std::string mPath;
    android::base::unique_fd mListener;
    std::map<int, android::base::unique_fd> mConnections;
    int mFamily = 28;
    std::list<NetlinkRule> mRules;
    NetlinkRule mUsedRule{};
};

}  // namespace sim
