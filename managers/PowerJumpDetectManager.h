#pragma once

#include <memory>

#include "client/CallbackMapRegister.h"
#include "config/ReadOnce.h"
#include "managers/FeatureManager.h"
#include "managers/StaManager.h"
#include "os/Mutex.h"

namespace Ursa::OS::Wifi {

class CorvidWifiClient;

/**
 * Keeps the driver's power-surge detection on while the station is on 5 GHz or has a strong signal,
 * and off on a weak 2.4 GHz link and without one. Fed by StaManager on its threads.
 */
class PowerJumpDetectManager : public FeatureManager {
  public:
    enum class State { UNSET = 0, ON = 1, OFF = 2 };

    /** `rssiThreshold` (dBm) outlives the manager; tests give their own. */
    explicit PowerJumpDetectManager(std::shared_ptr<CorvidWifiClient> client,
                                    const ReadOnce<int>& rssiThreshold = rssiThresholdOfProcess());
    ~PowerJumpDetectManager() override;

    /** The configured threshold (dBm); what was read once holds until the process ends. */
    static const ReadOnce<int>& rssiThresholdOfProcess();

  private:
    void setCallback_();
    void onStaConnected_(const StaResult& result);
    void onStaDisconnected_(const StaResult& result);
    /** Sends a change; one that can't be sent is tried again at the next result. */
    void setPowerJumpDetect_(State state) REQUIRES(handlerMutex_);

    const std::shared_ptr<CorvidWifiClient> client_;
    const ReadOnce<int>& rssiThreshold_;
    /** Held across a handler's command, so that the state matches the last command. */
    Mutex handlerMutex_;
    std::unique_ptr<CallbackMapRegister<const StaResult&>> staConnected_;
    std::unique_ptr<CallbackMapRegister<const StaResult&>> staDisconnected_;
    State state_ GUARDED_BY(handlerMutex_) = State::UNSET;
};

}  // namespace Ursa::OS::Wifi
