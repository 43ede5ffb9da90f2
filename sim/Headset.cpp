#include "sim/Headset.h"

#include <cstdio>
#include <utility>

namespace sim {

namespace {

constexpr const char* kSta = "wlan0";
constexpr const char* kGroupSsid = "DIRECT-BI";

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
    mLoop.cancel(mGroupUp);
    mLoop.cancel(mGroupDown);
}

void Headset::say(const std::string& socket, const std::string& text) {
    mSupplicant.send(socket, "<3>" + text);
}

std::string Headset::checkSta() const {
    return mSupplicant.isOpen(kSta) ? "" : "the supplicant is not running";
}

void Headset::forgetLinks() {
    mLoop.cancel(std::exchange(mGroupUp, 0));
    mLoop.cancel(std::exchange(mGroupDown, 0));
    if (!mGroupSocket.empty()) {
        mRadio.removeInterface(mGroupSocket);
    }
    mGroupSocket.clear();
    mRadio.sta.reset();
    mRadio.group.reset();
}

std::string Headset::startSupplicant(const std::string& p2p) {
    std::string error = mSupplicant.open(kSta);
    if (error.empty() && !p2p.empty()) {
        error = mSupplicant.open(p2p);
        mRadio.addInterface(p2p);
    }
    if (error.empty()) {
        mP2pDevice = p2p;
    }
    return error;
}

std::string Headset::terminateSupplicant() {
    if (std::string error = checkSta(); !error.empty()) {
        return error;
    }
    if (mRadio.group) {
        stopGroup({"REQUESTED", Duration::zero()});
    }
    if (!mP2pDevice.empty()) {
        say(mP2pDevice, "CTRL-EVENT-TERMINATING ");
        mSupplicant.close(mP2pDevice, true);
    }
    if (mRadio.sta) {
        disconnect(Disconnect{});
    }
    say(kSta, "CTRL-EVENT-TERMINATING ");
    removeGroupSocket();
    forgetLinks();
    for (const std::string& name : mSupplicant.names()) {
        mSupplicant.close(name, true);
    }
    return "";
}

std::string Headset::crashSupplicant() {
    if (std::string error = checkSta(); !error.empty()) {
        return error;
    }
    forgetLinks();
    for (const std::string& name : mSupplicant.names()) {
        mSupplicant.close(name, false);
    }
    return "";
}

std::string Headset::restartSupplicant() {
    if (mSupplicant.isOpen(kSta)) {
        crashSupplicant();
    }
    return startSupplicant(mP2pDevice);
}

std::string Headset::connect(const Connect& action) {
    if (std::string error = checkSta(); !error.empty()) {
        return error;
    }
    const std::string named = action.bssid + " (SSID='" + action.ssid +
                              "' freq=" + std::to_string(action.frequencyMHz) + " MHz)";
    say(kSta, "SME: Trying to authenticate with " + named);
    say(kSta, "Trying to associate with " + named);
    say(kSta, "Associated with " + action.bssid);
    say(kSta, "CTRL-EVENT-SUBNET-STATUS-UPDATE status=0");
    mRadio.sta = StaLink{action.bssid, action.ssid, action.ip, action.frequencyMHz, action.width};
    mRadio.signal.set(action.rssiDbm);
    say(kSta, "WPA: Key negotiation completed with " + action.bssid + " [PTK=CCMP GTK=CCMP]");
    say(kSta, "CTRL-EVENT-CONNECTED - Connection to " + action.bssid + " completed [id=0 id_str=]");
    return "";
}

std::string Headset::disconnect(const Disconnect& action) {
    if (!mRadio.sta) {
        return "the station is not connected";
    }
    const std::string bssid = mRadio.sta->bssid;
    mRadio.sta.reset();
    say(kSta, "CTRL-EVENT-DISCONNECTED bssid=" + bssid + " reason=" +
                  std::to_string(action.reason) + (action.byHeadset ? " locally_generated=1" : ""));
    say(kSta, "CTRL-EVENT-DSCP-POLICY clear_all");
    return "";
}

std::string Headset::switchChannel(const ChannelSwitch& action) {
    if (std::string error = checkSta(); !error.empty()) {
        return error;
    }
    if (action.ifname == kSta && mRadio.sta) {
        mRadio.sta->frequencyMHz = action.frequencyMHz;
        mRadio.sta->width = action.width;
    } else if (mRadio.group && mRadio.group->ifname == action.ifname) {
        mRadio.group->frequencyMHz = action.frequencyMHz;
        mRadio.group->width = action.width;
    }
    if (action.mainline) {
        const std::string channel = mainlineChannel(action.frequencyMHz, action.width);
        say(action.ifname, "CTRL-EVENT-STARTED-CHANNEL-SWITCH " + channel);
        say(action.ifname, "CTRL-EVENT-CHANNEL-SWITCH " + channel);
    } else {
        say(kSta, headsetSwitch(action.frequencyMHz, action.ifname, action.width));
    }
    return "";
}

std::string Headset::scan(const Scan& action) {
    if (std::string error = checkSta(); !error.empty()) {
        return error;
    }
    say(kSta, "CTRL-EVENT-SCAN-STARTED ");
    for (int i = 0; i < action.networks; ++i) {
        char bss[64];
        std::snprintf(bss, sizeof(bss), "CTRL-EVENT-BSS-ADDED %d 02:00:00:00:%02x:%02x", i,
                      (i + 1) >> 8 & 0xFF, (i + 1) & 0xFF);
        say(kSta, bss);
    }
    // The results are told on every socket.
    for (const std::string& name : mSupplicant.names()) {
        say(name, "CTRL-EVENT-SCAN-RESULTS ");
    }
    return "";
}

std::string Headset::changeRegdom(const Regdom& action) {
    if (!mSupplicant.isOpen(action.on)) {
        return "there is no socket " + action.on;
    }
    say(action.on, "CTRL-EVENT-REGDOM-CHANGE init=" + action.init + " type=" + action.type +
                       (action.alpha2.empty() ? "" : " alpha2=" + action.alpha2));
    return "";
}

std::string Headset::startAssociation(const AssocStarted& action) {
    if (std::string error = checkSta(); !error.empty()) {
        return error;
    }
    say(kSta, "CTRL-EVENT-ASSOC-STARTED ifname=" + action.ifname);
    return "";
}

std::string Headset::startGroup(const P2pStart& given) {
    if (mRadio.group || mGroupUp != 0) {
        return "a P2P group is up already";
    }
    removeGroupSocket();  // of an earlier group, if that is still to be done
    P2pStart action = given;
    if (action.ifname.empty()) {
        action.ifname = mP2pDevice.empty() ? "p2p-wlan0-0" : mP2pDevice;
    }
    if (action.on.empty()) {
        action.on = action.ifname;
    } else if (action.on != action.ifname && !mSupplicant.isOpen(action.on)) {
        return "there is no socket " + action.on;
    }
    mRadio.addInterface(action.ifname);
    if (mSupplicant.isOpen(action.ifname)) {
        announceGroup(action);
        return "";
    }
    if (std::string error = mSupplicant.open(action.ifname); !error.empty()) {
        return error;
    }
    mGroupSocket = action.ifname;
    // The interface and its socket are there before the group is up.
    mGroupUp = mLoop.after(action.upAfter, [this, action] {
        mGroupUp = 0;
        announceGroup(action);
    });
    return "";
}

void Headset::announceGroup(const P2pStart& action) {
    mRadio.group =
        P2pGroup{action.ifname, kGroupSsid, action.groupOwner, action.frequencyMHz, action.width};
    mGroupOn = action.on;
    if (action.groupOwner) {
        say(action.ifname, "AP-ENABLED ");
    }
    say(action.ifname, std::string("CTRL-EVENT-CONNECTED - Connection to ") + kGroupAddress +
                           " completed [id=0 id_str=]");
    const std::string secret =
        action.groupOwner ? "passphrase=\"e8SndjtA\"" : "psk=" + std::string(64, '5');
    say(action.on, "P2P-GROUP-STARTED " + action.ifname + (action.groupOwner ? " GO" : " client") +
                       " ssid=\"" + kGroupSsid + "\" freq=" + std::to_string(action.frequencyMHz) +
                       " " + secret + " go_dev_addr=" + kP2pDeviceAddress);
}

std::string Headset::switchGroup(const P2pSwitch& action) {
    if (!mRadio.group) {
        return "no P2P group is up";
    }
    P2pGroup& group = *mRadio.group;
    group.frequencyMHz = action.frequencyMHz;
    group.width = action.width;
    const std::string channel = mainlineChannel(action.frequencyMHz, action.width);
    say(group.ifname, "CTRL-EVENT-STARTED-CHANNEL-SWITCH " + channel);
    say(group.ifname, "CTRL-EVENT-CHANNEL-SWITCH " + channel);
    say(group.ifname, "CTRL-EVENT-CHANNEL-SWITCH " + channel + " dfs=0");
    say(kSta, headsetSwitch(action.frequencyMHz, group.ifname, action.width));
    say(group.ifname, "AP-CSA-FINISHED freq=" + std::to_string(action.frequencyMHz) + " dfs=0");
    return "";
}

std::string Headset::stopGroup(const P2pStop& action) {
    if (!mRadio.group) {
        return "no P2P group is up";
    }
    const P2pGroup group = *mRadio.group;
    mRadio.group.reset();
    say(mGroupOn, "P2P-GROUP-REMOVED " + group.ifname + (group.groupOwner ? " GO" : " client") +
                      " reason=" + action.reason);
    if (group.groupOwner) {
        say(group.ifname, "AP-DISABLED ");
    }
    say(group.ifname, std::string("CTRL-EVENT-DISCONNECTED bssid=") + kGroupAddress +
                          " reason=3 locally_generated=1");
    say(group.ifname, "CTRL-EVENT-DSCP-POLICY clear_all");
    if (!mGroupSocket.empty()) {
        mGroupDown = mLoop.after(action.downAfter, [this] { removeGroupSocket(); });
    }
    return "";
}

void Headset::removeGroupSocket() {
    mLoop.cancel(std::exchange(mGroupDown, 0));
    if (!mGroupSocket.empty() && !mRadio.group) {
        mRadio.removeInterface(mGroupSocket);
        mSupplicant.close(std::exchange(mGroupSocket, ""), true);
    }
}

std::string Headset::peer(const P2pPeer& action) {
    if (!mRadio.group) {
        return "no P2P group is up";
    }
    say(mRadio.group->ifname, (action.joins ? "AP-STA-CONNECTED " : "AP-STA-DISCONNECTED ") +
                                  action.mac + " p2p_dev_addr=42:00:00:00:02:00");
    return "";
}

}  // namespace sim
