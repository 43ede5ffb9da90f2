#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <unordered_map>

#include <android-base/unique_fd.h>

#include "os/ValueMutex.h"

namespace Ursa::OS {

/** What a callback returns after each event. */
enum class PollAction {
    Continue = 0,  ///< keep watching the descriptor
    Remove = 1,    ///< stop watching it, as by Poll::removeFd
};

/**
 * An epoll loop: its owner's thread calls poll() repeatedly, which runs the callbacks of ready
 * descriptors. addFd() and removeFd() are thread-safe and may be called from callbacks; no lock is
 * held while a callback runs. After removeFd() on the loop thread the callback never runs again.
 * After removeFd() on another thread it may still be running or about to run, so it must own
 * whatever it uses.
 */
class Poll {
  public:
    /** `events` is the epoll mask of this wake-up: EPOLLIN, EPOLLERR, EPOLLHUP... */
    using Callback = std::function<PollAction(int fd, int events)>;

    /** Aborts the process when the kernel gives no epoll descriptor. */
    Poll();

    Poll(const Poll&) = delete;
    Poll& operator=(const Poll&) = delete;

    /**
     * Watches `fd` (not owned) for `events` (an epoll mask; level-triggered without EPOLLET).
     * Returns 0. Aborts the process if the descriptor is registered already or epoll refuses it:
     * both are programming errors.
     */
    int addFd(int fd, uint32_t events, Callback callback);

    /**
     * Stops watching `fd`; call it before the descriptor is closed. An unknown descriptor is logged
     * and ignored. So is one that was closed first, but if its number has been reused by then, the
     * process aborts.
     */
    void removeFd(int fd);

    /**
     * Waits once, at most `timeoutMs` milliseconds (0: does not wait, negative: no limit), and runs
     * the callbacks of at most 10 ready descriptors; the others wait for the next call. One thread
     * only. Returns the number of events, 0 on time-out, or a negative errno: -EINVAL, at once, if
     * there is no limit and nothing is registered.
     */
    int poll(int timeoutMs);

  private:
    friend class PollTestPeer;

    using SharedCallback = std::shared_ptr<Callback>;

    struct State {
        State();

        /** Counts registrations; wraps silently. */
        uint32_t nextToken = 1;
        std::unordered_map<uint64_t, SharedCallback> callbacks;  ///< by token
        std::unordered_map<int, uint64_t> fdMap;                 ///< descriptor to current token
    };

    static constexpr int kMaxEvents = 10;

    // An event carries its registration's token, (registration count << 32) | descriptor, instead
    // of the bare descriptor. So an event for a removed registration cannot reach a newer one that
    // reuses the descriptor's number.

    /** Looks up and runs one event's callback. */
    void dispatch(uint64_t token, uint32_t events);
    /** `callback` is null if the registration was removed. */
    void run_(const SharedCallback& callback, uint64_t token, uint32_t events);
    static SharedCallback find_(const State& state, uint64_t token);

    /**
     * The registration that dispatch() looked up last. Valid without the lock until a registration
     * is removed. Without this cache, "Poll, 1 ready" in docs/benchmarks.md misses its target of
     * 1.06 (1.08 measured).
     */
    struct Recent {
        uint64_t token = 0;
        uint32_t removals = 0;  ///< value of removals_ before the look-up
        std::weak_ptr<Callback> callback;
    };

    android::base::unique_fd epollFd_;
    ValueMutexBase<State, std::mutex> state_;
    /** Number of callbacks; poll() reads it without the lock. */
    std::atomic<size_t> registered_{0};
    /** Counts removals; each one invalidates earlier look-ups. */
    std::atomic<uint32_t> removals_{0};
    Recent recent_;  ///< loop thread only
};

}  // namespace Ursa::OS
