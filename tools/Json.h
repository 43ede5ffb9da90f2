#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

namespace Ursa::OS::Wifi::Tools {

/**
 * `text` as a JSON string with its quotes, in one line of valid UTF-8 whatever the text holds: the
 * control characters of ASCII are escaped, and each byte that is not part of valid UTF-8 becomes
 * U+FFFD.
 */
std::string quoteJson(std::string_view text);

/** Writes one JSON object in one line without spaces, its members in the order of the calls. */
class JsonObject {
  public:
    JsonObject& add(std::string_view name, std::string_view value) {
        return addRaw_(name, quoteJson(value));
    }
    // Without this one a literal would become a bool.
    JsonObject& add(std::string_view name, const char* value) {
        return add(name, std::string_view(value));
    }
    JsonObject& add(std::string_view name, bool value) {
        return addRaw_(name, value ? "true" : "false");
    }
    template <typename Number,
              typename = std::enable_if_t<std::is_integral_v<Number> && sizeof(Number) >= 4>>
    JsonObject& add(std::string_view name, Number value) {
        return addRaw_(name, std::to_string(value));
    }

    /** The object as it is now, for example {"code":0,"description":""}. */
    std::string str() const { return "{" + members_ + "}"; }

  private:
    JsonObject& addRaw_(std::string_view name, std::string_view json);

    std::string members_;
};

}  // namespace Ursa::OS::Wifi::Tools
