#pragma once

#include <memory>
#include <string>

#include "client/WifiClientCallback.h"
#include "managers/FeatureManager.h"

namespace Ursa::OS::Wifi {

class CorvidWifiClient;

/** Logs the station's connections and channel switches, on the listener thread. */
class TelemetryManager : public FeatureManager {
  public:
    explicit TelemetryManager(std::shared_ptr<CorvidWifiClient> client);
    ~TelemetryManager() override;

  private:
    const std::shared_ptr<CorvidWifiClient> client_;
    std::unique_ptr<WifiClientCallback> subscription_;
};

}  // namespace Ursa::OS::Wifi
