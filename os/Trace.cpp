#include "os/Trace.h"

namespace Ursa::OS {

void TraceName::add_(std::string_view part) {
    if (length_ > 0 && length_ < kMaxSize) {
        text_[length_++] = ' ';
    }
    for (const char c : part.substr(0, kMaxSize - length_)) {
        const auto byte = static_cast<unsigned char>(c);  // a char has no sign on ARM
        const bool isControl = byte < ' ' || byte == 0x7f;
        text_[length_++] = isControl ? ' ' : c;
    }
}

}  // namespace Ursa::OS
