#pragma once

#include <string_view>

#include "client/NetInterfaceType.h"
#include "client/WifiClientCallbackType.h"

namespace Ursa::OS::Wifi {

/** What an event means to the daemon. */
struct WpaEvent {
    enum class Meaning {
        None,
        Terminating,   ///< the supplicant ends
        Notification,  ///< of `type`, with `payload`
    };

    Meaning meaning = Meaning::None;
    WifiClientCallbackType type = {};
    std::string_view payload = {};  ///< the text behind the event's prefix
};

/** Reads an event, without its priority tag, that came on an interface of that kind. */
WpaEvent readWpaEvent(NetInterfaceType type, std::string_view event);

}  // namespace Ursa::OS::Wifi
