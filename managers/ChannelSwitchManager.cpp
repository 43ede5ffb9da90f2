#include "managers/ChannelSwitchManager.h"

#include <algorithm>
#include <sstream>
#include <utility>
#include <vector>

#include "client/CorvidWifiClient.h"
#include "config/CorvidWifiProperties.h"
#include "managers/ChannelSwitchCommand.h"
#include "managers/P2pManager.h"
#include "managers/support/PrivateCommand.h"
#include "os/Log.h"

namespace Ursa::OS::Wifi {

ChannelSwitchManager::ChannelSwitchManager(std::shared_ptr<CorvidWifiClient> client)
    : client_(std::move(client)) {
    const std::vector<WifiClientCallbackItem> items = {
        {WifiClientCallbackType::WPA_STA_CHANNEL_SWITCH, NetInterfaceType::STA,
         "ChannelSwitchManager.onChannelSwitch",
         [this](const std::string& event) {
             MutexLock lock(eventMutex_);
             channelSwitchEventHandler_(event);
         }},
    };
    subscription_ = std::make_unique<WifiClientCallback>(client_, items);
}

ChannelSwitchManager::~ChannelSwitchManager() = default;

bool ChannelSwitchManager::linkChannelSwitchCallback(Listener& listener) {
    if (!listener_.link(listener)) {
        WIFI_LOGE("callback exists => cannot link new one");
        return false;
    }
    return true;
}

void ChannelSwitchManager::unlinkChannelSwitchCallback() { listener_.unlink(); }

bool ChannelSwitchManager::startCsa(unsigned channel, unsigned bandwidth) {
    RecursiveMutexLock lock(csaMutex_);
    if (Sysprop::corvid_wifi_cmd_cs_p2p_ecsa(false)) {
        return sendCommandCsP2pEcsa_(channel, bandwidth);
    }
    if (Sysprop::corvid_wifi_cmd_cs_p2p_corvid(false)) {
        return sendCommandCsP2pCorvid_(channel, bandwidth);
    }
    WIFI_LOGE("no match channel switch command.");
    return false;
}

StateTree ChannelSwitchManager::describe() const {
    StateTree state = StateTree::parts();
    for (const auto& [name, type] :
         {std::pair("sta", NetInterfaceType::STA), std::pair("p2p", NetInterfaceType::P2P)}) {
        const int frequency = frequencies_[static_cast<size_t>(type)];
        state.set(name, StateTree::parts())
            .set("frequency", frequency == 0 ? StateTree() : StateTree(frequency));
    }
    return state;
}

bool ChannelSwitchManager::sendCommandCsP2pEcsa_(unsigned channel, unsigned bandwidth) {
    WIFI_LOGD("startCsa [BRCM] (%u, %u)", channel, bandwidth);
    const std::string text =
        "P2P_ECSA " + std::to_string(channel) + " " + std::to_string(bandwidth);
    auto info = makePrivateCommand(NetInterfaceType::P2P, text);
    return client_->sendVendorNlCmd(info);
}

bool ChannelSwitchManager::sendCommandCsP2pCorvid_(unsigned channel, unsigned bandwidth) {
    WIFI_LOGD("startCsa [QC] (%u, %u)", channel, bandwidth);
    ChannelSwitchCommand command;
    if (!ChannelSwitchCommand::fromFrequencyAndBandwidth(getFrequencyFromChannel(channel),
                                                         bandwidth, command)) {
        return false;
    }
    std::ostringstream text;
    text << command;
    std::string reply;
    const bool sent = client_->sendWpaCtrlCmd(text.str(), reply, NetInterfaceType::STA);
    if (!sent || reply.rfind("SUCCESS", 0) != 0) {
        WIFI_LOGE("startCsa failed");
        return false;
    }
    WIFI_LOGD("startCsa success");
    return true;
}

void ChannelSwitchManager::channelSwitchEventHandler_(const std::string& event) {
    WIFI_LOGD("channelSwitchEventHandler_(%s)", event.c_str());
    ChannelSwitchResult result = {};
    if (!getChannelSwitchResult(event.c_str(), result)) {
        WIFI_LOGE("invalid channel switch event");
        return;
    }
    const NetInterfaceType interfaceType = result.interfaceType;
    if (interfaceType != NetInterfaceType::STA && interfaceType != NetInterfaceType::P2P) {
        WIFI_LOGE("unknown interface");
        return;
    }
    WIFI_LOGD("[%s] freq:%d width:%d", toString(interfaceType), result.frequency, result.width);
    frequencies_[static_cast<size_t>(interfaceType)] = std::max(result.frequency, 0);
    if (interfaceType == NetInterfaceType::P2P) {
        WIFI_LOGD("updating P2P info");
        if (const auto p2pManager = client_->compositionRoot()->p2pManager()) {
            p2pManager->setP2pInfo({result.frequency, -1});
        }
    }
    const auto listener = listener_.lock();
    if (*listener != nullptr) {
        WIFI_LOGD("notifying listeners");
        const Listener notify = *listener;  // it may unlink itself
        notify(result);
    }
}

}  // namespace Ursa::OS::Wifi
