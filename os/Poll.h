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

/** What a callback answers after each event. */
enum class PollAction {
    Continue = 0,  ///< keep watching the descriptor
    Remove = 1,    ///< stop watching it, as by Poll::removeFd
};

/**
 * An epoll loop: one thread, the owner's, calls poll() again and again, which runs the callbacks of
 * ready descriptors. addFd() and removeFd() are thread-safe and may be called from callbacks; no
 * lock is held while one runs. After removeFd() on the loop thread the callback is never called
 * again. After removeFd() on another thread it may still be running or about to run, so it must
 * hold whatever it uses.
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
     * Watches `fd` (not owned) for `events` (an epoll mask, level-triggered unless it says
     * otherwise). Returns 0. A descriptor that is registered already, and one that epoll refuses,
     * are programming errors: the process aborts.
     */
    int addFd(int fd, uint32_t events, Callback callback);

    /**
     * Stops watching `fd`; to be called before it is closed. An unknown descriptor is logged and
     * tolerated. So is one that was closed first, unless another file has its number by now: then
     * the process aborts.
     */
    void removeFd(int fd);

    /**
     * Waits once, at most `timeoutMs` milliseconds (0: only looks, negative: for ever), and runs
     * the callbacks of at most 10 ready descriptors; more are left for the next call. Only one
     * thread may call this.
     *
     * Returns the number of events, 0 on time-out, or a negative errno; -EINVAL at once when it is
     * to wait for ever and nothing is registered.
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

    // An event carries its registration's token, not the descriptor: (registration count << 32) |
    // descriptor. So an event that was queued for a registration that has gone cannot reach a newer
    // one of the same descriptor number.

    /** Looks up and runs one event's callback. */
    void dispatch(uint64_t token, uint32_t events);
    /** `callback` is null when the registration has gone. */
    void run_(const SharedCallback& callback, uint64_t token, uint32_t events);
    static SharedCallback find_(const State& state, uint64_t token);

    /**
     * The registration that dispatch() looked up last, found again without the lock as long as
     * nothing was removed since. Without it, "Poll, 1 ready" in docs/benchmarks.md misses its
     * target of 1.06 (1.08 measured).
     */
    struct Recent {
        uint64_t token = 0;
        uint32_t removals = 0;  ///< value of removals_ before the look-up
        std::weak_ptr<Callback> callback;
    };

    android::base::unique_fd epollFd_;
    ValueMutexBase<State, std::mutex> state_;
    /** How many callbacks there are, for poll() to read without the lock. */
    std::atomic<size_t> registered_{0};
    /** Counts removals: what was looked up stays true until the next one. */
    std::atomic<uint32_t> removals_{0};
    Recent recent_;  ///< loop thread only
};

}  // namespace Ursa::OS
