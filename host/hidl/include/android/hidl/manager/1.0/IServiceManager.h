#pragma once

#include <android/hidl/manager/1.0/IServiceNotification.h>
#include <hidl/Status.h>

namespace android::hidl::manager::V1_0 {

/** The device's registry of services. A host has a folder instead (docs/host-platform.md). */
struct IServiceManager : public virtual RefBase {
    virtual hardware::Return<bool> registerForNotifications(
        const hardware::hidl_string& fqName, const hardware::hidl_string& name,
        const sp<IServiceNotification>& callback) = 0;
};

}  // namespace android::hidl::manager::V1_0
