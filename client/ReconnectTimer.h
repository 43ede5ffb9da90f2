#pragma once

#include <cstdint>

#include <android-base/unique_fd.h>

#include "client/NetInterfaceType.h"

namespace Ursa::OS::Wifi {

/**
 * The timer of one WpaSocket: a descriptor that becomes readable when the time is up. Failures are
 * logged. One thread at a time.
 */
class ReconnectTimer {
  public:
    /** What a wake-up of the descriptor means. */
    enum class Wake {
        Expired,
        Nothing,
        Broken,  ///< no further wake-up will mean anything
    };

    /** `type` is for the log. */
    explicit ReconnectTimer(NetInterfaceType type) : type_(type) {}

    /** False, and logged, if the kernel gives no descriptor, or if there is one already. */
    bool init();

    /** -1 without a descriptor. */
    int fd() const { return fd_.get(); }

    /** One expiry, `delayMs` milliseconds from now; negative disarms. False and logged on failure.
     */
    bool set(int64_t delayMs);

    /** `events` is what epoll reports of the descriptor. Takes the expiry. */
    Wake take(int events);

  private:
    const NetInterfaceType type_;
    android::base::unique_fd fd_;
};

}  // namespace Ursa::OS::Wifi
