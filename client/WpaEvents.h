#pragma once

#include <string_view>

#include "client/NetInterfaceType.h"
#include "client/WifiClientCallbackType.h"

namespace Ursa::OS::Wifi {

/** What an event means to the daemon. */
struct WpaEvent {
    enum class Meaning {
        None,          ///< nobody can subscribe to it
        Terminating,   ///< the supplicant ends
        Notification,  ///< subscribers of `type` receive `payload`
    };

    Meaning meaning = Meaning::None;
    WifiClientCallbackType type = {};
    std::string_view payload = {};  ///< the text behind the event's prefix
};

/** Classifies an event, without its priority tag, that arrived on an interface of that kind. */
WpaEvent readWpaEvent(NetInterfaceType type, std::string_view event);

}  // namespace Ursa::OS::Wifi
