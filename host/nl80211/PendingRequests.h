#pragma once

#include <cstddef>
#include <deque>
#include <optional>

#include <linux/netlink.h>

namespace host {

/**
 * The requests of one generic netlink socket that are not fully answered. A request is pending
 * until an error, an acknowledgement or the end of a dump arrives; one that asks for none of these,
 * until any message does. Packets may hold several messages, and garbage. Not thread-safe.
 */
class PendingRequests {
  public:
    /** The most requests; beyond that the oldest is forgotten. */
    static constexpr size_t kMax = 1024;

    void sent(const void* packet, size_t size);

    /** Undoes the last sent() of a packet that could not be sent. */
    void notSent(const void* packet, size_t size);

    void received(const void* packet, size_t size);

    /** The header of the request that has waited longest. */
    std::optional<nlmsghdr> oldest() const;

    void dropOldest() { requests_.pop_front(); }

  private:
    std::deque<nlmsghdr> requests_;
};

}  // namespace host
