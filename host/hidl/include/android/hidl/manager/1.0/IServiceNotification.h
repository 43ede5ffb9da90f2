#pragma once

#include <hidl/HidlSupport.h>

namespace android::hidl::manager::V1_0 {

/** Notified of registrations on the device; never on a host. */
struct IServiceNotification : public virtual RefBase {};

}  // namespace android::hidl::manager::V1_0
