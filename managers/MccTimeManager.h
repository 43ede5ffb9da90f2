#pragma once

#include <memory>

#include "managers/FeatureManager.h"

namespace Ursa::OS::Wifi {

class CorvidWifiClient;

/**
 * Divides airtime between the station and the P2P group when both share the radio (multi-channel
 * concurrency). On the HIDL thread.
 */
class MccTimeManager : public FeatureManager {
  public:
    explicit MccTimeManager(std::shared_ptr<CorvidWifiClient> client);

    /**
     * `value` is the station's share in percent, passed on without a check. Which of the two
     * commands is sent depends on properties read at each call. Returns whether it was sent.
     */
    bool setMccTimeAllocation(unsigned value);

  private:
    bool _sendCommandP2pIncreaseBw(unsigned value);
    /** The P2P group gets 100 - value, which wraps above 100: the driver is sent that number. */
    bool _sendCommandMccQuota(unsigned value);

    const std::shared_ptr<CorvidWifiClient> client_;
};

}  // namespace Ursa::OS::Wifi
