#pragma once

#include <string>

#include <android/hidl/base/1.0/IBase.h>
#include <android/hidl/manager/1.0/IServiceManager.h>
#include <hidl/HidlTransportSupport.h>
#include <hidl/Status.h>
#include <utils/Errors.h>
#include <utils/StrongPointer.h>

namespace android::hardware {

/** Null: there are no notifications of registrations, so registerForNotifications fails. */
inline sp<::android::hidl::manager::V1_0::IServiceManager> defaultServiceManager() {
    return nullptr;
}

namespace details {

/**
 * Registers `object` under each interface of its chain but IBase. Returns OK, NAME_NOT_FOUND if the
 * folder for services is missing, ALREADY_EXISTS if a live process has the name, BAD_VALUE if the
 * instance can't be a file name, or another error. Failures are logged.
 */
status_t registerAsServiceInternal(const sp<::android::hidl::base::V1_0::IBase>& object,
                                   const std::string& instance);

/** The service of that name, or null. Does not block. */
sp<IBinder> findService(const std::string& descriptor, const std::string& instance);

/**
 * The service, or null if it is not registered. A host does not wait for one, and has no
 * implementations that can be loaded (`getStub`).
 */
template <typename Proxy>
sp<typename Proxy::Pure> getServiceInternal(const std::string& instance, bool /*waitForService*/,
                                            bool getStub) {
    if (getStub) {
        return nullptr;
    }
    return fromBinder<typename Proxy::Pure, Proxy, void>(
        findService(Proxy::Pure::descriptor, instance));
}

}  // namespace details
}  // namespace android::hardware
