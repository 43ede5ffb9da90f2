#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "client/CallbackMapRegister.h"
#include "client/NetInterfaceType.h"
#include "client/WifiClientCallback.h"
#include "managers/FeatureManager.h"
#include "managers/PerChainTxPower.h"
#include "managers/StaManager.h"
#include "managers/TxPowerSettings.h"
#include "os/Mutex.h"

namespace Ursa::OS::Wifi {

class CorvidWifiClient;
struct P2pInfo;

// The station's power steps, with the defaults. Rows and columns are tried in this order, so that
// of steps configured equal the earlier wins.
//
//     current    signal                            next
//     20 upper   above -55: 5    above -65: 9      else 20
//      9 middle  below -70: 20   above -55: 5      else 9
//      5 lower   below -70: 20   below -60: 9      else 5
//     other                                        20

/**
 * The station's next power step, in configured units, from the current one and the signal (dBm).
 * The stronger the signal, the less power; each step back needs a signal 5 dB beyond the one that
 * caused the step, so that the power does not flutter.
 */
unsigned nextPowerStep(const TxPowerSettings& settings, unsigned current, int rssi);

/**
 * Sets the transmit power of the station, by the signal, and of the P2P group, by its band.
 * Connected results arrive on StaManager's worker, disconnected ones and P2P events on the listener
 * thread, calls on the HIDL thread.
 */
class TxPowerManager : public FeatureManager {
  public:
    /** `settings` outlives the manager; tests give their own. */
    explicit TxPowerManager(std::shared_ptr<CorvidWifiClient> client,
                            const TxPowerSettings& settings = TxPowerSettings::ofProcess());
    ~TxPowerManager() override;

    /** Gates later commands: all of the station's, and the P2P group's on 2.4 GHz. */
    void toggleFeature(bool enable, NetInterfaceType interfaceType);

    /** Whether the station's steps are followed while hand tracking is on. Returns true. */
    bool updateTxPowerConfig(bool allowed) EXCLUDES(configMutex_);

    /** Passes the group on to P2pManager, if there is one. On the listener thread. */
    void setP2pInfo(P2pInfo&& info);

    bool dumpInfo(std::string& out) override;

  private:
    void setStaCallback_();
    void setP2pCallback_();

    void onStaConnected_(const StaResult& result);
    void onStaDisconnected_(const StaResult& result);
    void onP2pStarted_(const std::string& event);
    void onP2pStopped_(const std::string& event);

    /** Writes `dbm`, in configured units, and returns true only when the step changes. */
    bool calculateDbm_(int rssi, int freq, unsigned& dbm) REQUIRES(handlerMutex_);
    bool setTxPower_(unsigned value, NetInterfaceType interfaceType) REQUIRES(handlerMutex_);

    const std::shared_ptr<CorvidWifiClient> client_;
    const TxPowerSettings& settings_;
    std::atomic<bool> p2pToggle_{true};
    std::atomic<bool> staToggle_{true};
    const bool perChainMode_;
    bool handTrackingAdaptation_ GUARDED_BY(configMutex_) = true;
    int32_t p2pFrequency_ GUARDED_BY(handlerMutex_) = -1;  ///< MHz
    /** What the last successful station command set, in configured units. */
    unsigned lastStaStep_ GUARDED_BY(handlerMutex_) = 0;
    std::atomic<unsigned> staTxPower_{0};  ///< as last put into a command
    std::atomic<unsigned> p2pTxPower_{0};

    /** Held across a handler's command, so that two handlers' power changes cannot interleave. */
    Mutex handlerMutex_ ACQUIRED_BEFORE(configMutex_);
    Mutex configMutex_;
    PerChainTxPower perChain_ GUARDED_BY(handlerMutex_);

    std::unique_ptr<CallbackMapRegister<const StaResult&>> staConnected_;
    std::unique_ptr<CallbackMapRegister<const StaResult&>> staDisconnected_;
    std::unique_ptr<WifiClientCallback> p2pSubscription_;
};

}  // namespace Ursa::OS::Wifi
