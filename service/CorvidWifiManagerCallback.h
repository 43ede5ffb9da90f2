#pragma once

#include <vector>

#include <vendor/corvid/hardware/wifi/1.0/ICorvidWifiManagerCallback.h>

#include "os/Mutex.h"
#include "service/ServiceDeathReceiver.h"

namespace Ursa::OS::Wifi {

/**
 * The client callbacks that want to hear of Wi-Fi events, in the order of their registration. A
 * client whose process dies is dropped. Any thread; no client is called with the mutex held, only
 * the runtime's own book of death recipients.
 */
class CorvidWifiManagerCallback {
  public:
    using ICallback = ::vendor::corvid::hardware::wifi::V1_0::ICorvidWifiManagerCallback;

    CorvidWifiManagerCallback();
    virtual ~CorvidWifiManagerCallback();

    CorvidWifiManagerCallback(const CorvidWifiManagerCallback&) = delete;
    CorvidWifiManagerCallback& operator=(const CorvidWifiManagerCallback&) = delete;

    /**
     * Adds a callback. Returns false for null and for one that is there already, also by another
     * proxy of the same object.
     */
    bool link(const ::android::sp<ICallback>& callback) EXCLUDES(mutex_);

    /** Removes a callback. Returns false when it is not there. */
    bool unlink(const ::android::sp<ICallback>& callback) EXCLUDES(mutex_);

  protected:
    /** The callbacks now, each with a strong reference, for calls without the mutex. */
    std::vector<::android::sp<ICallback>> copyCallbacks_() EXCLUDES(mutex_);

  private:
    using Callbacks = std::vector<::android::sp<ICallback>>;

    void onDeath_(const ServiceDeathReceiver::Who& who) EXCLUDES(mutex_);
    Callbacks::iterator find_(const ::android::sp<::android::hidl::base::V1_0::IBase>& callback)
        REQUIRES(mutex_);

    Callbacks callbacks_ GUARDED_BY(mutex_);
    /**
     * Held across linkToDeath and unlinkToDeath too, deliberately: a client that dies while it is
     * being registered is in the list by the time that onDeath_ looks for it. Both only make an
     * entry with the runtime and never come back here.
     */
    Mutex mutex_;
    const ::android::sp<ServiceDeathReceiver> deathReceiver_;
};

}  // namespace Ursa::OS::Wifi
