#include "client/WpaEvents.h"

#include <array>
#include <cstddef>

#include "client/BssEventFilter.h"
#include "client/StartsWith.h"

namespace Ursa::OS::Wifi {

namespace {

/** An event's prefix, with the trailing blank, and its subscribers' type. */
struct EventKind {
    std::string_view prefix;
    WifiClientCallbackType type;
};

constexpr std::string_view kTerminating = "CTRL-EVENT-TERMINATING ";

constexpr std::array<EventKind, 6> kStaEvents = {{
    {"CTRL-EVENT-SCAN-RESULTS ", WifiClientCallbackType::WPA_STA_SCAN_RESULTS},
    {"CTRL-EVENT-CHANNEL-SWITCH ", WifiClientCallbackType::WPA_STA_CHANNEL_SWITCH},
    {"CTRL-EVENT-ASSOC-STARTED ", WifiClientCallbackType::WPA_STA_ASSOC_STARTED},
    {"CTRL-EVENT-CONNECTED ", WifiClientCallbackType::WPA_STA_CONNECTED},
    {"CTRL-EVENT-DISCONNECTED ", WifiClientCallbackType::WPA_STA_DISCONNECTED},
    {"CTRL-EVENT-REGDOM-CHANGE ", WifiClientCallbackType::WPA_REGDOM_CHANGE},
}};

constexpr std::array<EventKind, 4> kP2pEvents = {{
    {"AP-CSA-FINISHED ", WifiClientCallbackType::WPA_P2P_CSA_FINISHED},
    {"P2P-GROUP-REMOVED ", WifiClientCallbackType::WPA_P2P_GROUP_REMOVED},
    {"P2P-GROUP-STARTED ", WifiClientCallbackType::WPA_P2P_GROUP_STARTED},
    {"CTRL-EVENT-REGDOM-CHANGE ", WifiClientCallbackType::WPA_REGDOM_CHANGE},
}};

template <size_t N>
WpaEvent find(std::string_view event, const std::array<EventKind, N>& kinds) {
    for (const EventKind& kind : kinds) {
        if (startsWith(event, kind.prefix)) {
            return {WpaEvent::Meaning::Notification, kind.type, event.substr(kind.prefix.size())};
        }
    }
    return {};
}

}  // namespace

WpaEvent readWpaEvent(NetInterfaceType type, std::string_view event) {
    if (isBssEvent(event)) {  // by far the most frequent ones
        return {};
    }
    if (startsWith(event, kTerminating)) {
        return {WpaEvent::Meaning::Terminating, {}, {}};
    }
    return type == NetInterfaceType::STA ? find(event, kStaEvents) : find(event, kP2pEvents);
}

}  // namespace Ursa::OS::Wifi
