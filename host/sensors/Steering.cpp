#include "Steering.h"

#include <unistd.h>

#include <string_view>

#include <android/log.h>
#include <sys/system_properties.h>

namespace Ursa::Sensors {
namespace {

/** glibc ends a thread by unwinding it: no frame above pause() may be noexcept or catch all. */
[[noreturn]] void hang() {
    while (true) {
        pause();
    }
}

}  // namespace

bool goesOn(const char* property, const char* failure) {
    char buffer[PROP_VALUE_MAX];
    __system_property_get(property, buffer);
    const std::string_view value = buffer;
    if (value.empty() || value == "ok") {
        return true;
    }
    if (value == "hang") {
        hang();
    }
    if (value == failure) {
        return false;
    }
    __android_log_print(ANDROID_LOG_ERROR, "VrSensors", "%s: unknown value %s, ok is used",
                        property, buffer);
    return true;
}

}  // namespace Ursa::Sensors
