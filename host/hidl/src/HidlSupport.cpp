#define LOG_TAG "hidl"

#include <unistd.h>

#include <hidl/HidlSupport.h>

namespace android::hardware {
namespace details {

void logAlwaysFatal(const char* message) {
    LOG_ALWAYS_FATAL("%s", message);
    abort();  // not reached; LOG_ALWAYS_FATAL is not declared as one that never returns
}

int32_t getPidIfSharable() { return getpid(); }

}  // namespace details

static const char kEmpty[] = "";

const size_t hidl_string::kOffsetOfBuffer = 0;  // buffer_ is its first member

hidl_string::hidl_string() : buffer_(kEmpty), size_(0), ownsBuffer_(false) {}

hidl_string::~hidl_string() { clear(); }

hidl_string::hidl_string(const char* text) : hidl_string() {
    if (text != nullptr) {
        assign_(text, std::strlen(text));
    }
}

hidl_string::hidl_string(const char* text, size_t length) : hidl_string() { assign_(text, length); }

hidl_string::hidl_string(const std::string& text) : hidl_string() {
    assign_(text.c_str(), text.size());
}

hidl_string::hidl_string(const hidl_string& other) : hidl_string() {
    assign_(other.c_str(), other.size());
}

hidl_string::hidl_string(hidl_string&& other) noexcept : hidl_string() { takeFrom_(other); }

hidl_string& hidl_string::operator=(const hidl_string& other) {
    if (this != &other) {
        assign_(other.c_str(), other.size());
    }
    return *this;
}

hidl_string& hidl_string::operator=(hidl_string&& other) noexcept {
    if (this != &other) {
        clear();
        takeFrom_(other);
    }
    return *this;
}

hidl_string& hidl_string::operator=(const char* text) {
    assign_(text, text == nullptr ? 0 : std::strlen(text));
    return *this;
}

hidl_string& hidl_string::operator=(const std::string& text) {
    assign_(text.c_str(), text.size());
    return *this;
}

void hidl_string::clear() {
    if (ownsBuffer_) {
        delete[] buffer_.get();
    }
    buffer_ = kEmpty;
    size_ = 0;
    ownsBuffer_ = false;
}

void hidl_string::setToExternal(const char* data, size_t size) {
    if (size > std::numeric_limits<uint32_t>::max()) {
        details::logAlwaysFatal("a hidl_string can't have 2^32 bytes");
    }
    clear();
    buffer_ = data;
    size_ = static_cast<uint32_t>(size);
}

void hidl_string::assign_(const char* text, size_t length) {
    if (length > std::numeric_limits<uint32_t>::max() - 1) {
        details::logAlwaysFatal("a hidl_string can't have 2^32 bytes");
    }
    if (length == 0) {
        clear();
        return;
    }
    char* copy = new char[length + 1];
    std::memcpy(copy, text, length);  // before clear(): text may be a part of this string
    copy[length] = '\0';
    clear();
    buffer_ = copy;
    size_ = static_cast<uint32_t>(length);
    ownsBuffer_ = true;
}

void hidl_string::takeFrom_(hidl_string& other) noexcept {
    buffer_ = other.buffer_;
    size_ = other.size_;
    ownsBuffer_ = other.ownsBuffer_;
    other.buffer_ = kEmpty;
    other.size_ = 0;
    other.ownsBuffer_ = false;
}

static_assert(sizeof(hidl_string) == 16 && sizeof(hidl_vec<int>) == 16, "the wire's layout");
static_assert(sizeof(hidl_handle) == 16, "the wire's layout");

}  // namespace android::hardware
