#include "TraceEvent.h"

#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <ctime>

namespace host {

namespace {

/** What follows a string in the largest object: the values, a second string's frame, the braces. */
constexpr size_t kReserved = 200;

constexpr size_t kEscapedSize = sizeof("\\u00ff") - 1;

bool isPlain(char c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; }

}  // namespace

TraceEvent::TraceEvent(char phase, std::string_view name) {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    char fields[160];
    const int length =
        snprintf(fields, sizeof(fields), R"({"ph":"%c","ts":%lld%06ld.%03ld,"pid":%d,"tid":%d)",
                 phase, static_cast<long long>(now.tv_sec), now.tv_nsec / 1000, now.tv_nsec % 1000,
                 getpid(), gettid());
    add_({fields, static_cast<size_t>(length)});
    if (!name.empty()) {
        add_(R"(,"name":)");
        addString_(name);
    }
}

TraceEvent TraceEvent::sliceBegin(std::string_view name) {
    TraceEvent event('B', name.empty() ? "?" : name);
    event.add_("}");
    return event;
}

TraceEvent TraceEvent::sliceEnd() {
    TraceEvent event('E', {});
    event.add_("}");
    return event;
}

TraceEvent TraceEvent::counter(std::string_view name, int64_t value) {
    TraceEvent event('C', name);
    char arguments[64];
    const int length =
        snprintf(arguments, sizeof(arguments), R"(,"args":{"value":%)" PRId64 "}}", value);
    event.add_({arguments, static_cast<size_t>(length)});
    return event;
}

TraceEvent TraceEvent::processName(std::string_view name) {
    TraceEvent event('M', "process_name");
    event.add_(R"(,"args":{"name":)");
    event.addString_(name);
    event.add_("}}");
    return event;
}

void TraceEvent::add_(std::string_view text) {
    length_ += text.copy(text_.data() + length_, kMaxSize - length_);
}

void TraceEvent::addString_(std::string_view text) {
    add_("\"");
    for (const char c : text) {
        if (length_ + kEscapedSize + kReserved > kMaxSize) {
            break;
        }
        if (isPlain(c)) {
            text_[length_++] = c;
        } else {
            char escaped[kEscapedSize + 1];
            snprintf(escaped, sizeof(escaped), "\\u%04x", static_cast<unsigned char>(c));
            add_(escaped);
        }
    }
    add_("\"");
}

}  // namespace host
