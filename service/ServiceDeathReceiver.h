#pragma once

#include <functional>
#include <utility>

#include <hidl/HidlSupport.h>

#include "os/Mutex.h"

namespace Ursa::OS::Wifi {

/**
 * Calls a function when a client's process has died. The HIDL runtime may hold this object longer
 * than its owner lives, so the owner calls disarm() in its destructor.
 */
class ServiceDeathReceiver : public ::android::hardware::hidl_death_recipient {
  public:
    using Who = ::android::wp<::android::hidl::base::V1_0::IBase>;
    using Function = std::function<void(const Who&)>;

    explicit ServiceDeathReceiver(Function onDeath) : onDeath_(std::move(onDeath)) {}

    /** On the HIDL thread. The function runs under the mutex, so that disarm() waits for it. */
    void serviceDied(uint64_t /*cookie*/, const Who& who) override {
        MutexLock lock(mutex_);
        if (onDeath_ != nullptr) {
            onDeath_(who);
        }
    }

    /** Once this has returned, the function is not running and never runs again. */
    void disarm() {
        MutexLock lock(mutex_);
        onDeath_ = nullptr;
    }

  private:
    Mutex mutex_;
    Function onDeath_ GUARDED_BY(mutex_);
};

}  // namespace Ursa::OS::Wifi
