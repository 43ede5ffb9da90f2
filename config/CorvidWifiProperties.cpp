#include "config/CorvidWifiProperties.h"

#include <strings.h>

#include <android-base/parseint.h>
#include <sys/system_properties.h>

namespace android::sysprop::CorvidWifiProperties {

namespace {

template <typename T>
std::optional<T> parse(const char* text);

template <>
std::optional<bool> parse(const char* text) {
    for (const char* word : {"1", "true"}) {
        if (strcasecmp(text, word) == 0) {
            return true;
        }
    }
    for (const char* word : {"0", "false"}) {
        if (strcasecmp(text, word) == 0) {
            return false;
        }
    }
    return std::nullopt;
}

template <>
std::optional<int> parse(const char* text) {
    int value = 0;
    return base::ParseInt(text, &value) ? std::optional(value) : std::nullopt;
}

template <>
std::optional<unsigned> parse(const char* text) {
    unsigned value = 0;
    return base::ParseUint(text, &value) ? std::optional(value) : std::nullopt;
}

template <typename T>
std::optional<T> read(const char* name) {
    std::optional<T> value;
    if (const prop_info* property = __system_property_find(name)) {
        __system_property_read_callback(
            property,
            [](void* cookie, const char* /*name*/, const char* text, uint32_t /*serial*/) {
                *static_cast<std::optional<T>*>(cookie) = parse<T>(text);
            },
            &value);
    }
    return value;
}

}  // namespace

#define CORVID_WIFI_DEFINE_(type, accessor, name) \
    std::optional<type> accessor() { return read<type>("persist.vendor.wifi." name); }
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
