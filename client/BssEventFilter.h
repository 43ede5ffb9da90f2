#pragma once

#include <string_view>

namespace Ursa::OS::Wifi {

/**
 * Returns whether an event, without its priority tag, is "CTRL-EVENT-BSS-ADDED " or
 * "CTRL-EVENT-BSS-REMOVED ". A scan sends hundreds of them, and nobody subscribes to them.
 */
bool isBssEvent(std::string_view event);

/**
 * Attaches a socket filter to `fd` that drops those two events inside the supplicant's send call,
 * so that they do not wake this process. `fd` is an AF_UNIX datagram socket; its events begin with
 * a three-byte priority tag. Returns false if the kernel rejects the filter: the events then arrive
 * and isBssEvent() sorts them out.
 */
bool dropBssEvents(int fd);

}  // namespace Ursa::OS::Wifi
