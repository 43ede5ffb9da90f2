#pragma once

#include <memory>
#include <string>

#include "client/WifiClientCallback.h"
#include "managers/FeatureManager.h"

namespace Ursa::OS::Wifi {

class CorvidWifiClient;

/**
 * Sends the driver's transmit parameters at each connection of the station, on the listener thread.
 * They are read from the system properties when the manager is built.
 */
class DevParamsManager : public FeatureManager {
  public:
    /** Which parameters to send. */
    enum class ParamConfigType {
        AC_AND_UL_MU = 0,  ///< every access category, then uplink multi-user
        UL_MU = 1,         ///< uplink multi-user only
    };

    explicit DevParamsManager(std::shared_ptr<CorvidWifiClient> client);
    ~DevParamsManager() override;

    /**
     * Sends one set. Returns false when there is no station interface, for an unknown type, and for
     * UL_MU when it was not sent; failures inside AC_AND_UL_MU are logged only.
     */
    bool setDevParams(ParamConfigType type);

    /** One access category (0 to 3). Returns whether the supplicant took the command. */
    bool sendCommandSetAcConfig(const std::string& ifname, unsigned ac, unsigned ampduLimit,
                                unsigned amsduLimit, unsigned retryLimit, unsigned ppduDurUs);

    /** Sends 0 only; for any other value it returns false and sends nothing. */
    bool sendCommandSetUlMuConfig(unsigned value);

  private:
    void initParams();

    const std::shared_ptr<CorvidWifiClient> client_;
    std::unique_ptr<WifiClientCallback> subscription_;

    ParamConfigType defaultConfig_ = ParamConfigType::AC_AND_UL_MU;
    // Read and kept, but no command of the driver takes them yet.
    unsigned sifsBurstDurUs_ = 0;
    unsigned rtsEnable_ = 0;
    unsigned ppduDurOffsetUs_ = 0;

    unsigned ppduDurUs_ = 0;     ///< PPDU duration, microseconds
    unsigned txRetryLimit_ = 0;  ///< transmit retries
    unsigned txAmsduLimit_ = 0;  ///< frames in an A-MSDU
    unsigned txAmpduLimit_ = 0;  ///< frames in an A-MPDU
    unsigned ulMuConfig_ = 0;
};

}  // namespace Ursa::OS::Wifi
