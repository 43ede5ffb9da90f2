#include "os/Log.h"

#include <charconv>
#include <cstdarg>
#include <cstdio>

namespace Ursa::OS {

namespace {

/** liblog cuts a message at this many bytes, the terminating NUL included. */
constexpr size_t kMaxMessage = 1024;

/** A buffer that is written from its begin and takes what fits, as vsnprintf() does. */
class CutText {
  public:
    /** [begin, end), of which the last byte is for the NUL. */
    CutText(char* begin, char* end) : end_(begin), last_(end - 1) {}

    void add(std::string_view text) { end_ += text.copy(end_, static_cast<size_t>(last_ - end_)); }
    template <typename Number>
    void addNumber(Number number) {
        char digits[16];
        add({digits, static_cast<size_t>(
                         std::to_chars(digits, digits + sizeof(digits), number).ptr - digits)});
    }
    void close() { *end_ = '\0'; }

  private:
    char* end_;
    char* const last_;
};

/**
 * Formats what nearly every line consists of, text, %s, %d and %u, in a third of the instructions
 * that the C library takes. Returns false, with the text unfinished, at anything else.
 */
bool formatSimple(CutText text, std::string_view format, va_list arguments) {
    while (true) {
        const size_t plain = format.find('%');
        text.add(format.substr(0, plain));
        if (plain == std::string_view::npos) {
            text.close();
            return true;
        }
        format.remove_prefix(plain + 1);
        if (format.empty()) {
            return false;
        }
        switch (format.front()) {
            case 's':
                if (const char* string = va_arg(arguments, const char*)) {
                    text.add(string);
                    break;
                }
                return false;
            case 'd':
                text.addNumber(va_arg(arguments, int));
                break;
            case 'u':
                text.addNumber(va_arg(arguments, unsigned));
                break;
            default:
                return false;
        }
        format.remove_prefix(1);
    }
}

}  // namespace

void logLine(int priority, std::string_view source, const char* format, ...) {
    if (__android_log_is_loggable(priority, LOG_TAG, ANDROID_LOG_VERBOSE) == 0) {
        return;
    }
    char message[kMaxMessage];
    constexpr std::string_view kColon = ": ";
    char* text = message + source.copy(message, sizeof(message) - kColon.size() - 1);
    text += kColon.copy(text, kColon.size());
    char* const end = message + sizeof(message);
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);
    if (!formatSimple({text, end}, format, arguments)) {
        vsnprintf(text, static_cast<size_t>(end - text), format, again);
    }
    va_end(again);
    va_end(arguments);
    __android_log_write(priority, LOG_TAG, message);
}

}  // namespace Ursa::OS
