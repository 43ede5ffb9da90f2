#include "tests/support/ScriptedNl80211.h"

#include <utility>

#include <linux/nl80211.h>

namespace test {

ScriptedNl80211::ScriptedNl80211(const std::string& root) : kernel_(root) {
    kernel_.answerLikeTheSimulated();
}

void ScriptedNl80211::setInterfaces(std::vector<std::string> names) {
    kernel_.change([&](sim::FakeNl80211Kernel&, sim::RadioState& radio) {
        radio.interfaces = std::move(names);
    });
}

void ScriptedNl80211::setStationBandwidth(int code) {
    kernel_.change([&](sim::FakeNl80211Kernel&, sim::RadioState& radio) {
        radio.sta.reset();
        if (code != 0) {
            radio.sta.emplace();
            radio.sta->width = static_cast<sim::Width>(code - 1);
        }
    });
}

void ScriptedNl80211::refuse(int cmd, int error) {
    const auto request =
        cmd == NL80211_CMD_VENDOR ? sim::NetlinkRequest::Vendor : sim::NetlinkRequest::Frame;
    kernel_.change([&](sim::FakeNl80211Kernel& kernel, sim::RadioState&) {
        kernel.removeRules(request);
        if (error != 0) {
            sim::NetlinkRule rule{};
            rule.request = request;
            rule.fault = sim::NetlinkRule::Fault::Error;
            rule.error = error;
            kernel.addRule(rule);
        }
    });
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

}  // namespace test
