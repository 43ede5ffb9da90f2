#include "managers/TxChainManager.h"

#include <array>
#include <cstdint>
#include <utility>
#include <vector>

#include "client/CorvidWifiClient.h"
#include "config/CorvidWifiProperties.h"
#include "os/Log.h"

namespace Ursa::OS::Wifi {

namespace {

// The driver's OUI, its vendor command that sets chains, and the attributes that carry the number
// of chains, in the order that the driver expects.
constexpr uint32_t kVendorId = 0x001374;
constexpr uint32_t kSetChains = 74;
constexpr std::array<uint32_t, 3> kChainAttributes = {73, 74, 70};

}  // namespace

TxChainManager::TxChainManager(std::shared_ptr<CorvidWifiClient> client)
    : client_(std::move(client)) {
    if (!Sysprop::corvid_wifi_txchain_enable_p2p(false)) {
        return;
    }
    const std::vector<WifiClientCallbackItem> items = {
        {WifiClientCallbackType::WPA_P2P_GROUP_STARTED, NetInterfaceType::P2P,
         "TxChainManager.onP2pStarted", [this](const std::string& /*event*/) { onP2pStarted_(); }},
    };
    subscription_ = std::make_unique<WifiClientCallback>(client_, items);
}

TxChainManager::~TxChainManager() = default;

void TxChainManager::toggleFeature(bool enable) { enabled_ = enable; }

void TxChainManager::onP2pStarted_() {
    WIFI_LOGI("P2P event(CONNECTED)");
    if (enabled_ && Sysprop::corvid_wifi_txchain_qualcomm(false)) {
        setP2pTxChainQcom_(1);
    }
}

void TxChainManager::setP2pTxChainQcom_(int nTx) {
    const auto count = static_cast<uint8_t>(nTx);
    Nl80211VendorCmdInfo info;
    info.interfaceType = NetInterfaceType::P2P;
    info.vendorId = kVendorId;
    info.subcmd = kSetChains;
    for (const uint32_t attribute : kChainAttributes) {
        info.attributes.push_back({attribute, count});
    }
    const bool sent = client_->sendVendorNlCmd(info);
    WIFI_LOGI("setTxChain nTx=%d %s", nTx, sent ? "success" : "fail");
    if (sent) {
        chains_ = nTx;
    }
}

StateTree TxChainManager::describe() const {
    StateTree state = StateTree::parts();
    state.set("toggle", enabled_.load());
    state.set("chains", knownOrNothing(chains_));
    return state;
}

}  // namespace Ursa::OS::Wifi
