#pragma once

#include <cstdint>

namespace android::hardware {

enum MQFlavor : uint32_t {
    kSynchronizedReadWrite = 1,
};

/** A fast message queue. Does not exist on a host; generated code asserts the size. */
template <typename T, MQFlavor flavor>
struct alignas(8) MQDescriptor {
    uint8_t opaque[32];
};

}  // namespace android::hardware
