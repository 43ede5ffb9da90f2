#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/nl80211.h>

#include "client/Nl80211Client.h"
#include "tests/support/DeviceRoot.h"
#include "tests/support/FakeNl80211.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Netlink.h"

namespace Ursa::OS::Wifi {

using test::Bytes;
using test::NetlinkAttribute;
using test::NetlinkRequest;
using testing::ElementsAre;
using testing::IsEmpty;

/** A client in front of a peer that the test plays. */
class Nl80211Test : public testing::Test {
  protected:
    std::vector<std::string> errors() const { return log_.messages(ANDROID_LOG_ERROR); }
    std::vector<std::string> warnings() const { return log_.messages(ANDROID_LOG_WARN); }

    /** A command without anything of interest in it. */
    static Nl80211GenericCmdInfo someCommand() {
        Nl80211GenericCmdInfo info;
        info.cmd = NL80211_CMD_FRAME;
        info.ifname = "lo";
        return info;
    }

    test::DeviceRoot root_;
    test::LogCapture log_;
    test::FakeNl80211 kernel_{root_.path()};
    Nl80211Client client_;
};

/** A dump's entry for the interface `name`. */
inline Bytes interfaceEntry(const NetlinkRequest& request, std::string_view name) {
    return test::dumpEntry(request, NL80211_CMD_NEW_INTERFACE,
                           test::attribute(NL80211_ATTR_IFNAME, test::terminatedText(name)));
}

/** An answer to an interface dump: one packet of entries, then the end in a packet of its own. */
inline auto interfaces(const std::vector<std::string>& names) {
    return [names](const NetlinkRequest& request) {
        std::vector<Bytes> entries;
        entries.reserve(names.size());
        for (const std::string& name : names) {
            entries.push_back(interfaceEntry(request, name));
        }
        std::vector<Bytes> packets;
        if (!entries.empty()) {
            packets.push_back(test::concat(entries));
        }
        packets.push_back(test::done(request));
        return packets;
    };
}

}  // namespace Ursa::OS::Wifi
