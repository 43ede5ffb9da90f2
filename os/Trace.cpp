#include "os/Trace.h"

namespace Ursa::OS {

void TraceName::add_(std::string_view part) {
    if (length_ > 0 && length_ < kMaxSize) {
        text_[length_++] = ' ';
    }
    for (const char c : part.substr(0, kMaxSize - length_)) {
        const bool isControl = (c >= 0 && c < ' ') || c == '\x7f';
        text_[length_++] = isControl ? ' ' : c;
    }
}

}  // namespace Ursa::OS
