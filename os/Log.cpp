#include "os/Log.h"

#include <cstdarg>
#include <cstdio>

namespace Ursa::OS {

namespace {

/** liblog cuts a message at this many bytes, the terminating NUL included. */
constexpr size_t kMaxMessage = 1024;

}  // namespace

void logLine(int priority, std::string_view source, const char* format, ...) {
    if (__android_log_is_loggable(priority, LOG_TAG, ANDROID_LOG_VERBOSE) == 0) {
        return;
    }
    char message[kMaxMessage];
    constexpr std::string_view kColon = ": ";
    char* text = message + source.copy(message, sizeof(message) - kColon.size() - 1);
    text += kColon.copy(text, kColon.size());
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, static_cast<size_t>(message + sizeof(message) - text), format, arguments);
    va_end(arguments);
    __android_log_write(priority, LOG_TAG, message);
}

}  // namespace Ursa::OS
