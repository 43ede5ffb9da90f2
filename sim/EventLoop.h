#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

struct event;
struct event_base;

namespace sim {

using Duration = std::chrono::nanoseconds;

/**
 * Waits for readable descriptors and timers and calls their callbacks, on the thread that calls
 * run(). Only post() is for other threads. Descriptors are not owned. Callbacks may add and remove
 * any descriptor or timer, even their own; a removed one is not called again.
 */
class EventLoop {
  public:
    using Clock = std::chrono::steady_clock;
    using Task = std::function<void()>;
    using TimerId = uint64_t;

    /** Throws std::runtime_error when there are no descriptors for it. */
    EventLoop();
    ~EventLoop();
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    /** Calls `onReadable` whenever `fd` is readable or hung up. Replaces an earlier callback. */
    void watch(int fd, Task onReadable);
    /** To be called before the descriptor is closed. */
    void forget(int fd);

    /** Calls `task` once, not before `when`. */
    TimerId at(Clock::time_point when, Task task);
    TimerId after(Clock::duration delay, Task task) {
        return at(Clock::now() + delay, std::move(task));
    }
    /** Ignores a timer that has already run. */
    void cancel(TimerId id);

    /** Any thread: calls `task` on the loop's thread, in the order of the calls. */
    void post(Task task);

    /** Runs until stop(). */
    void run();
    void stop();

  private:
    struct Free {
        void operator()(event* one) const;
        void operator()(event_base* base) const;
    };
    using Event = std::unique_ptr<event, Free>;
    struct Watch {
        Event event;
        std::shared_ptr<Task> task;
    };
    struct Timer {
        Event event;
        EventLoop* loop;
        TimerId id;
        Task task;
    };

    static void onReadable(int fd, short what, void* watch);
    static void onTimer(int fd, short what, void* timer);
    static void onPosted(int fd, short what, void* loop);

    const std::unique_ptr<event_base, Free> base_;
    std::map<int, Watch> watches_;
    std::map<TimerId, Timer> timers_;
    TimerId lastTimer_ = 0;

    std::mutex mutex_;
    std::vector<Task> posted_;  // guarded by mutex_
    const Event postedEvent_;
};

}  // namespace sim
