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

// The station's power steps, with the default values. Rows and columns are checked in this order:
// of two steps configured to the same value, the upper row applies.
//
//     current    signal                            next
//     20 upper   above -55: 5    above -65: 9      else 20
//      9 middle  below -70: 20   above -55: 5      else 9
//      5 lower   below -70: 20   below -60: 9      else 5
//     other                                        20

/**
 * Returns the station's next power step, in configured units, from the current one and the signal
 * (dBm): the stronger the signal, the less power. With the default thresholds each step up and its
 * step back down are 5 dB or more apart (hysteresis).
 */
unsigned nextPowerStep(const TxPowerSettings& settings, unsigned current, int rssi);

/**
 * Sets the transmit power of the station by its signal, and of the P2P group by its band. Connected
 * results arrive on StaManager's worker, disconnected results and P2P events on the listener
 * thread, calls on the HIDL thread.
 */
class TxPowerManager : public FeatureManager {
  public:
    /** `settings` must outlive the manager; tests pass their own. */
    explicit TxPowerManager(std::shared_ptr<CorvidWifiClient> client,
                            const TxPowerSettings& settings = TxPowerSettings::ofProcess());
    ~TxPowerManager() override;

    /** Enables or disables later commands: for STA all, for P2P those on 2.4 GHz. Any thread. */
    void toggleFeature(bool enable, NetInterfaceType interfaceType);

    /**
     * Allows or forbids the station's power steps while txpower.enable.handtracking is set; if
     * forbidden, the upper step applies. Always returns true. Any thread.
     */
    bool updateTxPowerConfig(bool allowed) EXCLUDES(configMutex_);

    /** Passes the group to P2pManager, if there is one. Any thread. */
    void setP2pInfo(P2pInfo info);

    bool dumpInfo(std::string& out) override;
    /** For describe(), without handlerMutex_: PerChainTxPower allows that. */
    StateTree describe() const override EXCLUDES(configMutex_) NO_THREAD_SAFETY_ANALYSIS;

  private:
    void setStaCallback_();
    void setP2pCallback_();

    void onStaConnected_(const StaResult& result);
    void onStaDisconnected_(const StaResult& result);
    void onP2pStarted_(const std::string& event);
    void onP2pStopped_(const std::string& event);

    /**
     * Replaces the current step `dbm` (configured units) by the next one for this signal (dBm) and
     * frequency (MHz). Returns whether it changed.
     */
    bool calculateDbm_(int rssi, int freq, unsigned& dbm) REQUIRES(handlerMutex_);
    /** `value` is in configured units. Returns whether the command was answered. */
    bool setTxPower_(unsigned value, NetInterfaceType interfaceType) REQUIRES(handlerMutex_);

    const std::shared_ptr<CorvidWifiClient> client_;
    const TxPowerSettings& settings_;
    std::atomic<bool> p2pToggle_{true};
    std::atomic<bool> staToggle_{true};
    const bool perChainMode_;
    bool handTrackingAdaptation_ GUARDED_BY(configMutex_) = true;
    std::atomic<int32_t> p2pFrequency_{-1};  ///< MHz
    /** The step of the last successful command from a sample, in configured units. */
    std::atomic<unsigned> lastStaStep_{0};
    std::atomic<unsigned> staTxPower_{0};  ///< dBm, as in the last command, for the dump
    std::atomic<unsigned> p2pTxPower_{0};  ///< likewise

    /** Held across a handler's command, so that two handlers' power changes cannot interleave. */
    Mutex handlerMutex_ ACQUIRED_BEFORE(configMutex_);
    mutable Mutex configMutex_;
    PerChainTxPower perChain_ GUARDED_BY(handlerMutex_);

    // Last: destroyed first, so that no handler runs while the rest is destroyed.
    std::unique_ptr<CallbackMapRegister<const StaResult&>> staConnected_;
    std::unique_ptr<CallbackMapRegister<const StaResult&>> staDisconnected_;
    std::unique_ptr<WifiClientCallback> p2pSubscription_;
};

}  // namespace Ursa::OS::Wifi
