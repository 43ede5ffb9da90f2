#pragma once

#include <poll.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <utility>

namespace sim {

using Duration = std::chrono::nanoseconds;

/**
 * The simulator's one thread: waits for readable descriptors and for timers, and calls what was
 * registered for them. Descriptors are not owned. Callbacks may add and remove anything, themselves
 * included; what was removed is not called any more, also when it was already found ready.
 */
class EventLoop {
  public:
    using Clock = std::chrono::steady_clock;
    using Task = std::function<void()>;
    using TimerId = uint64_t;

    /** Calls `onReadable` whenever `fd` is readable or hung up. Replaces an earlier registration.
     */
    void watch(int fd, Task onReadable);
    void forget(int fd);

    /** Calls `task` once, not before `when`; tasks of the same instant in the order of the calls.
     */
    TimerId at(Clock::time_point when, Task task);
    TimerId after(Clock::duration delay, Task task) {
        return at(Clock::now() + delay, std::move(task));
    }
    /** Does nothing for a timer that has run. */
    void cancel(TimerId id);

    /** Runs until stop(). */
    void run();
    void stop() { running_ = false; }

  private:
    void waitAndDispatch();

    using Watch = std::shared_ptr<Task>;
    std::map<int, Watch> watches_;
    std::map<std::pair<Clock::time_point, TimerId>, Task> timers_;
    std::map<TimerId, Clock::time_point> timerTimes_;
    TimerId lastTimer_ = 0;
    bool running_ = false;
};

}  // namespace sim
