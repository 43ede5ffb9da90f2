#pragma once

#include <hidl/HidlSupport.h>

namespace android {
namespace hidl {
namespace manager {
namespace V1_0 {

/** Told of registrations on the device; a host has nobody who tells. */
struct IServiceNotification : public virtual RefBase {};

}  // namespace V1_0
}  // namespace manager
}  // namespace hidl
}  // namespace android
