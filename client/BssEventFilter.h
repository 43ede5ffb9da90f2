#pragma once

#include <string_view>

namespace Ursa::OS::Wifi {

/**
 * Whether an event, without its priority tag, is "CTRL-EVENT-BSS-ADDED " or
 * "CTRL-EVENT-BSS-REMOVED ": a scan sends hundreds of them, and nobody subscribes to them.
 */
bool isBssEvent(std::string_view event);

/**
 * Makes the kernel drop those two events in the supplicant's send call, so that they do not wake
 * this process. `fd` is an AF_UNIX datagram socket on which events arrive with their three-byte
 * priority tag. False if the kernel refuses the filter; isBssEvent() then finds them.
 */
bool dropBssEvents(int fd);

}  // namespace Ursa::OS::Wifi
