#pragma once

#include <cstdint>

#include <android-base/unique_fd.h>

#include "client/NetInterfaceType.h"

namespace Ursa::OS::Wifi {

/**
 * The timer of one WpaSocket: a timerfd, readable when the delay is over. Failures are logged. One
 * thread at a time.
 */
class ReconnectTimer {
  public:
    /** What a wake-up of the descriptor means. */
    enum class Wake {
        Expired,
        Nothing,
        Broken,  ///< epoll reported an error: stop watching the descriptor
    };

    /** `type` is for the log. */
    explicit ReconnectTimer(NetInterfaceType type) : type_(type) {}

    /** Creates the descriptor. Returns false if the kernel refuses, or if there is one already. */
    bool init();

    /** -1 without a descriptor. */
    int fd() const { return fd_.get(); }

    /** Arms one expiry in `delayMs` milliseconds; negative disarms. Returns false on failure. */
    bool set(int64_t delayMs);

    /** Consumes an expiry. `events` is the epoll mask of the wake-up. */
    Wake take(int events);

  private:
    const NetInterfaceType type_;
    android::base::unique_fd fd_;
};

}  // namespace Ursa::OS::Wifi
