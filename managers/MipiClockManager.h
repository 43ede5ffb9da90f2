#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "managers/CoexManager.h"
#include "managers/FeatureManager.h"

namespace Ursa::OS::Wifi {

class CorvidWifiClient;

/**
 * The camera MIPI clock whose harmonics stay clear of a station frequency (MHz): 0 = 384 MHz,
 * 1 = 398 MHz; -1, keep the last clock, for -1.
 */
int32_t mipiClockOf(int32_t freq);

/**
 * Hands the camera service the MIPI clock that suits the station's channel. Its actions run on the
 * coexistence dispatcher; each call of the service on a worker with a time limit, up to five times.
 */
class MipiClockManager : public FeatureManager {
  public:
    /** `limit` is the longest that one call is waited for; tests shorten it. */
    explicit MipiClockManager(std::shared_ptr<CorvidWifiClient> client,
                              std::chrono::milliseconds limit = std::chrono::seconds(2));
    /** Waits for the attempt under way, so `limit` at most, and lets no other begin. */
    ~MipiClockManager() override;

    bool dumpInfo(std::string& out) override;

  private:
    void setCoexActionCallback_();

    void onWifiStaConnected_();
    void onWifiStaDisconnected_(const std::string& event);
    void onWifiStaChannelSwitch_(const std::string& event);

    /** Returns true when the camera service took a clock; -1 sends it the last one again. */
    bool notifyListener_(int32_t newClock);
    bool notifySensorService_(int32_t clock);
    static bool notifyCameraProvider_(int32_t clock);

    const std::shared_ptr<CorvidWifiClient> client_;
    const std::chrono::milliseconds limit_;
    /** What the camera service last accepted; -1 at first. Written on the dispatcher only. */
    std::atomic<int32_t> clock_{-1};
    std::atomic<bool> ending_{false};
    std::vector<CoexRegistration> registrations_;  ///< last: no action runs once it has gone
};

}  // namespace Ursa::OS::Wifi
