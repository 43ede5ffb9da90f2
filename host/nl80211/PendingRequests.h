#pragma once

#include <cstddef>
#include <deque>
#include <optional>

#include <linux/netlink.h>

namespace host {

/**
 * The requests of one generic netlink socket that have not been answered to the end: until an
 * error, an acknowledgement or the end of a dump, and, for a request that asked for none of these,
 * until any message.
 *
 * Not synchronised. Packets may hold several messages, and garbage.
 */
class PendingRequests {
  public:
    /** More are not remembered: the oldest is forgotten, having never asked for an answer. */
    static constexpr size_t kMax = 1024;

    void sent(const void* packet, size_t size);

    /** Takes back the last sent() of a packet, which did not go out. */
    void notSent(const void* packet, size_t size);

    void received(const void* packet, size_t size);

    /** The header of the request that waits longest. */
    std::optional<nlmsghdr> oldest() const;

    void dropOldest() { requests_.pop_front(); }

  private:
    std::deque<nlmsghdr> requests_;
};

}  // namespace host
