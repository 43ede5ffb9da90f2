#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "managers/FeatureManager.h"

namespace Ursa::OS::Wifi {

class CorvidWifiClient;

/** Sets the bypass of the external low-noise amplifier (eLNA) on request, on the HIDL thread. */
class ElnaBypassManager : public FeatureManager {
  public:
    explicit ElnaBypassManager(std::shared_ptr<CorvidWifiClient> client);

    /**
     * `mode` is passed to the driver unchecked. Returns whether the command was answered; false if
     * the property, read at each call, forbids it or there is no station interface.
     */
    bool setElnaBypass(unsigned mode);

    StateTree describe() const override;

  private:
    bool _sendCommandSetElnaBypassMode(unsigned mode);

    const std::shared_ptr<CorvidWifiClient> client_;
    std::atomic<int64_t> mode_{-1};  ///< the mode sent last; -1: none
};

}  // namespace Ursa::OS::Wifi
