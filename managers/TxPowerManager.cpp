#include "managers/TxPowerManager.h"

#include <utility>

#include "client/CorvidWifiClient.h"
#include "client/SupplicantParser.h"
#include "config/CorvidWifiProperties.h"
#include "managers/P2pManager.h"
#include "managers/support/WifiBand.h"
#include "os/Log.h"
#include "os/Trace.h"

namespace Ursa::OS::Wifi {

namespace {

/** The lowest frequency, MHz, at which the station's power follows the signal. */
constexpr int kFirstAdaptedFrequency = 5000;

bool isHandTrackingMode() { return Sysprop::corvid_wifi_txpower_enable_handtracking(false); }

}  // namespace

unsigned nextPowerStep(const TxPowerSettings& settings, unsigned current, int rssi) {
    if (current == settings.upper()) {
        if (rssi > settings.rssiUpper()) {
            return settings.lower();
        }
        return rssi > settings.rssiMiddleLower() ? settings.middle() : settings.upper();
    }
    if (current == settings.middle()) {
        if (rssi < settings.rssiLower()) {
            return settings.upper();
        }
        return rssi > settings.rssiUpper() ? settings.lower() : settings.middle();
    }
    if (current == settings.lower()) {
        if (rssi < settings.rssiLower()) {
            return settings.upper();
        }
        return rssi < settings.rssiMiddleUpper() ? settings.middle() : settings.lower();
    }
    return settings.upper();
}

TxPowerManager::TxPowerManager(std::shared_ptr<CorvidWifiClient> client,
                               const TxPowerSettings& settings)
    : client_(std::move(client)),
      settings_(settings),
      perChainMode_(settings_.perChain()),
      perChain_(client_) {
    perChain_.setParameters(settings_.perChainLowRssiLower(), settings_.perChainLowRssiUpper(),
                            settings_.perChainDefaultDbm0(), settings_.perChainDefaultDbm1(),
                            settings_.perChainLowDbm0(), settings_.perChainLowDbm1());
    if (settings_.staEnabled()) {
        setStaCallback_();
    }
    if (settings_.p2pEnabled()) {
        setP2pCallback_();
    }
}

TxPowerManager::~TxPowerManager() = default;

void TxPowerManager::setStaCallback_() {
    const auto staManager = client_->compositionRoot()->staManager();
    if (staManager == nullptr) {
        return;
    }
    staConnected_ = std::make_unique<CallbackMapRegister<const StaResult&>>(
        staManager->staConnectedCallbacks, client_, "TxPowerManager.onStaConnected",
        [this](const StaResult& result) { onStaConnected_(result); });
    staDisconnected_ = std::make_unique<CallbackMapRegister<const StaResult&>>(
        staManager->staDisconnectedCallbacks, client_, "TxPowerManager.onStaDisconnected",
        [this](const StaResult& result) { onStaDisconnected_(result); });
}

void TxPowerManager::setP2pCallback_() {
    using Type = WifiClientCallbackType;
    constexpr char kStarted[] = "TxPowerManager.onP2pStarted";
    constexpr char kStopped[] = "TxPowerManager.onP2pStopped";
    const auto started = [this](const std::string& event) { onP2pStarted_(event); };
    const auto stopped = [this](const std::string& event) { onP2pStopped_(event); };
    const std::vector<WifiClientCallbackItem> items = {
        {Type::WPA_P2P_GROUP_STARTED, NetInterfaceType::P2P, kStarted, started},
        {Type::WPA_P2P_CSA_FINISHED, NetInterfaceType::P2P, kStarted, started},
        {Type::WPA_P2P_GROUP_REMOVED, NetInterfaceType::P2P, kStopped, stopped},
        {Type::WPA_SOCKET_DISCONNECTED, NetInterfaceType::P2P, kStopped, stopped},
    };
    p2pSubscription_ = std::make_unique<WifiClientCallback>(client_, items);
}

void TxPowerManager::toggleFeature(bool enable, NetInterfaceType interfaceType) {
    if (interfaceType == NetInterfaceType::STA) {
        staToggle_ = enable;
    } else if (interfaceType == NetInterfaceType::P2P) {
        p2pToggle_ = enable;
    }
}

bool TxPowerManager::updateTxPowerConfig(bool allowed) {
    MutexLock lock(configMutex_);
    handTrackingAdaptation_ = allowed;
    return true;
}

void TxPowerManager::setP2pInfo(P2pInfo info) {
    if (const auto p2pManager = client_->compositionRoot()->p2pManager()) {
        p2pManager->setP2pInfo(info);
    }
}

bool TxPowerManager::calculateDbm_(int rssi, int freq, unsigned& dbm) {
    bool adapted = freq >= kFirstAdaptedFrequency;
    if (adapted && isHandTrackingMode()) {
        MutexLock lock(configMutex_);
        adapted = handTrackingAdaptation_;
    }
    const unsigned step = adapted ? nextPowerStep(settings_, dbm, rssi) : settings_.upper();
    const bool changed = step != dbm;
    dbm = step;
    return changed;
}

bool TxPowerManager::setTxPower_(unsigned value, NetInterfaceType interfaceType) {
    if (interfaceType == NetInterfaceType::STA && !staToggle_) {
        return false;
    }
    const unsigned power = settings_.unitIsHalfDbm() ? value >> 1 : value;
    (interfaceType == NetInterfaceType::STA ? staTxPower_ : p2pTxPower_) = power;

    const std::string command = "DRIVER SET_TXPOWER " + std::to_string(power);
    std::string reply;
    const bool sent = client_->sendWpaCtrlCmd(command, reply, interfaceType);
    if (sent) {
        const bool isSta = interfaceType == NetInterfaceType::STA;
        traceCounter(isSta ? "STA power (dBm)" : "P2P power (dBm)", static_cast<int32_t>(power));
    }
    WIFI_LOGI("%s cmd:%s reply:%s", toString(interfaceType), command.c_str(), reply.c_str());
    return sent;
}

void TxPowerManager::onStaConnected_(const StaResult& result) {
    MutexLock lock(handlerMutex_);
    if (perChainMode_) {
        perChain_.update(result.rssi, result.frequency);
        return;
    }
    unsigned candidate = lastStaStep_;
    if (!calculateDbm_(result.rssi, result.frequency, candidate)) {
        return;
    }
    WIFI_LOGI("%s rssi:%d freq:%d", result.event.c_str(), result.rssi, result.frequency);
    if (setTxPower_(candidate, NetInterfaceType::STA)) {
        lastStaStep_ = candidate;  // otherwise the next sample tries again
    }
}

void TxPowerManager::onStaDisconnected_(const StaResult& result) {
    MutexLock lock(handlerMutex_);
    WIFI_LOGI("%s", result.event.c_str());
    if (perChainMode_) {
        perChain_.update(result.rssi, result.frequency);
    } else {
        setTxPower_(settings_.upper(), NetInterfaceType::STA);
        // lastStaStep_ stays: the first sample of the next link is compared with it.
    }
}

void TxPowerManager::onP2pStarted_(const std::string& event) {
    WIFI_LOGI("P2P event(CONNECTED)");
    MutexLock lock(handlerMutex_);
    int frequency = -1;
    if (!parsed([&] { return getInt32ValueByKey(event, "freq=", 0, frequency); })) {
        return;
    }
    WIFI_LOGD("P2P Freq:%d newFreq:%d", p2pFrequency_.load(), frequency);
    if (frequency == p2pFrequency_) {
        return;
    }
    p2pFrequency_ = frequency;
    setP2pInfo({frequency, -1});
    if (frequency >= kFirst5GhzFrequency) {
        setTxPower_(settings_.upper(), NetInterfaceType::P2P);  // also when toggled off
    } else if (p2pToggle_) {
        setTxPower_(settings_.p2p(), NetInterfaceType::P2P);
    }
}

void TxPowerManager::onP2pStopped_(const std::string& event) {
    WIFI_LOGI("P2P event(DISCONNECTED-%s)", event.c_str());
    MutexLock lock(handlerMutex_);
    p2pFrequency_ = -1;
    setP2pInfo({-1, -1});
    setTxPower_(settings_.upper(), NetInterfaceType::P2P);
}

StateTree TxPowerManager::describe() const {
    const auto ifSet = [](unsigned power) { return power == 0 ? StateTree() : StateTree(power); };
    StateTree state = StateTree::parts();
    state.set("mode", perChainMode_ ? "per-chain" : "steps");
    state.set("staToggle", staToggle_.load());
    state.set("p2pToggle", p2pToggle_.load());
    {
        MutexLock lock(configMutex_);
        state.set("handTracking", handTrackingAdaptation_);
    }
    state.set("staStep", ifSet(lastStaStep_));
    state.set("staPower", ifSet(staTxPower_));
    state.set("p2pPower", ifSet(p2pTxPower_));
    state.set("p2pFrequency", knownOrNothing(p2pFrequency_));
    if (perChainMode_) {
        state.set("perChain", perChain_.describe());
    }
    return state;
}

bool TxPowerManager::dumpInfo(std::string& out) {
    if (perChainMode_) {
        MutexLock lock(handlerMutex_);
        out += perChain_.dump("\t");
        return true;
    }
    out += "\tSTA TX Power: " + std::to_string(staTxPower_) + " dbm\n";
    out += "\tP2P TX Power: " + std::to_string(p2pTxPower_) + " dbm\n";
    out += "\tPer Chain Control: " + std::to_string(static_cast<int>(perChainMode_)) + "\n";
    return true;
}

}  // namespace Ursa::OS::Wifi
