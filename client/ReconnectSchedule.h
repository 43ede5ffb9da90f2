#pragma once

#include <cstdint>

namespace Ursa::OS::Wifi {

/** When to try to connect, in milliseconds. */
struct ReconnectDelays {
    int64_t first = 25;               ///< before the first attempt
    int64_t fast = 50;                ///< between attempts, at first
    int64_t fastPhase = 5'000;        ///< until this much delay has accumulated
    int64_t slow = 5'000;             ///< between attempts from then on
    int64_t giveUpAfter = 3'600'000;  ///< no attempt once this much delay has accumulated
};

/**
 * Says how long to wait before each attempt to connect, and when to stop trying. Only the delays
 * count, not the duration of the attempts. Milliseconds; one thread at a time.
 */
class ReconnectSchedule {
  public:
    explicit ReconnectSchedule(const ReconnectDelays& delays) : delays_(delays) {}

    /** Restarts the schedule. Returns the delay before the first attempt. */
    int64_t begin() {
        accumulated_ = 0;
        return delays_.first;
    }

    /** After a failed attempt. Returns the delay before the next one. */
    int64_t next() {
        const int64_t delay = accumulated_ < delays_.fastPhase ? delays_.fast : delays_.slow;
        accumulated_ += delay;
        return delay;
    }

    bool isOver() const { return accumulated_ >= delays_.giveUpAfter; }
    int64_t giveUpAfter() const { return delays_.giveUpAfter; }

  private:
    const ReconnectDelays delays_;
    int64_t accumulated_ = 0;
};

}  // namespace Ursa::OS::Wifi
