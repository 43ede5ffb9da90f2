#pragma once

#include <cstdint>

namespace Ursa::OS::Wifi {

/**
 * The supplicant events that managers can subscribe to. A subscriber receives the event's text
 * after its prefix; for WPA_SOCKET_DISCONNECTED it receives "sockettype=STA" or "sockettype=P2P".
 */
enum class WifiClientCallbackType : int32_t {
    WPA_STA_SCAN_RESULTS = 0,     ///< "CTRL-EVENT-SCAN-RESULTS ", STA socket
    WPA_STA_CHANNEL_SWITCH = 1,   ///< "CTRL-EVENT-CHANNEL-SWITCH ", STA socket
    WPA_STA_ASSOC_STARTED = 2,    ///< "CTRL-EVENT-ASSOC-STARTED ", STA socket
    WPA_STA_CONNECTED = 3,        ///< "CTRL-EVENT-CONNECTED ", STA socket
    WPA_STA_DISCONNECTED = 4,     ///< "CTRL-EVENT-DISCONNECTED ", STA socket
    WPA_SOCKET_DISCONNECTED = 5,  ///< connections closed or not opened; repeats while retrying
    WPA_P2P_CSA_FINISHED = 6,     ///< "AP-CSA-FINISHED ", P2P socket
    WPA_P2P_GROUP_REMOVED = 7,    ///< "P2P-GROUP-REMOVED ", P2P socket
    WPA_P2P_GROUP_STARTED = 8,    ///< "P2P-GROUP-STARTED ", P2P socket
    WPA_REGDOM_CHANGE = 9,        ///< "CTRL-EVENT-REGDOM-CHANGE ", either socket
};

constexpr int kWifiClientCallbackTypeCount = 10;

}  // namespace Ursa::OS::Wifi
