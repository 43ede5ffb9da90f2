#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "managers/CoexManager.h"
#include "managers/FeatureManager.h"
#include "managers/support/LastCall.h"
#include "os/Moment.h"
#include "os/ValueMutex.h"

namespace Ursa::OS::Wifi {

class CorvidWifiClient;

/**
 * Returns the camera MIPI clock whose harmonics miss a station frequency (MHz): 0 = 384 MHz,
 * 1 = 398 MHz. For frequency -1 returns -1: keep the last clock.
 */
int32_t mipiClockOf(int32_t freq);

/**
 * Sets the camera's MIPI clock through the sensor service, so that its harmonics miss the station's
 * channel. Its actions run on the coexistence dispatcher; each of up to five attempts runs on a
 * worker with a time limit.
 */
class MipiClockManager : public FeatureManager {
  public:
    /** `limit` is the longest wait for one attempt; tests shorten it. */
    explicit MipiClockManager(std::shared_ptr<CorvidWifiClient> client,
                              std::chrono::milliseconds limit = std::chrono::seconds(2));
    /** Waits for the current attempt, `limit` at most, and prevents further ones. */
    ~MipiClockManager() override;

    bool dumpInfo(std::string& out) override;
    StateTree describe() const override;

  private:
    void setCoexActionCallback_();

    void onWifiStaConnected_();
    void onWifiStaDisconnected_(const std::string& event);
    void onWifiStaChannelSwitch_(const std::string& event);

    /** Sends a clock that differs from the last one; -1 sends the last one again. */
    void notifyListener_(int32_t newClock);
    /** Makes one attempt. Returns whether the camera service accepted the clock in time. */
    bool notifySensorService_(int32_t clock);
    static bool notifyCameraProvider_(int32_t clock);

    const std::shared_ptr<CorvidWifiClient> client_;
    const std::chrono::milliseconds limit_;
    /** The clock that the service last accepted; -1 at first. Written on the dispatcher only. */
    std::atomic<int32_t> clock_{-1};
    /** How the attempts of the last notification ended. */
    struct Attempts {
        Moment accepted;
        int failed = 0;
    };
    mutable ValueMutexBase<Attempts, std::mutex> attempts_;
    LastCall lastAttempt_;
    std::atomic<bool> ending_{false};
    std::vector<CoexRegistration> registrations_;  ///< last: no action runs once it has gone
};

}  // namespace Ursa::OS::Wifi
