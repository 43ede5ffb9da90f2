#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
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

    /** The name is cut to kNameSize bytes. */
    struct Entry {
        static constexpr size_t kNameSize = 64;

        Kind kind = Kind::Subscriber;
        uint32_t count = 0;
        int64_t longestNs = 0;
        Moment last;
        std::array<char, kNameSize> nameText;
        size_t nameLength = 0;

        std::string_view name() const { return {nameText.data(), nameLength}; }
    };

    /** The process's one object. */
    static SlowTasks& ofProcess();

    /** `name` is the task's, or the client's with its method. Only compares if it was quick. */
    void note(Kind kind, std::string_view name, int64_t durationNs) noexcept {
        if (durationNs > kLimitNs) {
            noteSlow_(kind, name, durationNs, Moment::now());
        }
    }

    std::vector<Entry> entries() const EXCLUDES(mutex_);

  private:
    friend class SlowTasksTestPeer;

    /** The entry of that name, made if there is none, in the place of the oldest if it must be. */
    Entry& entryOf_(Kind kind, std::string_view name) REQUIRES(mutex_);
    void noteSlow_(Kind kind, std::string_view name, int64_t durationNs, const Moment& now) noexcept
        EXCLUDES(mutex_);

    mutable Mutex mutex_;
    /** The last names, of which `count_` are in use. A slow task allocates nothing. */
    std::array<Entry, kMaxNames> entries_ GUARDED_BY(mutex_);
    size_t count_ GUARDED_BY(mutex_) = 0;
    std::array<int64_t, 2> warnedNs_ GUARDED_BY(mutex_) = {0, 0};
};

}  // namespace Ursa::OS::Wifi
