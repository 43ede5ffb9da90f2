#pragma once

#include <cstdint>
#include <ctime>

namespace Ursa::OS {

/** A point in time on the monotonic and the wall clock, which may have been set since. */
struct Moment {
    int64_t monotonicNs = 0;  ///< 0: never
    int64_t wallMs = 0;       ///< since the epoch

    static int64_t monotonicNow() { return nanoseconds_(CLOCK_MONOTONIC); }
    /** A few ms old, for a fraction of the time. */
    static int64_t coarseMonotonicNow() { return nanoseconds_(CLOCK_MONOTONIC_COARSE); }

    /** Now, for a monotonic time that was just read. The wall time may be a few ms old. */
    static Moment at(int64_t monotonicNs) {
        return {monotonicNs, nanoseconds_(CLOCK_REALTIME_COARSE) / 1'000'000};
    }
    static Moment now() { return at(monotonicNow()); }
    /** Now, by both clocks a few ms old, for a quarter of the time that now() takes. */
    static Moment coarseNow() { return at(coarseMonotonicNow()); }
    /** A past monotonic time, 0 for never; the wall time is right if the clock was not set since.
     */
    static Moment fromMonotonic(int64_t monotonicNs) {
        if (monotonicNs == 0) {
            return {};
        }
        const Moment current = now();
        return {monotonicNs, current.wallMs - (current.monotonicNs - monotonicNs) / 1'000'000};
    }

    explicit operator bool() const { return monotonicNs != 0; }

  private:
    static int64_t nanoseconds_(clockid_t clock) {
        timespec time;
        clock_gettime(clock, &time);
        return time.tv_sec * INT64_C(1'000'000'000) + time.tv_nsec;
    }
};

}  // namespace Ursa::OS
