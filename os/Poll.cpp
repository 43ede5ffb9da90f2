#include "os/Poll.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <limits>
#include <utility>

#include <sys/epoll.h>

#include "os/Log.h"

namespace Ursa::OS {

// The loop is a library of its own: its lines carry no source name.

namespace {

uint64_t makeToken(uint32_t count, int fd) {
    return (static_cast<uint64_t>(count) << 32) | static_cast<uint64_t>(static_cast<int64_t>(fd));
}

/** TEMP_FAILURE_RETRY with the call's own type (the C library's macro gives a long). */
template <typename Call>
int retried(Call call) {
    int result;
    do {
        result = call();
    } while (result == -1 && errno == EINTR);
    return result;
}

int tokenFd(uint64_t token) { return static_cast<int>(static_cast<uint32_t>(token)); }

}  // namespace

Poll::State::State() {
    callbacks.max_load_factor(1.0F);
    fdMap.max_load_factor(1.0F);
}

Poll::Poll() : epollFd_(retried([] { return epoll_create1(EPOLL_CLOEXEC); })) {
    LOG_ALWAYS_FATAL_IF(epollFd_ < 0, "error creating epoll fd: %s", strerror(errno));
}

int Poll::addFd(int fd, uint32_t events, Callback callback) {
    epoll_event event = {};
    event.events = events;
    const auto shared = std::make_shared<Callback>(std::move(callback));
    {
        auto state = state_.lock();
        LOG_ALWAYS_FATAL_IF(state->fdMap.find(fd) != state->fdMap.end(),
                            "fd (%d) is already added to Poll", fd);
        const uint32_t number = state->nextToken;
        // Begins anew after the last; an image ends a process whose addition overflows.
        state->nextToken = number == std::numeric_limits<uint32_t>::max() ? 0 : number + 1;
        const uint64_t token = makeToken(number, fd);  // epoll_event is packed
        event.data.u64 = token;
        const auto added = state->callbacks.emplace(token, shared).first;
        try {
            state->fdMap.emplace(fd, token);
        } catch (...) {
            state->callbacks.erase(added);  // or there would be no descriptor to remove it by
            throw;
        }
        registered_.store(state->callbacks.size(), std::memory_order_release);
    }
    const int rc = retried([&] { return epoll_ctl(epollFd_.get(), EPOLL_CTL_ADD, fd, &event); });
    LOG_ALWAYS_FATAL_IF(rc, "error adding fd (%d) to epoll: %s", fd, strerror(errno));
    return 0;
}

void Poll::removeFd(int fd) {
    SharedCallback removed;  // destroyed after unlocking: its destructor may call back into Poll
    {
        auto state = state_.lock();
        const auto found = state->fdMap.find(fd);
        if (found == state->fdMap.end()) {
            ALOGE("cannot removeFd fd (%d), not added or no longer in Poll", fd);
            return;
        }
        const auto callback = state->callbacks.find(found->second);
        removed = std::move(callback->second);
        state->callbacks.erase(callback);
        state->fdMap.erase(found);
        registered_.store(state->callbacks.size(), std::memory_order_release);
        removals_.fetch_add(1, std::memory_order_release);
    }
    if (retried([&] { return epoll_ctl(epollFd_.get(), EPOLL_CTL_DEL, fd, nullptr); }) == 0) {
        return;
    }
    if (errno == EBADF) {
        ALOGE("epoll_ctl returned EBADF; fd (%d) closed before removing from epoll!", fd);
        return;
    }
    LOG_ALWAYS_FATAL("error removing fd (%d) from epoll: : %s", fd, strerror(errno));
}

int Poll::poll(int timeoutMs) {
    if (timeoutMs < 0 && registered_.load(std::memory_order_acquire) == 0) {
        return -EINVAL;
    }

    std::array<epoll_event, kMaxEvents> ready;
    const int count =
        retried([&] { return epoll_wait(epollFd_.get(), ready.data(), kMaxEvents, timeoutMs); });
    if (count < 0) {
        const int error = errno;
        ALOGE("error in epoll_wait: %s", strerror(error));
        return -error;
    }
    if (count == 0) {
        return 0;
    }

    if (count == 1) {
        dispatch(ready[0].data.u64, ready[0].events);
        return count;
    }

    // One lock for the whole batch: without it, "Poll, 10 ready / libevent with locks" in
    // docs/benchmarks.md misses its target of 1.00 (1.05 measured). Once a callback has removed a
    // registration, the batch's look-ups are stale and each later event is looked up by itself.
    std::array<SharedCallback, kMaxEvents> callbacks;
    uint32_t removals;
    {
        auto state = state_.lock();
        removals = removals_.load(std::memory_order_relaxed);
        for (int i = 0; i < count; ++i) {
            callbacks[i] = find_(*state, ready[i].data.u64);
        }
    }
    for (int i = 0; i < count; ++i) {
        if (removals_.load(std::memory_order_acquire) == removals) {
            run_(callbacks[i], ready[i].data.u64, ready[i].events);
        } else {
            callbacks[i] = nullptr;
            dispatch(ready[i].data.u64, ready[i].events);
        }
    }
    return count;
}

void Poll::dispatch(uint64_t token, uint32_t events) {
    const uint32_t removals = removals_.load(std::memory_order_acquire);
    SharedCallback callback;
    if (recent_.token == token && recent_.removals == removals) {
        callback = recent_.callback.lock();
    }
    if (callback == nullptr) {
        // In a statement of its own: the lock must be gone before the callback runs.
        callback = find_(*state_.lock(), token);
        recent_ = {token, removals, callback};
    }
    run_(callback, token, events);
}

Poll::SharedCallback Poll::find_(const State& state, uint64_t token) {
    const auto found = state.callbacks.find(token);
    return found == state.callbacks.end() ? nullptr : found->second;
}

void Poll::run_(const SharedCallback& callback, uint64_t token, uint32_t events) {
    if (callback == nullptr) {
        ALOGD("Unable to find callback for epoll_event token %016" PRIx64, token);
        return;
    }
    const int fd = tokenFd(token);
    if ((*callback)(fd, static_cast<int>(events)) == PollAction::Remove) {
        removeFd(fd);
    }
}

}  // namespace Ursa::OS
