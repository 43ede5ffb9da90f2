#pragma once

#include <atomic>
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
 * An epoll loop: descriptors are registered with a callback, and one thread (the owner's loop
 * thread) calls poll() again and again, on which every ready descriptor's callback runs.
 *
 * addFd() and removeFd() may be called from any thread, also from inside a callback, for any
 * descriptor, its own included. No lock is held while a callback runs.
 *
 * A callback that was removed on the loop thread is never called again, even when its event was
 * already fetched. One that is removed on another thread may be running, or just about to run, when
 * removeFd() returns: it must hold whatever it uses.
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
     * Stops watching `fd`; to be called before it is closed. An unknown descriptor, and one that
     * was closed first, are logged and tolerated.
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

    /**
     * One event fetched from the kernel. It carries the registration's token, not the descriptor:
     * (registration count << 32) | descriptor. So an event that was queued for a registration that
     * has gone cannot reach a newer one of the same descriptor number.
     */
    struct Event {
        uint64_t token;
        uint32_t events;
        SharedCallback callback;  ///< null when the registration has gone
    };

    static constexpr int kMaxEvents = 10;

    void dispatch(uint64_t token, uint32_t events);
    void run_(const Event& event);
    static SharedCallback find_(const State& state, uint64_t token);

    android::base::unique_fd epollFd_;
    ValueMutexBase<State, std::mutex> state_;
    /** Counts removals, so that a batch of events looks its callbacks up only once. */
    std::atomic<uint32_t> removals_{0};
};

}  // namespace Ursa::OS
