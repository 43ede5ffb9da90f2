#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include <hidl/HidlSupport.h>
#include <vendor/corvid/hardware/wifi/1.0/ICorvidWifiManagerCallback.h>
#include <vendor/corvid/hardware/wifi/1.0/types.h>

// What can stand on the command line for a value of each type of the interface.
//
// parseArgument reads one word into `value`, and returns false, with `value` unchanged, when the
// word is none that is allowed. describeArgument says, for people, what is allowed; its parameter
// only tells the type.

namespace Ursa::OS::Wifi::Tools {

/** Decimal or 0x hexadecimal, with a minus sign where the type has one; no other sign or space. */
bool parseArgument(std::string_view word, int32_t& value);
bool parseArgument(std::string_view word, uint32_t& value);
bool parseArgument(std::string_view word, uint8_t& value);
std::string describeArgument(const int32_t& type);
std::string describeArgument(const uint32_t& type);
std::string describeArgument(const uint8_t& type);

/** "true" or "false". */
bool parseArgument(std::string_view word, bool& value);
std::string describeArgument(const bool& type);

/** Any text, also an empty one. */
bool parseArgument(std::string_view word, ::android::hardware::hidl_string& value);
std::string describeArgument(const ::android::hardware::hidl_string& type);

/** "null" only: an object can't be typed. Registering one that is called back is `monitor`. */
using CallbackArgument =
    ::android::sp<::vendor::corvid::hardware::wifi::V1_0::ICorvidWifiManagerCallback>;
bool parseArgument(std::string_view word, CallbackArgument& value);
std::string describeArgument(const CallbackArgument& type);

/** An enumerator's name, or any number of the enumeration's own type, known or not. */
template <typename Enum, typename = std::enable_if_t<std::is_enum_v<Enum>>>
bool parseArgument(std::string_view word, Enum& value) {
    for (const Enum known : ::android::hardware::hidl_enum_range<Enum>()) {
        if (word == toString(known)) {
            value = known;
            return true;
        }
    }
    std::underlying_type_t<Enum> number = 0;
    if (!parseArgument(word, number)) {
        return false;
    }
    value = static_cast<Enum>(number);
    return true;
}

template <typename Enum, typename = std::enable_if_t<std::is_enum_v<Enum>>>
std::string describeArgument(const Enum& /*type*/) {
    std::string names;
    for (const Enum known : ::android::hardware::hidl_enum_range<Enum>()) {
        names += toString(known) + ", ";
    }
    return names + "or " + describeArgument(std::underlying_type_t<Enum>());
}

}  // namespace Ursa::OS::Wifi::Tools
