#pragma once

#include <atomic>
#include <cstdint>
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
     * `value` is the station's share in percent, not checked. Two properties, read at each call,
     * choose the command. Returns whether the supplicant answered it or the kernel accepted it.
     */
    bool setMccTimeAllocation(unsigned value);

    StateTree describe() const override;

  private:
    bool sendAllocation_(unsigned value);
    bool _sendCommandP2pIncreaseBw(unsigned value);
    /** Sends the P2P group's share, 100 - value. Above 100 that wraps, and is sent all the same. */
    bool _sendCommandMccQuota(unsigned value);

    const std::shared_ptr<CorvidWifiClient> client_;
    std::atomic<int64_t> value_{-1};  ///< the share sent last, percent; -1: none
};

}  // namespace Ursa::OS::Wifi
