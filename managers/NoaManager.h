#pragma once

#include <memory>
#include <optional>
#include <string>

#include "client/WifiClientCallback.h"
#include "managers/FeatureManager.h"
#include "os/Mutex.h"
#include "os/ValueMutex.h"

namespace Ursa::OS::Wifi {

class CorvidWifiClient;

/**
 * Sets the P2P group owner's notice of absence (HIDL thread), and again after each station scan
 * (listener thread), because the driver drops it while scanning.
 */
class NoaManager : public FeatureManager {
  public:
    explicit NoaManager(std::shared_ptr<CorvidWifiClient> client);
    ~NoaManager() override;

    /**
     * `count` is 255 for a repeating schedule or 0 to end it; any other is refused and the stored
     * schedule stays. The values are in the driver's own units. An accepted schedule is stored and
     * sent again after each scan, even if it cannot be sent now. Returns whether it was sent.
     */
    bool setP2pNoa(unsigned count, unsigned noaValue1, unsigned noaValue2);

    StateTree describe() const override;

  private:
    void onStaScanEnded_(const std::string& event);

    const std::shared_ptr<CorvidWifiClient> client_;
    /** Held across the command, so that the driver's schedule matches the stored one. */
    RecursiveMutex mutex_;

    struct Schedule {
        unsigned count = 0;
        unsigned value1 = 0;
        unsigned value2 = 0;
    };
    /** The last accepted schedule, if any. Written with mutex_ held. */
    mutable ValueMutexBase<std::optional<Schedule>, std::mutex> schedule_;

    std::unique_ptr<WifiClientCallback> subscription_;  ///< last: no handler runs once it has gone
};

}  // namespace Ursa::OS::Wifi
