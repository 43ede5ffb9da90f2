#include <atomic>
#include <cerrno>
#include <cstring>
#include <deque>
#include <utility>

#include <android-base/unique_fd.h>
#include <log/log.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <ursa/os/EventFd.h>
#include <utils/Mutex.h>

#include "os/Poll.h"

namespace Ursa::OS {

using Task = std::function<void()>;

/**
 * The tasks and the eventfd. Outlives its EventFd while the callback in the Poll runs; the eventfd
 * is closed no sooner, so nobody writes to a number that another file has.
 */
class EventFd::Queue {
  public:
    Queue() : fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        LOG_ALWAYS_FATAL_IF(fd_ < 0, "error creating eventfd: %s", strerror(errno));
    }

    static void open(const std::shared_ptr<Queue>& self, Poll& poll) {
        const android::Mutex::Autolock lock(self->mutex_);
        if (self->phase_ == Phase::Open) {
            return;
        }
        self->phase_ = Phase::Open;
        self->woken_ = !self->tasks_.empty();
        if (self->woken_) {
            self->wake_();
        }
        poll.addFd(self->fd_, EPOLLIN, [self](int, int) {
            self->run_();
            return PollAction::Continue;
        });
    }

    void post(Task task) {
        {
            const android::Mutex::Autolock lock(mutex_);
            if (phase_ == Phase::Closed) {
                return;
            }
            tasks_.push_back(std::move(task));
            if (phase_ != Phase::Open || woken_) {
                return;
            }
            woken_ = true;
        }
        wake_();
    }

    void close(Poll& poll) {
        std::deque<Task> dropped;  // both destroyed after the lock is released
        std::deque<Task> droppedRest;
        const android::Mutex::Autolock lock(mutex_);
        if (phase_ == Phase::Open) {
            poll.removeFd(fd_);
        }
        phase_ = Phase::Closed;
        closes_++;
        dropped.swap(tasks_);
        droppedRest.swap(rest_);
    }

  private:
    enum class Phase { New, Open, Closed };

    void wake_() const { eventfd_write(fd_, 1); }

    /** Runs what is queued now; on the loop thread. */
    void run_() {
        std::deque<Task> batch;  // allocates: if that fails, the loop comes again
        // Reads the eventfd before it takes the queue: a task posted in between finds woken_ set
        // and belongs to this batch.
        eventfd_t ignored = 0;
        eventfd_read(fd_, &ignored);
        unsigned closes = 0;
        {
            const android::Mutex::Autolock lock(mutex_);
            if (rest_.empty()) {
                batch.swap(tasks_);
                woken_ = false;
            } else {
                batch.swap(rest_);
                wake_();  // for those posted since
            }
            closes = closes_;
        }
        try {
            while (!batch.empty() && closes_ == closes) {
                const Task task = std::move(batch.front());
                batch.pop_front();
                task();
            }
        } catch (...) {
            keepRest_(batch, closes);
            throw;
        }
    }

    /** Keeps the tasks behind one that threw, which may have done so for want of memory. */
    void keepRest_(std::deque<Task>& batch, unsigned closes) {
        const android::Mutex::Autolock lock(mutex_);
        if (batch.empty() || closes_ != closes) {
            return;
        }
        rest_.swap(batch);
        woken_ = true;
        wake_();
    }

    const android::base::unique_fd fd_;
    android::Mutex mutex_;
    std::deque<Task> tasks_ GUARDED_BY(mutex_);
    std::deque<Task> rest_ GUARDED_BY(mutex_);  ///< of a batch that a task ended; runs first
    Phase phase_ GUARDED_BY(mutex_) = Phase::New;
    /** The eventfd is, or is about to be, written, and the loop has not taken the tasks since. */
    bool woken_ GUARDED_BY(mutex_) = false;
    /** Written under the mutex; read without it between two tasks. */
    std::atomic<unsigned> closes_{0};
};

EventFd::EventFd(std::shared_ptr<Poll> poll)
    : poll_(std::move(poll)), queue_(std::make_shared<Queue>()) {}

EventFd::~EventFd() { close(); }

void EventFd::open() { Queue::open(queue_, *poll_); }

void EventFd::post(std::function<void()> task) {
    if (task) {
        queue_->post(std::move(task));
    }
}

void EventFd::close() { queue_->close(*poll_); }

}  // namespace Ursa::OS
