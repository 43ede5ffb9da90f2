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
    const int prefix = snprintf(message, sizeof(message), "%.*s: ", static_cast<int>(source.size()),
                                source.data());
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(message + prefix, sizeof(message) - static_cast<size_t>(prefix), format, arguments);
    va_end(arguments);
    __android_log_write(priority, LOG_TAG, message);
}

}  // namespace Ursa::OS
