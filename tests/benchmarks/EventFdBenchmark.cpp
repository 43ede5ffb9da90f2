// A task posted across threads through EventFd against an eventfd with a locked queue.

#include <unistd.h>

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include <android-base/unique_fd.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <ursa/os/EventFd.h>

#include "Compare.h"
#include "os/Poll.h"

namespace corvid::benchmarks {
namespace {

using android::base::unique_fd;
using Ursa::OS::EventFd;
using Ursa::OS::Poll;

using Task = std::function<void()>;

class BareQueue {
  public:
    BareQueue() : thread_([this] { run_(); }) {}

    ~BareQueue() {
        post([this] { running_ = false; });
        thread_.join();
    }

    void post(Task task) {
        {
            const std::lock_guard lock(mutex_);
            tasks_.push_back(std::move(task));
        }
        eventfd_write(eventFd_.get(), 1);
    }

  private:
    void run_() {
        const unique_fd epoll(epoll_create1(EPOLL_CLOEXEC));
        epoll_event event = {};
        event.events = EPOLLIN;
        epoll_ctl(epoll.get(), EPOLL_CTL_ADD, eventFd_.get(), &event);
        while (running_) {
            epoll_wait(epoll.get(), &event, 1, -1);
            eventfd_t ignored = 0;
            eventfd_read(eventFd_.get(), &ignored);
            std::deque<Task> tasks;
            {
                const std::lock_guard lock(mutex_);
                tasks.swap(tasks_);
            }
            for (const Task& task : tasks) {
                task();
            }
        }
    }

    const unique_fd eventFd_{eventfd(0, EFD_CLOEXEC)};
    std::mutex mutex_;
    std::deque<Task> tasks_;
    bool running_ = true;
    std::thread thread_;
};

class EventFdLoop {
  public:
    EventFdLoop() {
        eventFd_.open();
        thread_ = std::thread([this] {
            while (running_) {
                poll_->poll(-1);
            }
        });
    }

    ~EventFdLoop() {
        post([this] { running_ = false; });
        thread_.join();
    }

    void post(Task task) { eventFd_.post(std::move(task)); }

  private:
    const std::shared_ptr<Poll> poll_ = std::make_shared<Poll>();
    EventFd eventFd_{poll_};
    bool running_ = true;
    std::thread thread_;
};

/** Posts `count` tasks and waits until the last has run. */
template <typename Loop>
void postAndWait(Loop& loop, int count, const unique_fd& done, int& sum) {
    for (int i = 1; i < count; ++i) {
        loop.post([&sum] { ++sum; });
    }
    loop.post([&done] { eventfd_write(done.get(), 1); });
    eventfd_t ignored = 0;
    eventfd_read(done.get(), &ignored);
}

void post(benchmark::State& state, const char* name, int tasks, Clock clock, int operations) {
    const OneProcessor oneProcessor;
    EventFdLoop subject;
    BareQueue baseline;
    const unique_fd done(eventfd(0, EFD_CLOEXEC));
    int sum = 0;
    compare(
        state, name, 1.30, clock, operations, [&] { postAndWait(subject, tasks, done, sum); },
        [&] { postAndWait(baseline, tasks, done, sum); });
}

void postOne(benchmark::State& state) {
    post(state, "Posted task, one at a time / eventfd with a queue", 1, Clock::Wall, 100);
}
BENCHMARK(postOne)->UseManualTime();

void postMany(benchmark::State& state) {
    post(state, "Posted tasks, 100 in a row / eventfd with a queue", 100, Clock::Wall, 10);
}
BENCHMARK(postMany)->UseManualTime();

}  // namespace
}  // namespace corvid::benchmarks
