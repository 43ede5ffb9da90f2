#pragma once

#include <hidl/HidlInternal.h>
#include <hidl/HidlSupport.h>

namespace android {
namespace hardware {

/** Flavours of fast message queues. */
enum MQFlavor : uint32_t {
    kSynchronizedReadWrite = 1,
    kUnsynchronizedWrite = 2,
};

/** Fast message queues exist on no host; only the layout of their descriptor does. */
template <typename T, MQFlavor flavor>
struct MQDescriptor {
  private:
    hidl_vec<uint8_t> mGrantors;
    details::hidl_pointer<native_handle_t> mHandle;
    uint32_t mQuantum = 0;
    uint32_t mFlags = 0;
};

}  // namespace hardware
}  // namespace android
