#include "sim/Headset.h"

#include <cstdio>
#include <utility>

namespace sim {

namespace {

constexpr const char* kSta = "wlan0";
constexpr const char* kGroupSsid = "DIRECT-BI";
/** The reason of a disconnection that the station asked for: deauthenticated, leaving. */
constexpr int kLocalReason = 3;

/** The mainline supplicant's description of a channel. */
std::string mainlineChannel(int frequencyMHz, Width width) {
    int offset = 0;
    if (width != Width::MHz20) {
        offset = centreMHz(frequencyMHz, Width::MHz40) > frequencyMHz ? 1 : -1;
    }
    return "freq=" + std::to_string(frequencyMHz) +
           " ht_enabled=1 ch_offset=" + std::to_string(offset) + " ch_width=" + widthText(width) +
           " MHz cf1=" + std::to_string(centreMHz(frequencyMHz, width)) + " cf2=0";
}

/** The headset's supplicant's own form of the channel-switch event. */
std::string headsetSwitch(int frequencyMHz, const std::string& ifname, Width width) {
    return "CTRL-EVENT-CHANNEL-SWITCH freq=" + std::to_string(frequencyMHz) + " ifname=" + ifname +
           " width=" + std::to_string(widthMHz(width));
}

}  // namespace

Headset::~Headset() {
    loop_.cancel(groupUp_);
    loop_.cancel(groupDown_);
}

void Headset::sendEvent(const std::string& socket, const std::string& text) {
    supplicant_.send(socket, "<3>" + text);
}

std::string Headset::checkSta() const {
    return supplicant_.isOpen(kSta) ? "" : "the supplicant is not running";
}

void Headset::forgetLinks() {
    loop_.cancel(std::exchange(groupUp_, 0));
    loop_.cancel(std::exchange(groupDown_, 0));
    if (!groupSocket_.empty()) {
        radio_.removeInterface(groupSocket_);
    }
    groupSocket_.clear();
    radio_.sta.reset();
    radio_.group.reset();
}

std::string Headset::startSupplicant(const std::string& p2p) {
    std::string error = supplicant_.open(kSta);
    if (error.empty() && !p2p.empty()) {
        error = supplicant_.open(p2p);
        radio_.addInterface(p2p);
    }
    if (error.empty()) {
        p2pDevice_ = p2p;
    }
    return error;
}

std::string Headset::terminateSupplicant() {
    if (std::string error = checkSta(); !error.empty()) {
        return error;
    }
    if (radio_.group) {
        stopGroup("REQUESTED", Duration::zero());
    }
    if (!p2pDevice_.empty()) {
        sendEvent(p2pDevice_, "CTRL-EVENT-TERMINATING ");
        supplicant_.close(p2pDevice_, true);
    }
    if (radio_.sta) {
        disconnect(kLocalReason, true);
    }
    sendEvent(kSta, "CTRL-EVENT-TERMINATING ");
    removeGroupSocket();
    forgetLinks();
    for (const std::string& name : supplicant_.names()) {
        supplicant_.close(name, true);
    }
    return "";
}

std::string Headset::crashSupplicant() {
    if (std::string error = checkSta(); !error.empty()) {
        return error;
    }
    forgetLinks();
    for (const std::string& name : supplicant_.names()) {
        supplicant_.close(name, false);
    }
    return "";
}

std::string Headset::restartSupplicant() {
    if (supplicant_.isOpen(kSta)) {
        crashSupplicant();
    }
    return startSupplicant(p2pDevice_);
}

std::string Headset::connect(const StaLink& link, int rssiDbm) {
    if (std::string error = checkSta(); !error.empty()) {
        return error;
    }
    const std::string named = link.bssid + " (SSID='" + link.ssid +
                              "' freq=" + std::to_string(link.frequencyMHz) + " MHz)";
    sendEvent(kSta, "SME: Trying to authenticate with " + named);
    sendEvent(kSta, "Trying to associate with " + named);
    sendEvent(kSta, "Associated with " + link.bssid);
    sendEvent(kSta, "CTRL-EVENT-SUBNET-STATUS-UPDATE status=0");
    radio_.sta = link;
    radio_.signal.set(rssiDbm);
    sendEvent(kSta, "WPA: Key negotiation completed with " + link.bssid + " [PTK=CCMP GTK=CCMP]");
    sendEvent(kSta,
              "CTRL-EVENT-CONNECTED - Connection to " + link.bssid + " completed [id=0 id_str=]");
    return "";
}

std::string Headset::disconnect(int reason, bool byHeadset) {
    if (!radio_.sta) {
        return "the station is not connected";
    }
    const std::string bssid = radio_.sta->bssid;
    radio_.sta.reset();
    sendEvent(kSta, "CTRL-EVENT-DISCONNECTED bssid=" + bssid + " reason=" + std::to_string(reason) +
                        (byHeadset ? " locally_generated=1" : ""));
    sendEvent(kSta, "CTRL-EVENT-DSCP-POLICY clear_all");
    return "";
}

std::string Headset::switchChannel(const ChannelSwitch& change) {
    if (std::string error = checkSta(); !error.empty()) {
        return error;
    }
    if (change.ifname == kSta && radio_.sta) {
        radio_.sta->frequencyMHz = change.frequencyMHz;
        radio_.sta->width = change.width;
    } else if (radio_.group && radio_.group->ifname == change.ifname) {
        radio_.group->frequencyMHz = change.frequencyMHz;
        radio_.group->width = change.width;
    }
    if (change.mainline) {
        const std::string channel = mainlineChannel(change.frequencyMHz, change.width);
        sendEvent(change.ifname, "CTRL-EVENT-STARTED-CHANNEL-SWITCH " + channel);
        sendEvent(change.ifname, "CTRL-EVENT-CHANNEL-SWITCH " + channel);
    } else {
        sendEvent(kSta, headsetSwitch(change.frequencyMHz, change.ifname, change.width));
    }
    return "";
}

std::string Headset::scan(int networks) {
    if (std::string error = checkSta(); !error.empty()) {
        return error;
    }
    sendEvent(kSta, "CTRL-EVENT-SCAN-STARTED ");
    for (int i = 0; i < networks; ++i) {
        char bss[64];
        std::snprintf(bss, sizeof(bss), "CTRL-EVENT-BSS-ADDED %d 02:00:00:00:%02x:%02x", i,
                      (i + 1) >> 8 & 0xFF, (i + 1) & 0xFF);
        sendEvent(kSta, bss);
    }
    // Every socket has the results.
    for (const std::string& name : supplicant_.names()) {
        sendEvent(name, "CTRL-EVENT-SCAN-RESULTS ");
    }
    return "";
}

std::string Headset::changeRegdom(const Regdom& regdom) {
    if (!supplicant_.isOpen(regdom.on)) {
        return "there is no socket " + regdom.on;
    }
    sendEvent(regdom.on, "CTRL-EVENT-REGDOM-CHANGE init=" + regdom.init + " type=" + regdom.type +
                             (regdom.alpha2.empty() ? "" : " alpha2=" + regdom.alpha2));
    return "";
}

std::string Headset::startAssociation(const std::string& ifname) {
    if (std::string error = checkSta(); !error.empty()) {
        return error;
    }
    sendEvent(kSta, "CTRL-EVENT-ASSOC-STARTED ifname=" + ifname);
    return "";
}

std::string Headset::startGroup(const P2pStart& given) {
    if (radio_.group || groupUp_ != 0) {
        return "a P2P group is up already";
    }
    removeGroupSocket();  // of an earlier group, if that is still to be done
    P2pStart start = given;
    if (start.ifname.empty()) {
        start.ifname = p2pDevice_.empty() ? "p2p-wlan0-0" : p2pDevice_;
    }
    if (start.on.empty()) {
        start.on = start.ifname;
    } else if (start.on != start.ifname && !supplicant_.isOpen(start.on)) {
        return "there is no socket " + start.on;
    }
    radio_.addInterface(start.ifname);
    if (supplicant_.isOpen(start.ifname)) {
        announceGroup(start);
        return "";
    }
    if (std::string error = supplicant_.open(start.ifname); !error.empty()) {
        return error;
    }
    groupSocket_ = start.ifname;
    // The interface and its socket are there before the group is up.
    groupUp_ = loop_.after(start.upAfter, [this, start] {
        groupUp_ = 0;
        announceGroup(start);
    });
    return "";
}

void Headset::announceGroup(const P2pStart& start) {
    radio_.group =
        P2pGroup{start.ifname, kGroupSsid, start.groupOwner, start.frequencyMHz, start.width};
    groupOn_ = start.on;
    if (start.groupOwner) {
        sendEvent(start.ifname, "AP-ENABLED ");
    }
    sendEvent(start.ifname, std::string("CTRL-EVENT-CONNECTED - Connection to ") + kGroupAddress +
                                " completed [id=0 id_str=]");
    const std::string secret =
        start.groupOwner ? "passphrase=\"e8SndjtA\"" : "psk=" + std::string(64, '5');
    sendEvent(start.on, "P2P-GROUP-STARTED " + start.ifname +
                            (start.groupOwner ? " GO" : " client") + " ssid=\"" + kGroupSsid +
                            "\" freq=" + std::to_string(start.frequencyMHz) + " " + secret +
                            " go_dev_addr=" + kP2pDeviceAddress);
}

std::string Headset::switchGroup(int frequencyMHz, Width width) {
    if (!radio_.group) {
        return "no P2P group is up";
    }
    P2pGroup& group = *radio_.group;
    group.frequencyMHz = frequencyMHz;
    group.width = width;
    const std::string channel = mainlineChannel(frequencyMHz, width);
    sendEvent(group.ifname, "CTRL-EVENT-STARTED-CHANNEL-SWITCH " + channel);
    sendEvent(group.ifname, "CTRL-EVENT-CHANNEL-SWITCH " + channel);
    sendEvent(group.ifname, "CTRL-EVENT-CHANNEL-SWITCH " + channel + " dfs=0");
    sendEvent(kSta, headsetSwitch(frequencyMHz, group.ifname, width));
    sendEvent(group.ifname, "AP-CSA-FINISHED freq=" + std::to_string(frequencyMHz) + " dfs=0");
    return "";
}

std::string Headset::stopGroup(const std::string& reason, Duration downAfter) {
    if (!radio_.group) {
        return "no P2P group is up";
    }
    const P2pGroup group = *radio_.group;
    radio_.group.reset();
    sendEvent(groupOn_, "P2P-GROUP-REMOVED " + group.ifname +
                            (group.groupOwner ? " GO" : " client") + " reason=" + reason);
    if (group.groupOwner) {
        sendEvent(group.ifname, "AP-DISABLED ");
    }
    sendEvent(group.ifname, std::string("CTRL-EVENT-DISCONNECTED bssid=") + kGroupAddress +
                                " reason=3 locally_generated=1");
    sendEvent(group.ifname, "CTRL-EVENT-DSCP-POLICY clear_all");
    if (!groupSocket_.empty()) {
        groupDown_ = loop_.after(downAfter, [this] { removeGroupSocket(); });
    }
    return "";
}

void Headset::removeGroupSocket() {
    loop_.cancel(std::exchange(groupDown_, 0));
    if (!groupSocket_.empty() && !radio_.group) {
        radio_.removeInterface(groupSocket_);
        supplicant_.close(std::exchange(groupSocket_, ""), true);
    }
}

std::string Headset::peer(bool joins, const std::string& mac) {
    if (!radio_.group) {
        return "no P2P group is up";
    }
    sendEvent(radio_.group->ifname, (joins ? "AP-STA-CONNECTED " : "AP-STA-DISCONNECTED ") + mac +
                                        " p2p_dev_addr=42:00:00:00:02:00");
    return "";
}

}  // namespace sim
