#include "config/CorvidWifiProperties.h"

#include <strings.h>

#include <string>

#include <android-base/parseint.h>
#include <sys/system_properties.h>

namespace android::sysprop::CorvidWifiProperties {

namespace {

/** The property's value; empty when it is not set. */
std::string readProperty(const char* name) {
    std::string value;
    const prop_info* property = __system_property_find(name);
    if (property != nullptr) {
        __system_property_read_callback(
            property,
            [](void* cookie, const char* /*name*/, const char* text, uint32_t /*serial*/) {
                *static_cast<std::string*>(cookie) = text;
            },
            &value);
    }
    return value;
}

template <typename T>
std::optional<T> parse(const std::string& text);

template <>
std::optional<bool> parse(const std::string& text) {
    for (const char* word : {"1", "true"}) {
        if (strcasecmp(text.c_str(), word) == 0) {
            return true;
        }
    }
    for (const char* word : {"0", "false"}) {
        if (strcasecmp(text.c_str(), word) == 0) {
            return false;
        }
    }
    return std::nullopt;
}

template <>
std::optional<int> parse(const std::string& text) {
    int value = 0;
    return base::ParseInt(text, &value) ? std::optional(value) : std::nullopt;
}

template <>
std::optional<unsigned> parse(const std::string& text) {
    unsigned value = 0;
    return base::ParseUint(text, &value) ? std::optional(value) : std::nullopt;
}

}  // namespace

#define CORVID_WIFI_DEFINE_(type, accessor, name)                      \
    std::optional<type> accessor() {                                   \
        return parse<type>(readProperty("persist.vendor.wifi." name)); \
    }
CORVID_WIFI_PROPERTIES(CORVID_WIFI_DEFINE_, CORVID_WIFI_DEFINE_)
#undef CORVID_WIFI_DEFINE_

}  // namespace android::sysprop::CorvidWifiProperties

namespace Ursa::OS::Wifi::Sysprop {

#define CORVID_WIFI_DEFINE_(type, accessor, name)                                         \
    type corvid_wifi_##accessor(type defaultValue) {                                      \
        return android::sysprop::CorvidWifiProperties::accessor().value_or(defaultValue); \
    }
#define CORVID_WIFI_DEFINE_FLAG_(type, accessor, name)                                    \
    type corvid_wifi_##accessor(bool defaultValue) {                                      \
        return android::sysprop::CorvidWifiProperties::accessor().value_or(defaultValue); \
    }
CORVID_WIFI_PROPERTIES(CORVID_WIFI_DEFINE_, CORVID_WIFI_DEFINE_FLAG_)
#undef CORVID_WIFI_DEFINE_
#undef CORVID_WIFI_DEFINE_FLAG_

}  // namespace Ursa::OS::Wifi::Sysprop
