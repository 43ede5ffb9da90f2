#pragma once

#include <cstdint>

namespace Ursa::OS::Wifi {

/** The two kinds of interface the daemon follows; each has a supplicant socket of its own. */
enum class NetInterfaceType : int32_t {
    STA = 0,  ///< the station, "wlan0"
    P2P = 1,  ///< the peer-to-peer group, "p2p0" or "p2p-wlan0-N"
};

/** "STA" or "P2P"; "UNKNOWN" for any other value. */
constexpr const char* toString(NetInterfaceType type) {
    switch (type) {
        case NetInterfaceType::STA:
            return "STA";
        case NetInterfaceType::P2P:
            return "P2P";
    }
    return "UNKNOWN";
}

}  // namespace Ursa::OS::Wifi
