#include "managers/DevParamsManager.h"

#include <array>
#include <utility>
#include <vector>

#include "client/CorvidWifiClient.h"
#include "config/CorvidWifiProperties.h"
#include "os/Log.h"

namespace Ursa::OS::Wifi {

namespace {

/** Indexed by access category, in the order of sending. */
constexpr std::array kAccessCategories = {"AC_BE", "AC_BK", "AC_VI", "AC_VO"};

}  // namespace

DevParamsManager::DevParamsManager(std::shared_ptr<CorvidWifiClient> client)
    : client_(std::move(client)) {
    initParams();
    const std::vector<WifiClientCallbackItem> items = {
        {WifiClientCallbackType::WPA_STA_CONNECTED, NetInterfaceType::STA,
         "DevParamsManager.onStaConnected",
         [this](const std::string& /*event*/) {
             WIFI_LOGD("STA event(CONNECTED)");
             setDevParams(defaultConfig_);
         }},
    };
    subscription_ = std::make_unique<WifiClientCallback>(client_, items);
}

DevParamsManager::~DevParamsManager() = default;

void DevParamsManager::initParams() {
    using namespace Sysprop;
    defaultConfig_ = static_cast<ParamConfigType>(corvid_wifi_devparams_default_config(false));
    sifsBurstDurUs_ = static_cast<unsigned>(corvid_wifi_devparams_sifs_burst_dur_us(13000));
    rtsEnable_ = static_cast<unsigned>(corvid_wifi_devparams_rts_enable(1));
    ppduDurOffsetUs_ = static_cast<unsigned>(corvid_wifi_devparams_ppdu_dur_offset_us(0));
    ppduDurUs_ = static_cast<unsigned>(corvid_wifi_devparams_ppdu_dur_us(5484));
    txRetryLimit_ = static_cast<unsigned>(corvid_wifi_devparams_tx_retry_limit(7));
    txAmsduLimit_ = static_cast<unsigned>(corvid_wifi_devparams_tx_amsdu_limit(4));
    txAmpduLimit_ = static_cast<unsigned>(corvid_wifi_devparams_tx_ampdu_limit(64));
    ulMuConfig_ = static_cast<unsigned>(corvid_wifi_devparams_ul_mu_config(0));
}

StateTree DevParamsManager::describe() const {
    StateTree state = StateTree::parts();
    state.set("config", static_cast<int>(defaultConfig_));
    state.set("ampduLimit", txAmpduLimit_);
    state.set("amsduLimit", txAmsduLimit_);
    state.set("retryLimit", txRetryLimit_);
    state.set("ppduDurUs", ppduDurUs_);
    state.set("ulMuConfig", ulMuConfig_);
    return state;
}

bool DevParamsManager::setDevParams(ParamConfigType type) {
    const char* ifname = client_->getNl80211Client()->getNetInterfaceName(NetInterfaceType::STA);
    if (ifname == nullptr) {
        WIFI_LOGE("cannot find STA interface");
        return false;
    }
    WIFI_LOGD("setDevParams paramConfig:%d", static_cast<int>(type));
    switch (type) {
        case ParamConfigType::AC_AND_UL_MU:
            for (unsigned ac = 0; ac < kAccessCategories.size(); ++ac) {
                if (!sendCommandSetAcConfig(ifname, ac, txAmpduLimit_, txAmsduLimit_, txRetryLimit_,
                                            ppduDurUs_)) {
                    WIFI_LOGE("SET_AC_CONFIG failure (%s)", kAccessCategories[ac]);
                }
            }
            sendCommandSetUlMuConfig(ulMuConfig_);
            return true;
        case ParamConfigType::UL_MU:
            return sendCommandSetUlMuConfig(ulMuConfig_);
    }
    WIFI_LOGE("Unsupported parameter config type %d.", static_cast<int>(type));
    return false;
}

bool DevParamsManager::sendCommandSetAcConfig(const std::string& ifname, unsigned ac,
                                              unsigned ampduLimit, unsigned amsduLimit,
                                              unsigned retryLimit, unsigned ppduDurUs) {
    // Two blanks before the 0: deployed drivers are sent exactly this text.
    const std::string command =
        "DRIVER SET_AC_CONFIG " + std::to_string(ac) + " 1 " + std::to_string(ampduLimit) +
        " 65535 " + " 0 " + std::to_string(amsduLimit) + " 65535 " + std::to_string(retryLimit) +
        " " + std::to_string(ppduDurUs) + " " + ifname;
    std::string reply;
    return client_->sendWpaCtrlCmd(command, reply, NetInterfaceType::STA);
}

bool DevParamsManager::sendCommandSetUlMuConfig(unsigned value) {
    if (value != 0) {
        return false;
    }
    std::string reply;
    return client_->sendWpaCtrlCmd("DRIVER SET_UL_MU_CONFIG 0", reply, NetInterfaceType::STA);
}

}  // namespace Ursa::OS::Wifi
