#pragma once

#include <vector>

#include <vendor/corvid/hardware/wifi/1.0/ICorvidWifiManagerCallback.h>

#include "os/Mutex.h"
#include "service/ClientStats.h"
#include "service/ServiceDeathReceiver.h"

namespace Ursa::OS::Wifi {

/**
 * The registered client callbacks, in the order of their registration. A client whose process dies
 * is dropped. Any thread. The mutex is not held while clients are called; it is held across
 * linkToDeath and unlinkToDeath.
 */
class CorvidWifiManagerCallback {
  public:
    using ICallback = ::vendor::corvid::hardware::wifi::V1_0::ICorvidWifiManagerCallback;

    CorvidWifiManagerCallback();
    virtual ~CorvidWifiManagerCallback();

    CorvidWifiManagerCallback(const CorvidWifiManagerCallback&) = delete;
    CorvidWifiManagerCallback& operator=(const CorvidWifiManagerCallback&) = delete;

    /** Adds a callback. Returns false for null, and for an object that is registered already. */
    bool link(const ::android::sp<ICallback>& callback) EXCLUDES(mutex_);

    /** Removes a callback. Returns false when it is not there. */
    bool unlink(const ::android::sp<ICallback>& callback) EXCLUDES(mutex_);

    /** The registered clients, for a report. Does not wait for any of them. */
    StateTree describeClients() const { return stats_.describe(); }

  protected:
    ClientStats stats_;

    /** The callbacks now, each with a strong reference, for calls without the mutex. */
    std::vector<::android::sp<ICallback>> copyCallbacks_() EXCLUDES(mutex_);

  private:
    using Callbacks = std::vector<::android::sp<ICallback>>;

    void onDeath_(const ServiceDeathReceiver::Who& who) EXCLUDES(mutex_);
    Callbacks::iterator find_(const ::android::sp<::android::hidl::base::V1_0::IBase>& callback)
        REQUIRES(mutex_);

    Callbacks callbacks_ GUARDED_BY(mutex_);
    /**
     * Held across linkToDeath, so that a client that dies while it is being registered is in the
     * list when onDeath_ looks for it. linkToDeath and unlinkToDeath never call back.
     */
    Mutex mutex_;
    const ::android::sp<ServiceDeathReceiver> deathReceiver_;
};

}  // namespace Ursa::OS::Wifi
