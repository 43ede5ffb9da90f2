#pragma once

#include <string>

#include <android/hidl/base/1.0/IBase.h>
#include <android/hidl/manager/1.0/IServiceManager.h>
#include <hidl/HidlTransportSupport.h>
#include <hidl/Status.h>
#include <utils/Errors.h>
#include <utils/StrongPointer.h>

namespace android {
namespace hardware {

/** Always null: a host tells nobody of registrations, and registerForNotifications is false. */
inline sp<::android::hidl::manager::V1_0::IServiceManager> defaultServiceManager() {
    return nullptr;
}

namespace details {

/**
 * Makes `object` known under each interface of its chain but IBase.
 * @return OK; NAME_NOT_FOUND when the folder for services is missing; ALREADY_EXISTS when the
 *     name is taken by a live process; BAD_VALUE for an instance name that can't be a file name;
 *     or another error. Each failure is logged.
 */
status_t registerAsServiceInternal(const sp<::android::hidl::base::V1_0::IBase>& object,
                                   const std::string& instance);

/** What is registered as `descriptor`/`instance`, or null. Does not block. */
sp<IBinder> findService(const std::string& descriptor, const std::string& instance);

/**
 * The service of a proxy class's interface, or null when it is not registered.
 * @param waitForService no difference on a host: nobody says that a service is on its way.
 * @param getStub true always yields null: there are no implementations to be loaded.
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
}  // namespace hardware
}  // namespace android
