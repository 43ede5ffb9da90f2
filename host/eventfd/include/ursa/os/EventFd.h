#pragma once

#include <functional>
#include <memory>

namespace Ursa::OS {

class Poll;

/**
 * Runs tasks, in the order in which they were posted, on the thread that runs Poll::poll().
 * Thread-safe, also inside a task, which may even destroy the object; no lock is held while a task
 * runs or is destroyed. What a task posts runs at the next wake-up, so that one that posts itself
 * does not starve the loop. A task that throws ends Poll::poll() with its exception; the tasks
 * behind it run at the next Poll::poll().
 */
class EventFd {
  public:
    /** Creates the eventfd. Aborts if the kernel refuses. */
    explicit EventFd(std::shared_ptr<Poll> poll);

    /** close() */
    ~EventFd();

    EventFd(const EventFd&) = delete;
    EventFd& operator=(const EventFd&) = delete;

    /** Registers with the Poll, also again after close(); tasks posted before run then. */
    void open();

    /** Queues a task and wakes the loop; destroys it if closed. Ignores an empty function. */
    void post(std::function<void()> task);

    /**
     * Leaves the Poll and destroys the tasks that have not begun. Does not wait for the one that is
     * running or just beginning, so tasks hold what they use.
     */
    void close();

  private:
    class Queue;

    std::shared_ptr<Poll> poll_;
    /** Shared with the callback in the Poll, which may run during destruction. */
    std::shared_ptr<Queue> queue_;
};

}  // namespace Ursa::OS
