#include "tools/Arguments.h"

#include <charconv>
#include <limits>
#include <system_error>

namespace Ursa::OS::Wifi::Tools {

namespace {

template <typename Number>
bool parseNumber(std::string_view word, Number& value) {
    const bool negative = !word.empty() && word.front() == '-';
    if (negative) {
        word.remove_prefix(1);
    }
    int base = 10;
    if (word.size() > 2 && word[0] == '0' && (word[1] == 'x' || word[1] == 'X')) {
        word.remove_prefix(2);
        base = 16;
    }
    // As a wider number, for -0x80000000 and for the range check. Unsigned, for a second minus.
    uint64_t magnitude = 0;
    const auto [end, error] =
        std::from_chars(word.data(), word.data() + word.size(), magnitude, base);
    if (error != std::errc() || end != word.data() + word.size() ||
        magnitude > std::numeric_limits<uint32_t>::max()) {
        return false;
    }
    const int64_t number =
        negative ? -static_cast<int64_t>(magnitude) : static_cast<int64_t>(magnitude);
    if (number < std::numeric_limits<Number>::min() ||
        number > std::numeric_limits<Number>::max()) {
        return false;
    }
    value = static_cast<Number>(number);
    return true;
}

template <typename Number>
std::string describeNumber() {
    return "a number from " + std::to_string(std::numeric_limits<Number>::min()) + " to " +
           std::to_string(std::numeric_limits<Number>::max()) + " (decimal or 0x hexadecimal)";
}

}  // namespace

bool parseArgument(std::string_view word, int32_t& value) { return parseNumber(word, value); }
bool parseArgument(std::string_view word, uint32_t& value) { return parseNumber(word, value); }
bool parseArgument(std::string_view word, uint8_t& value) { return parseNumber(word, value); }

std::string describeArgument(const int32_t& /*type*/) { return describeNumber<int32_t>(); }
std::string describeArgument(const uint32_t& /*type*/) { return describeNumber<uint32_t>(); }
std::string describeArgument(const uint8_t& /*type*/) { return describeNumber<uint8_t>(); }

bool parseArgument(std::string_view word, bool& value) {
    if (word != "true" && word != "false") {
        return false;
    }
    value = word == "true";
    return true;
}

std::string describeArgument(const bool& /*type*/) { return "true or false"; }

bool parseArgument(std::string_view word, ::android::hardware::hidl_string& value) {
    value = std::string(word);
    return true;
}

std::string describeArgument(const ::android::hardware::hidl_string& /*type*/) { return "a text"; }

bool parseArgument(std::string_view word, CallbackArgument& value) {
    if (word != "null") {
        return false;
    }
    value = nullptr;
    return true;
}

std::string describeArgument(const CallbackArgument& /*type*/) {
    return "null (use the monitor command to be called back)";
}

}  // namespace Ursa::OS::Wifi::Tools
