#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "os/Moment.h"
#include "os/Mutex.h"

namespace Ursa::OS::Wifi {

/**
 * Warns if a subscriber or a client's callback blocks the thread that delivers events for more than
 * a second; once per minute and kind, so that a slow device does not fill the log. Any thread.
 */
class SlowTasks {
  public:
    enum class Kind { Subscriber = 0, Callback = 1 };
    static constexpr int64_t kLimitNs = 1'000'000'000;
    static constexpr int64_t kQuietNs = 60 * kLimitNs;
    static constexpr size_t kMaxNames = 32;

    struct Entry {
        Kind kind = Kind::Subscriber;
        std::string name;
        uint32_t count = 0;
        int64_t longestNs = 0;
        Moment last;
    };

    /** The process's one object. */
    static SlowTasks& ofProcess();

    /** `name` is the task's, or the client's with its method. Only compares if it was quick. */
    void note(Kind kind, std::string_view name, int64_t durationNs) noexcept {
        if (durationNs > kLimitNs) {
            try {
                noteSlow_(kind, name, durationNs, Moment::now());
            } catch (const std::exception&) {
                // Out of memory: the report lacks this one.
            }
        }
    }

    std::vector<Entry> entries() const EXCLUDES(mutex_);

  private:
    friend class SlowTasksTestPeer;

    void noteSlow_(Kind kind, std::string_view name, int64_t durationNs, const Moment& now)
        EXCLUDES(mutex_);

    mutable Mutex mutex_;
    std::vector<Entry> entries_ GUARDED_BY(mutex_);  ///< the last kMaxNames
    std::array<int64_t, 2> warnedNs_ GUARDED_BY(mutex_) = {0, 0};
};

}  // namespace Ursa::OS::Wifi
