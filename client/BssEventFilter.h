#pragma once

#include <string_view>

namespace Ursa::OS::Wifi {

/**
 * Whether an event (without its priority tag) is one of the two that a scan sends by the hundred
 * and that nobody here wants: "CTRL-EVENT-BSS-ADDED " and "CTRL-EVENT-BSS-REMOVED ".
 */
bool isBssEvent(std::string_view event);

/**
 * Makes the kernel throw those two events away inside the supplicant's own send call, so that this
 * process is not even woken for them. `fd` is an AF_UNIX datagram socket on which events arrive
 * with their three-byte priority tag. Returns false when the kernel refuses: isBssEvent() behind it
 * then does the work.
 */
bool dropBssEvents(int fd);

}  // namespace Ursa::OS::Wifi
