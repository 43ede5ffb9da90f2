#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include <hidl/HidlSupport.h>
#include <vendor/corvid/hardware/wifi/1.0/ICorvidWifiManagerCallback.h>
#include <vendor/corvid/hardware/wifi/1.0/types.h>

// Command-line words for values of the interface's types.
//
// parseArgument() parses one word into `value`; it returns false and leaves `value` unchanged if
// the word is not allowed. describeArgument() gives the text for the user of what is allowed; its
// parameter only selects the type.

namespace Ursa::OS::Wifi::Tools {

/** Decimal or hexadecimal with 0x, with a minus sign for signed types; no plus sign, no blanks. */
bool parseArgument(std::string_view word, int32_t& value);
bool parseArgument(std::string_view word, uint32_t& value);
bool parseArgument(std::string_view word, uint8_t& value);
std::string describeArgument(const int32_t& type);
std::string describeArgument(const uint32_t& type);
std::string describeArgument(const uint8_t& type);

/** "true" or "false". */
bool parseArgument(std::string_view word, bool& value);
std::string describeArgument(const bool& type);

/** Any text, including an empty one. */
bool parseArgument(std::string_view word, ::android::hardware::hidl_string& value);
std::string describeArgument(const ::android::hardware::hidl_string& type);

/** "null" only. (`corvid-wifi monitor` registers a real callback.) */
using CallbackArgument =
    ::android::sp<::vendor::corvid::hardware::wifi::V1_0::ICorvidWifiManagerCallback>;
bool parseArgument(std::string_view word, CallbackArgument& value);
std::string describeArgument(const CallbackArgument& type);

/** An enumerator's name, or any number of the underlying type, even without an enumerator. */
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
