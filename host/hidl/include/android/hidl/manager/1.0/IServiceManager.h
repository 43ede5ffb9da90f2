#pragma once

#include <android/hidl/manager/1.0/IServiceNotification.h>
#include <hidl/Status.h>

namespace android {
namespace hidl {
namespace manager {
namespace V1_0 {

/** The device's registry of services. On a host a folder takes its place; see hwbinder. */
struct IServiceManager : public virtual RefBase {
    virtual hardware::Return<bool> registerForNotifications(
        const hardware::hidl_string& fqName, const hardware::hidl_string& name,
        const sp<IServiceNotification>& callback) = 0;
};

}  // namespace V1_0
}  // namespace manager
}  // namespace hidl
}  // namespace android
