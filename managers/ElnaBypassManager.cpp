#include "managers/ElnaBypassManager.h"

#include <string>
#include <utility>

#include "client/CorvidWifiClient.h"
#include "config/CorvidWifiProperties.h"
#include "os/Log.h"

namespace Ursa::OS::Wifi {

ElnaBypassManager::ElnaBypassManager(std::shared_ptr<CorvidWifiClient> client)
    : client_(std::move(client)) {}

bool ElnaBypassManager::setElnaBypass(unsigned mode) {
    if (!Sysprop::corvid_wifi_cmd_elna_bypass_mode(false)) {
        WIFI_LOGE("no match ELNA Bypass command.");
        return false;
    }
    WIFI_LOGI("ELNA Bypass command SET_ELNABYPASS_MODE.");
    return _sendCommandSetElnaBypassMode(mode);
}

bool ElnaBypassManager::_sendCommandSetElnaBypassMode(unsigned mode) {
    const char* ifname = client_->getNl80211Client()->getNetInterfaceName(NetInterfaceType::STA);
    if (ifname == nullptr) {
        WIFI_LOGE("cannot find STA interface");
        return false;
    }
    const std::string command =
        std::string("DRIVER SET_ELNABYPASS_MODE ") + ifname + " " + std::to_string(mode);
    std::string reply;
    const bool sent = client_->sendWpaCtrlCmd(command, reply, NetInterfaceType::STA);
    WIFI_LOGI("cmd:%s reply:%s", command.c_str(), reply.c_str());
    if (sent) {
        mode_ = mode;
    }
    return sent;
}

StateTree ElnaBypassManager::describe() const {
    StateTree state = StateTree::parts();
    state.set("mode", knownOrNothing(mode_));
    return state;
}

}  // namespace Ursa::OS::Wifi
