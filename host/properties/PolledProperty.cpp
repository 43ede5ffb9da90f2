#include "PolledProperty.h"

#include <cerrno>

#include <sys/system_properties.h>

namespace host {

int PolledProperty::value() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    time_t next = nextLook_.load(std::memory_order_relaxed);
    if (now.tv_sec >= next && nextLook_.compare_exchange_strong(next, now.tv_sec + 1)) {
        value_.store(read_(), std::memory_order_relaxed);
    }
    return value_.load(std::memory_order_relaxed);
}

int PolledProperty::read_() const {
    const int savedErrno = errno;
    char text[PROP_VALUE_MAX];
    __system_property_get(name_, text);
    errno = savedErrno;
    return parse_(text);
}

}  // namespace host
