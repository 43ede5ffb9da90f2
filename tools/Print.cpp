#include "tools/Print.h"

#include <unistd.h>

#include <cstdlib>
#include <string_view>

#include "tools/Json.h"

namespace Ursa::OS::Wifi::Tools {

bool knowsEscapes(int descriptor) {
    const char* terminal = std::getenv("TERM");
    return isatty(descriptor) != 0 && (terminal == nullptr || std::string_view(terminal) != "dumb");
}

std::string printable(const std::string& text) {
    const std::string valid = Json::parse(toLine(Json(text))).get<std::string>();
    std::string out;
    for (size_t i = 0; i < valid.size(); ++i) {
        auto byte = static_cast<unsigned char>(valid[i]);
        // U+0080 to U+009F are control characters too.
        const bool isUpperControl = byte == 0xC2 && static_cast<unsigned char>(valid[i + 1]) < 0xA0;
        if (isUpperControl) {
            byte = static_cast<unsigned char>(valid[++i]);
        }
        if (byte == '\n') {
            out += ' ';
        } else if (isUpperControl || byte < 0x20 || byte == 0x7F) {
            char escaped[8];
            std::snprintf(escaped, sizeof(escaped), "\\x%02x", static_cast<unsigned>(byte));
            out += escaped;
        } else {
            out += valid[i];
        }
    }
    return out;
}

}  // namespace Ursa::OS::Wifi::Tools
