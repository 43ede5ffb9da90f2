#include "tests/support/ScriptedNl80211.h"

#include <utility>

#include <linux/netlink.h>
#include <linux/nl80211.h>

namespace test {

namespace {

/** A station whose last rate says this bandwidth. */
Bytes stationEntry(const NetlinkRequest& request, int bandwidth) {
    static constexpr int kWidthFlags[] = {
        0,
        0,
        NL80211_RATE_INFO_40_MHZ_WIDTH,
        NL80211_RATE_INFO_80_MHZ_WIDTH,
        NL80211_RATE_INFO_80P80_MHZ_WIDTH,
        NL80211_RATE_INFO_160_MHZ_WIDTH,
    };
    std::vector<Bytes> rate = {attribute(NL80211_RATE_INFO_BITRATE, number16(1560))};
    if (const int flag = kWidthFlags[bandwidth]; flag != 0) {
        rate.push_back(attribute(static_cast<uint16_t>(flag), {}));
    }
    const Bytes info = attribute(NL80211_STA_INFO_TX_BITRATE | NLA_F_NESTED, concat(rate));
    return dumpEntry(request, NL80211_CMD_NEW_STATION,
                     concat({attribute(NL80211_ATTR_IFINDEX, number32(0)),
                             attribute(NL80211_ATTR_STA_INFO | NLA_F_NESTED, info)}));
}

}  // namespace

ScriptedNl80211::ScriptedNl80211(const std::string& root) : kernel_(root) {
    kernel_.answer([this](const NetlinkRequest& request) { return answer_(request); });
}

void ScriptedNl80211::setInterfaces(std::vector<std::string> names) {
    const std::lock_guard<std::mutex> lock(mutex_);
    interfaces_ = std::move(names);
}

void ScriptedNl80211::setStationBandwidth(int code) {
    const std::lock_guard<std::mutex> lock(mutex_);
    bandwidth_ = code;
}

void ScriptedNl80211::refuse(int cmd, int error) {
    const std::lock_guard<std::mutex> lock(mutex_);
    errors_[cmd] = error;
}

std::vector<NetlinkRequest> ScriptedNl80211::requests(int cmd) const {
    std::vector<NetlinkRequest> found;
    for (const NetlinkRequest& request : kernel_.requests()) {
        if (request.cmd == cmd) {
            found.push_back(request);
        }
    }
    return found;
}

std::vector<Bytes> ScriptedNl80211::answer_(const NetlinkRequest& request) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (const auto found = errors_.find(request.cmd); found != errors_.end() && found->second) {
        return {error(request, found->second)};
    }
    std::vector<Bytes> packets;
    if (request.cmd == NL80211_CMD_GET_INTERFACE) {
        for (const std::string& name : interfaces_) {
            packets.push_back(dumpEntry(request, NL80211_CMD_NEW_INTERFACE,
                                        attribute(NL80211_ATTR_IFNAME, terminatedText(name))));
        }
    } else if (request.cmd == NL80211_CMD_GET_STATION && bandwidth_ != 0) {
        packets.push_back(stationEntry(request, bandwidth_));
    }
    const bool isDump = (request.flags & NLM_F_DUMP) == NLM_F_DUMP;
    packets.push_back(isDump ? done(request) : ack(request));
    return packets;
}

}  // namespace test
