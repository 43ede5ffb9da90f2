#pragma once

#include <string>
#include <utility>

#include "client/Nl80211Types.h"

namespace Ursa::OS::Wifi {

/**
 * A private command of the driver family that takes them as text over a vendor command, whose
 * number is 2 by that driver's own convention.
 */
inline Nl80211VendorCmdInfo makePrivateCommand(NetInterfaceType interfaceType,
                                               std::string command) {
    Nl80211VendorCmdInfo info;
    info.interfaceType = interfaceType;
    info.vendorId = kPrivateCommandVendorId;
    info.subcmd = 2;
    info.command = std::move(command);
    return info;
}

}  // namespace Ursa::OS::Wifi
