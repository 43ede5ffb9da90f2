#pragma once

#include <atomic>
#include <memory>

#include "client/CallbackMapRegister.h"
#include "config/ReadOnce.h"
#include "managers/FeatureManager.h"
#include "managers/StaManager.h"
#include "os/Mutex.h"

namespace Ursa::OS::Wifi {

class CorvidWifiClient;

/**
 * Switches the driver's power-surge detection on while the station is on 5 GHz or has a strong
 * signal, and off on a weak 2.4 GHz link or without a link. Results arrive from StaManager, on its
 * worker or on the listener thread.
 */
class PowerJumpDetectManager : public FeatureManager {
  public:
    enum class State { UNSET = 0, ON = 1, OFF = 2 };

    /** `rssiThreshold` (dBm) outlives the manager; tests give their own. */
    explicit PowerJumpDetectManager(std::shared_ptr<CorvidWifiClient> client,
                                    const ReadOnce<int>& rssiThreshold = rssiThresholdOfProcess());
    ~PowerJumpDetectManager() override;

    /** The configured threshold (dBm), read once per process. */
    static const ReadOnce<int>& rssiThresholdOfProcess();

    StateTree describe() const override;

  private:
    void setCallback_();
    void onStaConnected_(const StaResult& result);
    void onStaDisconnected_(const StaResult& result);
    /** Sends `state` if it differs; if that fails, the next result tries again. */
    void setPowerJumpDetect_(State state) REQUIRES(handlerMutex_);

    const std::shared_ptr<CorvidWifiClient> client_;
    const ReadOnce<int>& rssiThreshold_;
    /** Held across a handler's command, so that the state matches the last command. */
    Mutex handlerMutex_;
    std::atomic<State> state_{State::UNSET};  ///< written with handlerMutex_ held

    // Last: destroyed first, so that no handler runs while the rest is destroyed.
    std::unique_ptr<CallbackMapRegister<const StaResult&>> staConnected_;
    std::unique_ptr<CallbackMapRegister<const StaResult&>> staDisconnected_;
};

}  // namespace Ursa::OS::Wifi
