#pragma once

#include <atomic>
#include <ctime>
#include <string_view>

namespace host {

/**
 * A property that a program follows while it runs, as a number. It is read once per second at most,
 * by whoever asks then, so that asking costs a look at the clock otherwise. Any thread, before the
 * static constructors, and inside a signal handler: reading allocates nothing and takes no lock.
 */
class PolledProperty {
  public:
    /** `parse` makes the number of the property's text, which is empty if it is not set. */
    constexpr PolledProperty(const char* name, int (*parse)(std::string_view text))
        : name_(name), parse_(parse) {}

    /** Leaves errno alone. */
    int value();

  private:
    int read_() const;

    const char* const name_;
    int (*const parse_)(std::string_view text);
    std::atomic<time_t> nextLook_{0};
    std::atomic<int> value_{0};
};

}  // namespace host
