// The functions behind <cutils/trace.h>: what they are told goes to a file, while the property
// debug.trace.CorvidWifi is set.

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <exception>
#include <string_view>

#include <android-base/no_destructor.h>
#include <cutils/trace.h>
#include <utils/Mutex.h>

#include "PolledProperty.h"
#include "TraceEvent.h"
#include "TraceFile.h"

namespace {

using host::TraceEvent;

constexpr size_t kFileLimit = size_t{4} << 20;

host::PolledProperty tracingProperty("debug.trace.CorvidWifi", [](std::string_view text) {
    return text == "1" || text == "true" ? 1 : 0;
});

/** The tags that are traced: all or none. */
std::atomic<uint64_t> enabledTags{0};

/** Writes events of any thread, one after the other. */
class Tracer {
  public:
    void turn(bool on) EXCLUDES(mutex_) {
        const android::Mutex::Autolock lock(mutex_);
        if (!on) {
            file_.close();
        }
        enabledTags.store(on ? ATRACE_TAG_VALID_MASK : 0, std::memory_order_relaxed);
    }

    void write(const TraceEvent& event) EXCLUDES(mutex_) {
        const android::Mutex::Autolock lock(mutex_);
        if (enabledTags.load(std::memory_order_relaxed) != 0) {
            file_.add(event);
        }
    }

  private:
    android::Mutex mutex_;
    host::TraceFile file_ GUARDED_BY(mutex_){"/data/misc/trace/corvid-wifi.json", kFileLimit};
};

Tracer& tracer() {
    // Never destroyed: other static objects may be traced while they are destroyed.
    static android::base::NoDestructor<Tracer> theTracer;
    return *theTracer;
}

void write(const TraceEvent& event) {
    const int savedErrno = errno;
    try {
        tracer().write(event);
    } catch (const std::exception&) {
        // Out of memory: the trace lacks this event.
    }
    errno = savedErrno;
}

}  // namespace

extern "C" {

/** Makes the linker take this file. */
void hostAtrace() {}

void atrace_init() {
    const bool on = tracingProperty.value() != 0;
    if (on == (enabledTags.load(std::memory_order_relaxed) != 0)) {
        return;
    }
    try {
        tracer().turn(on);
    } catch (const std::exception&) {
        // Out of memory; the next call tries again.
    }
}

uint64_t atrace_get_enabled_tags() { return enabledTags.load(std::memory_order_relaxed); }

void atrace_begin_body(const char* name) { write(TraceEvent::sliceBegin(name)); }

void atrace_end_body() { write(TraceEvent::sliceEnd()); }

void atrace_int_body(const char* name, int32_t value) { write(TraceEvent::counter(name, value)); }

}  // extern "C"
