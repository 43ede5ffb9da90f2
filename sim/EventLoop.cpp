#include "sim/EventLoop.h"

#include <ctime>
#include <vector>

namespace sim {

void EventLoop::watch(int fd, Task onReadable) {
    mWatches[fd] = std::make_shared<Task>(std::move(onReadable));
}

void EventLoop::forget(int fd) { mWatches.erase(fd); }

EventLoop::TimerId EventLoop::at(Clock::time_point when, Task task) {
    const TimerId id = ++mLastTimer;
    mTimers.emplace(std::make_pair(when, id), std::move(task));
    mTimerTimes.emplace(id, when);
    return id;
}

void EventLoop::cancel(TimerId id) {
    auto time = mTimerTimes.find(id);
    if (time == mTimerTimes.end()) {
        return;
    }
    mTimers.erase({time->second, id});
    mTimerTimes.erase(time);
}

void EventLoop::run() {
    mRunning = true;
    while (mRunning) {
        waitAndDispatch();
    }
}

void EventLoop::waitAndDispatch() {
    // Timers first: only those that are due now, so that one that re-arms itself for "now" can't
    // starve the descriptors.
    const TimerId newest = mLastTimer;
    const Clock::time_point now = Clock::now();
    while (mRunning && !mTimers.empty()) {
        auto first = mTimers.begin();
        if (first->first.first > now || first->first.second > newest) {
            break;
        }
        Task task = std::move(first->second);
        mTimerTimes.erase(first->first.second);
        mTimers.erase(first);
        task();
    }
    if (!mRunning) {
        return;
    }

    std::vector<pollfd> fds;
    std::vector<Watch> watches;
    for (const auto& [fd, watch] : mWatches) {
        fds.push_back({fd, POLLIN, 0});
        watches.push_back(watch);
    }
    timespec timeout{};
    timespec* wait = nullptr;
    if (!mTimers.empty()) {
        const auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(
            mTimers.begin()->first.first - Clock::now());
        if (left.count() > 0) {
            timeout.tv_sec = left.count() / 1'000'000'000;
            timeout.tv_nsec = left.count() % 1'000'000'000;
        }
        wait = &timeout;
    }
    if (ppoll(fds.data(), fds.size(), wait, nullptr) <= 0) {
        return;
    }
    for (size_t i = 0; i < fds.size() && mRunning; ++i) {
        if (fds[i].revents == 0) {
            continue;
        }
        // The descriptor may have been forgotten, or closed and opened anew, by an earlier
        // callback.
        auto current = mWatches.find(fds[i].fd);
        if (current != mWatches.end() && current->second == watches[i]) {
            (*watches[i])();
        }
    }
}

}  // namespace sim
