#pragma once

#include <cstddef>
#include <map>

#include <sys/types.h>

#include "tests/support/Emulated.h"

namespace component {

/** What a running process has and does, as /proc tells it now. */
class ProcessFigures {
  public:
    explicit ProcessFigures(pid_t pid);

    size_t descriptors() const { return descriptors_; }
    /** Those of the program's own: ThreadSanitizer has one too, and so has an emulator. */
    size_t threads() const {
        return wakeUps_.size() - CORVID_SANITIZER_THREADS - test::kEmulatorThreads;
    }
    /** Memory of its own that no file backs, in KiB. */
    long anonymousKiB() const { return anonymousKiB_; }
    /** How often each thread, by its id, has gone to sleep of its own accord and been woken. */
    const std::map<pid_t, long>& wakeUps() const { return wakeUps_; }

    /** Whether every thread sleeps. */
    bool asleep() const { return asleep_; }

  private:
    bool asleep_ = true;
    size_t descriptors_ = 0;
    long anonymousKiB_ = 0;
    std::map<pid_t, long> wakeUps_;
};

}  // namespace component
