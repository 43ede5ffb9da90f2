#include "sim/EventLoop.h"

#include <ctime>
#include <vector>

namespace sim {

void EventLoop::watch(int fd, Task onReadable) {
    watches_[fd] = std::make_shared<Task>(std::move(onReadable));
}

void EventLoop::forget(int fd) { watches_.erase(fd); }

EventLoop::TimerId EventLoop::at(Clock::time_point when, Task task) {
    const TimerId id = ++lastTimer_;
    timers_.emplace(std::make_pair(when, id), std::move(task));
    timerTimes_.emplace(id, when);
    return id;
}

void EventLoop::cancel(TimerId id) {
    auto time = timerTimes_.find(id);
    if (time == timerTimes_.end()) {
        return;
    }
    timers_.erase({time->second, id});
    timerTimes_.erase(time);
}

void EventLoop::run() {
    running_ = true;
    while (running_) {
        waitAndDispatch();
    }
}

void EventLoop::waitAndDispatch() {
    // Timers first: only those that are due now, so that one that re-arms itself for "now" can't
    // starve the descriptors.
    const TimerId newest = lastTimer_;
    const Clock::time_point now = Clock::now();
    while (running_ && !timers_.empty()) {
        auto first = timers_.begin();
        if (first->first.first > now || first->first.second > newest) {
            break;
        }
        Task task = std::move(first->second);
        timerTimes_.erase(first->first.second);
        timers_.erase(first);
        task();
    }
    if (!running_) {
        return;
    }

    std::vector<pollfd> fds;
    std::vector<Watch> watches;
    for (const auto& [fd, watch] : watches_) {
        fds.push_back({fd, POLLIN, 0});
        watches.push_back(watch);
    }
    timespec timeout{};
    timespec* wait = nullptr;
    if (!timers_.empty()) {
        const auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(
            timers_.begin()->first.first - Clock::now());
        if (left.count() > 0) {
            timeout.tv_sec = left.count() / 1'000'000'000;
            timeout.tv_nsec = left.count() % 1'000'000'000;
        }
        wait = &timeout;
    }
    if (ppoll(fds.data(), fds.size(), wait, nullptr) <= 0) {
        return;
    }
    for (size_t i = 0; i < fds.size() && running_; ++i) {
        if (fds[i].revents == 0) {
            continue;
        }
        // The descriptor may have been forgotten, or closed and opened anew, by an earlier
        // callback.
        auto current = watches_.find(fds[i].fd);
        if (current != watches_.end() && current->second == watches[i]) {
            (*watches[i])();
        }
    }
}

}  // namespace sim
