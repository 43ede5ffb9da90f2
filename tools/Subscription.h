#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include <vendor/corvid/hardware/wifi/1.0/ICorvidWifiManagerCallback.h>

#include "tools/Json.h"
#include "tools/Methods.h"

namespace Ursa::OS::Wifi::Tools {

/**
 * A callback that is registered with the service, and a link to the service's death. Both functions
 * run on a thread of the HIDL runtime, also while start() runs, and may still do so after the
 * destructor: what they use has to be theirs.
 */
class Subscription {
  public:
    /** An event: {"event":"onChannelSwitch","frequency":5180,...}, fields as the interface names
     * them. */
    using OnEvent = std::function<void(const Json& event)>;
    using OnDeath = std::function<void()>;

    Subscription(::android::sp<IWifi> service, OnEvent onEvent, OnDeath onDeath);

    /** Registers. The service's status code: not 0 when it refuses. Throws ServiceError when it
     * dies. */
    uint32_t start();
    /** Ends both. The service's status code; nothing when the service is gone. */
    std::optional<uint32_t> end();

  private:
    const ::android::sp<IWifi> service_;
    const ::android::sp<::vendor::corvid::hardware::wifi::V1_0::ICorvidWifiManagerCallback>
        callback_;
    const ::android::sp<::android::hardware::hidl_death_recipient> recipient_;
};

}  // namespace Ursa::OS::Wifi::Tools
