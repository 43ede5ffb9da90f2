#include "config/CorvidWifiProperties.h"

#include <strings.h>

#include <array>
#include <atomic>
#include <type_traits>

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

template <>
std::optional<std::string> parse(const char* text) {
    return text;
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

#define CORVID_WIFI_DEFINE_(type, accessor, name, ...) \
    std::optional<type> accessor() { return read<type>("persist.vendor.wifi." name); }
CORVID_WIFI_PROPERTIES(CORVID_WIFI_DEFINE_, CORVID_WIFI_DEFINE_)
#undef CORVID_WIFI_DEFINE_

}  // namespace android::sysprop::CorvidWifiProperties

namespace Ursa::OS::Wifi::Sysprop {

namespace {

#define CORVID_WIFI_NAME_(type, accessor, ...) accessor,
enum class Index : size_t { CORVID_WIFI_PROPERTIES(CORVID_WIFI_NAME_, CORVID_WIFI_NAME_) count };
#undef CORVID_WIFI_NAME_

/**
 * What was read last of each property that is not read at each use: twice the value plus 1; 0 for
 * one that was never read.
 */
std::array<std::atomic<int64_t>, static_cast<size_t>(Index::count)> lastReads;

template <PropertyEffect effect, typename T>
T noteRead(Index property, T value) {
    if constexpr (effect == PropertyEffect::Restart || effect == PropertyEffect::FirstUse) {
        lastReads[static_cast<size_t>(property)] = static_cast<int64_t>(value) * 2 + 1;
    }
    return value;
}

std::optional<int64_t> lastRead(Index property) {
    const int64_t read = lastReads[static_cast<size_t>(property)];
    return read == 0 ? std::nullopt : std::optional(read >> 1);
}

template <typename T>
constexpr PropertyType typeOf() {
    return std::is_same_v<T, bool>  ? PropertyType::Bool
           : std::is_same_v<T, int> ? PropertyType::Int
                                    : PropertyType::Unsigned;
}

template <typename T>
PropertyState stateOf(const char* name, T fallback, const PropertyRange& range,
                      PropertyEffect effect, const char* meaning, std::optional<T> parsed,
                      Index property) {
    PropertyState state;
    state.name = name;
    state.type = typeOf<T>();
    state.fallback = static_cast<int64_t>(fallback);
    state.effect = effect;
    state.meaning = meaning;
    state.range = range;
    state.set = ::android::sysprop::CorvidWifiProperties::read<std::string>(name);
    if (state.set && parsed) {
        state.parsed = static_cast<int64_t>(*parsed);
    }
    const bool isReadEachTime = effect == PropertyEffect::AtOnce || effect == PropertyEffect::Both;
    state.inForce = isReadEachTime ? state.value() : lastRead(property);
    return state;
}

}  // namespace

#define CORVID_WIFI_DEFINE_(type, accessor, name, fallback, range, effect, meaning)             \
    type corvid_wifi_##accessor(type defaultValue) {                                            \
        const auto value = android::sysprop::CorvidWifiProperties::accessor();                  \
        return noteRead<PropertyEffect::effect>(Index::accessor, value.value_or(defaultValue)); \
    }
#define CORVID_WIFI_DEFINE_FLAG_(type, accessor, name, fallback, range, effect, meaning)        \
    type corvid_wifi_##accessor(bool defaultValue) {                                            \
        const auto value = android::sysprop::CorvidWifiProperties::accessor();                  \
        return noteRead<PropertyEffect::effect>(Index::accessor, value.value_or(defaultValue)); \
    }
CORVID_WIFI_PROPERTIES(CORVID_WIFI_DEFINE_, CORVID_WIFI_DEFINE_FLAG_)
#undef CORVID_WIFI_DEFINE_
#undef CORVID_WIFI_DEFINE_FLAG_

std::vector<PropertyState> readStates() {
    std::vector<PropertyState> states;
#define CORVID_WIFI_STATE_(type, accessor, name, fallback, range, effect, meaning)               \
    states.push_back(stateOf<type>(                                                              \
        "persist.vendor.wifi." name, fallback, PropertyRanges::k##range, PropertyEffect::effect, \
        meaning, android::sysprop::CorvidWifiProperties::accessor(), Index::accessor));
    CORVID_WIFI_PROPERTIES(CORVID_WIFI_STATE_, CORVID_WIFI_STATE_)
#undef CORVID_WIFI_STATE_
    return states;
}

}  // namespace Ursa::OS::Wifi::Sysprop
