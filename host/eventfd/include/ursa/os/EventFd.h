#pragma once

#include <functional>
#include <memory>

namespace Ursa::OS {

class Poll;

/**
 * Runs tasks, in the order in which they were posted, on the thread that runs Poll::poll().
 *
 * open(), post() and close() may be called from any thread, also from inside a task; the object may
 * be destroyed on any thread, also by a task of its own. No lock is held while a task runs or is
 * destroyed.
 *
 * A wake-up runs the tasks that are queued when it begins. What they post runs at the next wake-up,
 * so that a task which posts itself again does not keep the loop from its other descriptors.
 *
 * A task that throws ends Poll::poll() with that exception; the tasks behind it run at the next
 * Poll::poll().
 */
class EventFd {
  public:
    /** Creates the eventfd; aborts the process when the kernel gives none. */
    explicit EventFd(std::shared_ptr<Poll> poll);

    /** close() */
    ~EventFd();

    EventFd(const EventFd&) = delete;
    EventFd& operator=(const EventFd&) = delete;

    /**
     * Registers with the Poll. Tasks that were posted before run then. Opening an open one does
     * nothing. A closed one may be opened again.
     */
    void open();

    /**
     * Queues a task and wakes the loop. After close(), and until the next open(), the task is
     * destroyed instead. An empty function is ignored.
     */
    void post(std::function<void()> task);

    /**
     * Leaves the Poll. Tasks that did not begin are destroyed, never run. The task that is running,
     * or just beginning, on the loop thread is not waited for: tasks hold what they use. Closing a
     * closed one does nothing.
     */
    void close();

  private:
    class Queue;

    std::shared_ptr<Poll> poll_;
    /** Shared with the callback in the Poll, which may be running while this object goes. */
    std::shared_ptr<Queue> queue_;
};

}  // namespace Ursa::OS
