#pragma once

#include <memory>
#include <string>

#include "client/WifiClientCallback.h"
#include "managers/FeatureManager.h"

namespace Ursa::OS::Wifi {

class CorvidWifiClient;

/**
 * Sends the driver's transmit parameters at each station connection, on the listener thread. They
 * are read from the system properties in the constructor.
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
     * Sends one set. Returns false without a station interface, for an unknown type, and for UL_MU
     * if it was not sent. In AC_AND_UL_MU a failed command is logged and the result stays true.
     */
    bool setDevParams(ParamConfigType type);

    /**
     * Sends the parameters of one access category (0 to 3): frames per A-MPDU and A-MSDU, number of
     * retries, PPDU duration in microseconds. Returns whether the command was answered.
     */
    bool sendCommandSetAcConfig(const std::string& ifname, unsigned ac, unsigned ampduLimit,
                                unsigned amsduLimit, unsigned retryLimit, unsigned ppduDurUs);

    /** Sends the command for 0; returns false without sending for any other value. */
    bool sendCommandSetUlMuConfig(unsigned value);

    StateTree describe() const override;

  private:
    void initParams();

    const std::shared_ptr<CorvidWifiClient> client_;

    ParamConfigType defaultConfig_ = ParamConfigType::AC_AND_UL_MU;
    // Read from the properties, but no driver command takes them yet.
    unsigned sifsBurstDurUs_ = 0;
    unsigned rtsEnable_ = 0;
    unsigned ppduDurOffsetUs_ = 0;

    unsigned ppduDurUs_ = 0;     ///< PPDU duration, microseconds
    unsigned txRetryLimit_ = 0;  ///< transmit retries
    unsigned txAmsduLimit_ = 0;  ///< frames in an A-MSDU
    unsigned txAmpduLimit_ = 0;  ///< frames in an A-MPDU
    unsigned ulMuConfig_ = 0;

    std::unique_ptr<WifiClientCallback> subscription_;  ///< last: no handler runs once it has gone
};

}  // namespace Ursa::OS::Wifi
