#pragma once

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

  private:
    bool _sendCommandSetElnaBypassMode(unsigned mode);

    const std::shared_ptr<CorvidWifiClient> client_;
};

}  // namespace Ursa::OS::Wifi
