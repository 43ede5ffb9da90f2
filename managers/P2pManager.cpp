#include "managers/P2pManager.h"

#include <utility>

#include "os/Log.h"

namespace Ursa::OS::Wifi {

namespace {

const char* toString(P2pDeviceType type) {
    switch (type) {
        case P2pDeviceType::NONE:
            return "NONE";
        case P2pDeviceType::HALBERD:
            return "HALBERD";
        case P2pDeviceType::MIRACAST:
            return "MIRACAST";
        case P2pDeviceType::UNKNOWN:
            break;
    }
    return "UNKNOWN";
}

}  // namespace

P2pManager::P2pManager(std::shared_ptr<CorvidWifiClient> client) : client_(std::move(client)) {}

void P2pManager::getP2pInfo(P2pInfo& info) const { info = info_; }

void P2pManager::setP2pInfo(P2pInfo info) { info_ = info; }

bool P2pManager::isP2pPairedDeviceType(P2pDeviceType type) const {
    return pairedDeviceType_ == type;
}

bool P2pManager::setP2pPairedDeviceType(P2pDeviceType type) {
    if (type > P2pDeviceType::UNKNOWN) {
        return false;
    }
    pairedDeviceType_ = type;
    WIFI_LOGI("set p2p paired device to %s", toString(type));
    return true;
}

StateTree P2pManager::describe() const {
    const P2pInfo info = info_;
    StateTree state = StateTree::parts();
    state.set("frequency", knownOrNothing(info.frequency));
    state.set("bandwidth", knownOrNothing(info.bandwidth));
    state.set("pairedDevice", toString(pairedDeviceType_));
    return state;
}

bool P2pManager::dumpInfo(std::string& out) {
    const P2pInfo info = info_;
    out += "\tP2P frequency: " + std::to_string(info.frequency) + "\n";
    out += "\tP2P bandwidth: " + std::to_string(info.bandwidth) + "\n";
    return true;
}

}  // namespace Ursa::OS::Wifi
