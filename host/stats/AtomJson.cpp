#include "AtomJson.h"

#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>

namespace host {

using android::frameworks::stats::V1_0::VendorAtom;

namespace {

// Length in bytes of the UTF-8 character that `text` begins with; 0 when it begins with none.
size_t characterLength(std::string_view text) {
    const auto byte = [&](size_t i) -> uint8_t { return static_cast<uint8_t>(text[i]); };
    const uint8_t first = byte(0);
    if (first < 0x80) {
        return 1;
    }
    // The narrowed ranges of the second byte leave out overlong forms, surrogates and numbers
    // above U+10FFFF.
    const size_t length = first < 0xc2   ? 0
                          : first < 0xe0 ? 2
                          : first < 0xf0 ? 3
                          : first < 0xf5 ? 4
                                         : 0;
    if (length == 0 || text.size() < length) {
        return 0;
    }
    const uint8_t lowest = first == 0xe0 ? 0xa0 : first == 0xf0 ? 0x90 : 0x80;
    const uint8_t highest = first == 0xed ? 0x9f : first == 0xf4 ? 0x8f : 0xbf;
    if (byte(1) < lowest || byte(1) > highest) {
        return 0;
    }
    for (size_t i = 2; i < length; ++i) {
        if ((byte(i) & 0xc0) != 0x80) {
            return 0;
        }
    }
    return length;
}

std::string jsonFloat(float value) {
    if (!std::isfinite(value)) {
        return "null";
    }
    char text[32];
    // The shortest text that reads back as the same number.
    return {text, std::to_chars(text, text + sizeof(text), value).ptr};
}

}  // namespace

std::string jsonString(std::string_view text) {
    std::string json = "\"";
    while (!text.empty()) {
        const size_t length = characterLength(text);
        const char first = text.front();
        if (length == 0) {
            json += "\xef\xbf\xbd";
        } else if (first == '"' || first == '\\') {
            json += '\\';
            json += first;
        } else if (static_cast<unsigned char>(first) < 0x20 || first == 0x7f) {
            char escape[8];
            std::snprintf(escape, sizeof(escape), "\\u%04x", static_cast<unsigned>(first));
            json += escape;
        } else {
            json += text.substr(0, length);
        }
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return json + '"';
}

std::optional<std::string> atomJson(const VendorAtom& atom) {
    using Kind = VendorAtom::Value::hidl_discriminator;
    std::string json = "{\"reverseDomainName\":" + jsonString(std::string(atom.reverseDomainName)) +
                       ",\"atomId\":" + std::to_string(atom.atomId) + ",\"values\":[";
    for (size_t i = 0; i < atom.values.size(); ++i) {
        const VendorAtom::Value& value = atom.values[i];
        json += i == 0 ? "{" : ",{";
        switch (value.getDiscriminator()) {
            case Kind::intValue:
                json += "\"int\":" + std::to_string(value.intValue());
                break;
            case Kind::longValue:
                json += "\"long\":" + std::to_string(value.longValue());
                break;
            case Kind::floatValue:
                json += "\"float\":" + jsonFloat(value.floatValue());
                break;
            case Kind::stringValue:
                json += "\"string\":" + jsonString(std::string(value.stringValue()));
                break;
            default:
                return std::nullopt;
        }
        json += "}";
    }
    return json + "]}";
}

}  // namespace host
