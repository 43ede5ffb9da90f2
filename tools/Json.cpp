#include "tools/Json.h"

#include <cstddef>
#include <cstdio>

namespace Ursa::OS::Wifi::Tools {

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD

unsigned byteAt(std::string_view text, size_t index) {
    return static_cast<unsigned char>(text[index]);
}

/**
 * Length in bytes, 1 to 4, of the UTF-8 character that `text`, which is not empty, begins with; 0
 * when it begins with none: a stray or missing continuation byte, a longer form than needed, a
 * surrogate, or a number above U+10FFFF.
 */
size_t utf8Length(std::string_view text) {
    const unsigned first = byteAt(text, 0);
    if (first < 0x80) {
        return 1;
    }
    size_t length = 0;
    unsigned lowest = 0x80;  // bounds of the second byte; the later ones have the full range
    unsigned highest = 0xBF;
    if (first >= 0xC2 && first <= 0xDF) {
        length = 2;
    } else if (first >= 0xE0 && first <= 0xEF) {
        length = 3;
        lowest = first == 0xE0 ? 0xA0 : lowest;
        highest = first == 0xED ? 0x9F : highest;
    } else if (first >= 0xF0 && first <= 0xF4) {
        length = 4;
        lowest = first == 0xF0 ? 0x90 : lowest;
        highest = first == 0xF4 ? 0x8F : highest;
    }
    if (length == 0 || text.size() < length || byteAt(text, 1) < lowest ||
        byteAt(text, 1) > highest) {
        return 0;
    }
    for (size_t i = 2; i < length; ++i) {
        if ((byteAt(text, i) & 0xC0U) != 0x80) {
            return 0;
        }
    }
    return length;
}

void appendAscii(std::string& out, char character) {
    switch (character) {
        case '"':
            out += "\\\"";
            return;
        case '\\':
            out += "\\\\";
            return;
        case '\n':
            out += "\\n";
            return;
        case '\r':
            out += "\\r";
            return;
        case '\t':
            out += "\\t";
            return;
        default:
            break;
    }
    const unsigned code = static_cast<unsigned char>(character);
    if (code < 0x20 || code == 0x7F) {
        char escape[7];  // \u, four digits, NUL
        std::snprintf(escape, sizeof(escape), "\\u%04x", code);
        out += escape;
    } else {
        out += character;
    }
}

}  // namespace

std::string quoteJson(std::string_view text) {
    std::string out = "\"";
    while (!text.empty()) {
        const size_t length = utf8Length(text);
        if (length == 1) {
            appendAscii(out, text.front());
        } else if (length == 0) {
            out += kReplacement;
        } else {
            out += text.substr(0, length);
        }
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return out + "\"";
}

JsonObject& JsonObject::addRaw_(std::string_view name, std::string_view json) {
    if (!members_.empty()) {
        members_ += ',';
    }
    members_ += quoteJson(name);
    members_ += ':';
    members_ += json;
    return *this;
}

}  // namespace Ursa::OS::Wifi::Tools
