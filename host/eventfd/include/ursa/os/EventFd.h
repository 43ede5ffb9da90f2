#pragma once

#include <functional>
#include <memory>

namespace Ursa::OS {

class Poll;

/**
 * Runs tasks, in the order of posting, on the thread that runs Poll::poll(). Thread-safe, also
 * inside a task, which may even destroy the object; no lock is held while a task runs or is
 * destroyed. A task that is posted by a task runs at the next wake-up, so one that posts itself
 * does not starve the loop. If a task throws, Poll::poll() throws; the tasks after it run at the
 * next Poll::poll().
 */
class EventFd {
  public:
    /** Creates the eventfd. Aborts if the kernel refuses. */
    explicit EventFd(std::shared_ptr<Poll> poll);

    /** Calls close(). */
    ~EventFd();

    EventFd(const EventFd&) = delete;
    EventFd& operator=(const EventFd&) = delete;

    /** Registers with the Poll, also after close(). Tasks that are already posted run then. */
    void open();

    /** Queues a task and wakes the loop; destroys it if closed. Ignores an empty function. */
    void post(std::function<void()> task);

    /**
     * Leaves the Poll and destroys the tasks that have not started. Does not wait for one that is
     * running or about to run, so a task must own what it uses.
     */
    void close();

  private:
    class Queue;

    std::shared_ptr<Poll> poll_;
    /** Shared with the callback in the Poll, which may run during destruction. */
    std::shared_ptr<Queue> queue_;
};

}  // namespace Ursa::OS
