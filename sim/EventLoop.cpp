#include "sim/EventLoop.h"

#include <algorithm>
#include <cerrno>
#include <stdexcept>

#include <android-base/unique_fd.h>
#include <event2/event.h>
#include <event2/thread.h>
#include <sys/epoll.h>
#include <sys/stat.h>

namespace sim {

namespace {

event_base* newBase() {
    static const int locks = evthread_use_pthreads();
    (void)locks;
    const std::unique_ptr<event_config, void (*)(event_config*)> config(event_config_new(),
                                                                        event_config_free);
    // A full send buffer is tried again after a fraction of a millisecond.
    event_config_set_flag(config.get(), EVENT_BASE_FLAG_PRECISE_TIMER);
    event_config_set_flag(config.get(), EVENT_BASE_FLAG_NO_CACHE_TIME);
    event_base* base = event_base_new_with_config(config.get());
    if (base == nullptr) {
        throw std::runtime_error("no event loop");
    }
    return base;
}

timeval timevalOf(EventLoop::Clock::duration delay) {
    using std::chrono::microseconds;
    const auto left = std::max(std::chrono::ceil<microseconds>(delay), microseconds(0)).count();
    constexpr int64_t kPerSecond = 1'000'000;
    return {static_cast<time_t>(left / kPerSecond), static_cast<suseconds_t>(left % kPerSecond)};
}

/** Files and /dev/null, which epoll refuses, are. */
bool isAlwaysReadable(int fd) {
    struct stat status {};
    if (fstat(fd, &status) != 0 || !(S_ISREG(status.st_mode) || S_ISCHR(status.st_mode))) {
        return false;
    }
    const android::base::unique_fd probe(epoll_create1(EPOLL_CLOEXEC));
    epoll_event readable{EPOLLIN, {}};
    return epoll_ctl(probe.get(), EPOLL_CTL_ADD, fd, &readable) != 0 && errno == EPERM;
}

}  // namespace

void EventLoop::Free::operator()(event* one) const { event_free(one); }
void EventLoop::Free::operator()(event_base* base) const { event_base_free(base); }

EventLoop::EventLoop()
    : base_(newBase()), postedEvent_(event_new(base_.get(), -1, EV_PERSIST, onPosted, this)) {}

EventLoop::~EventLoop() = default;

void EventLoop::watch(int fd, Task onReadable) {
    Watch& watch = watches_[fd];
    watch.task = std::make_shared<Task>(std::move(onReadable));
    if (isAlwaysReadable(fd)) {
        const timeval soon = {0, 1};
        watch.event.reset(event_new(base_.get(), -1, EV_PERSIST, EventLoop::onReadable, &watch));
        event_add(watch.event.get(), &soon);
    } else {
        watch.event.reset(
            event_new(base_.get(), fd, EV_READ | EV_PERSIST, EventLoop::onReadable, &watch));
        event_add(watch.event.get(), nullptr);
    }
}

void EventLoop::forget(int fd) { watches_.erase(fd); }

void EventLoop::onReadable(int /*fd*/, short /*what*/, void* watch) {
    // Its own: the task may forget the descriptor.
    const std::shared_ptr<Task> task = static_cast<Watch*>(watch)->task;
    (*task)();
}

EventLoop::TimerId EventLoop::at(Clock::time_point when, Task task) {
    const TimerId id = ++lastTimer_;
    Timer& timer = timers_[id];
    timer.loop = this;
    timer.id = id;
    timer.task = std::move(task);
    timer.event.reset(event_new(base_.get(), -1, 0, onTimer, &timer));
    const timeval delay = timevalOf(when - Clock::now());
    event_add(timer.event.get(), &delay);
    return id;
}

void EventLoop::cancel(TimerId id) { timers_.erase(id); }

void EventLoop::onTimer(int /*fd*/, short /*what*/, void* timer) {
    auto& [event, loop, id, task] = *static_cast<Timer*>(timer);
    const auto own = loop->timers_.extract(id);
    task();
}

void EventLoop::post(Task task) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        posted_.push_back(std::move(task));
    }
    event_active(postedEvent_.get(), 0, 0);
}

void EventLoop::onPosted(int /*fd*/, short /*what*/, void* loop) {
    auto& self = *static_cast<EventLoop*>(loop);
    std::vector<Task> tasks;
    {
        const std::lock_guard<std::mutex> lock(self.mutex_);
        tasks.swap(self.posted_);
    }
    for (const Task& task : tasks) {
        task();
    }
}

void EventLoop::run() { event_base_loop(base_.get(), EVLOOP_NO_EXIT_ON_EMPTY); }

void EventLoop::stop() { event_base_loopbreak(base_.get()); }

}  // namespace sim
