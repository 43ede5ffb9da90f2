#include "sim/Output.h"

#include <cerrno>
#include <cstring>

namespace sim {

void Output::write(const std::string& text) {
    if (error_ != 0) {
        return;
    }
    if (std::fwrite(text.data(), 1, text.size(), stream_) != text.size() ||
        std::fflush(stream_) != 0) {
        error_ = errno;
        onLost_();
    }
}

std::string Output::complaint() const {
    return "cannot write " + name_ + ": " + std::strerror(error_);
}

}  // namespace sim
