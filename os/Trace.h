#pragma once

// What the platform's tracer shows of the daemon, under its tag "hal" (docs/debug.md). While
// tracing is off, a slice costs a load and a branch, and its name is not made.

#ifdef ATRACE_TAG
#undef ATRACE_TAG
#endif
#define ATRACE_TAG ATRACE_TAG_HAL

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include <cutils/trace.h>

namespace Ursa::OS {

/**
 * The name of a slice: parts joined by blanks, cut to kMaxSize bytes. Control characters become
 * blanks, because the kernel's trace has a line per event. Allocates nothing.
 */
class TraceName {
  public:
    static constexpr size_t kMaxSize = 127;

    template <typename... Parts>
    explicit TraceName(const Parts&... parts) {
        (add_(parts), ...);
        text_[length_] = '\0';
    }

    const char* c_str() const { return text_.data(); }

  private:
    void add_(std::string_view part);

    size_t length_ = 0;
    std::array<char, kMaxSize + 1> text_;
};

/** A slice of the calling thread's trace, for a scope. Slices nest. Any thread. */
class TraceSlice {
  public:
    /** `name` is called if tracing is on, and returns something that has a c_str(). */
    template <typename Name>
    explicit TraceSlice(const Name& name) : isOpen_(ATRACE_ENABLED() != 0) {
        if (CC_UNLIKELY(isOpen_)) {
            ATRACE_BEGIN(name().c_str());
        }
    }
    /**
     * The same where a thread begins with something: notices first whether tracing was switched on
     * or off, which costs a look at the clock on a host.
     */
    template <typename Name>
    static TraceSlice outermost(const Name& name) {
        ATRACE_INIT();
        return TraceSlice(name);
    }
    ~TraceSlice() {
        if (CC_UNLIKELY(isOpen_)) {
            ATRACE_END();
        }
    }
    TraceSlice(const TraceSlice&) = delete;
    TraceSlice& operator=(const TraceSlice&) = delete;

  private:
    const bool isOpen_;
};

/** Sets a counter, which keeps its value until it is set again. Any thread. */
inline void traceCounter(const char* name, int32_t value) { ATRACE_INT(name, value); }

}  // namespace Ursa::OS
