#include "managers/MccTimeManager.h"

#include <cstdint>
#include <string>
#include <utility>

#include "client/CorvidWifiClient.h"
#include "config/CorvidWifiProperties.h"
#include "managers/support/PrivateCommand.h"
#include "os/Log.h"

namespace Ursa::OS::Wifi {

MccTimeManager::MccTimeManager(std::shared_ptr<CorvidWifiClient> client)
    : client_(std::move(client)) {}

bool MccTimeManager::setMccTimeAllocation(unsigned value) {
    const bool sent = sendAllocation_(value);
    if (sent) {
        value_ = value;
    }
    return sent;
}

StateTree MccTimeManager::describe() const {
    StateTree state = StateTree::parts();
    state.set("value", knownOrNothing(value_));
    return state;
}

bool MccTimeManager::sendAllocation_(unsigned value) {
    if (Sysprop::corvid_wifi_cmd_mcc_p2p_increase_bw(false)) {
        WIFI_LOGI("MCC allocation command P2P_INCREASE_BW.");
        return _sendCommandP2pIncreaseBw(value);
    }
    if (Sysprop::corvid_wifi_cmd_mcc_quota(false)) {
        WIFI_LOGI("MCC allocation command MCC_QUOTA.");
        return _sendCommandMccQuota(value);
    }
    WIFI_LOGE("no match MCC Allocation command.");
    return false;
}

bool MccTimeManager::_sendCommandP2pIncreaseBw(unsigned value) {
    auto info =
        makePrivateCommand(NetInterfaceType::STA, "P2P_INCREASE_BW " + std::to_string(value));
    WIFI_LOGI("%s", info.command.c_str());
    return client_->sendVendorNlCmd(info);
}

bool MccTimeManager::_sendCommandMccQuota(unsigned value) {
    const char* ifname = client_->getNl80211Client()->getNetInterfaceName(NetInterfaceType::P2P);
    if (ifname == nullptr) {
        WIFI_LOGE("cannot find P2P interface");
        return false;
    }
    // Wraps above 100, by a conversion: an image ends a process whose subtraction overflows.
    const auto rest = static_cast<unsigned>(int64_t{100} - value);
    const std::string command =
        std::string("DRIVER MCC_QUOTA set iface ") + ifname + " quota " + std::to_string(rest);
    std::string reply;
    const bool sent = client_->sendWpaCtrlCmd(command, reply, NetInterfaceType::STA);
    WIFI_LOGI("cmd:%s reply:%s", command.c_str(), reply.c_str());
    return sent;
}

}  // namespace Ursa::OS::Wifi
