#pragma once

#include <string>
#include <utility>

#include "client/Nl80211Types.h"

namespace Ursa::OS::Wifi {

/** A vendor command that carries a private command as text; its subcommand is 2 in that driver. */
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
