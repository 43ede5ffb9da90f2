#pragma once

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <thread>
#include <type_traits>

// For a function that a signal may end at any instruction. A sanitizer would give it something to
// clean up. Not every clang knows the attribute, and an unknown one is an error with -Werror.
#if defined(__has_attribute)
#if __has_attribute(disable_sanitizer_instrumentation)
#define CORVID_NOTHING_TO_DESTROY __attribute__((noinline, disable_sanitizer_instrumentation))
#endif
#endif
#ifndef CORVID_NOTHING_TO_DESTROY
#define CORVID_NOTHING_TO_DESTROY __attribute__((noinline))
#endif

namespace Ursa::OS::Wifi {

/**
 * Makes calls that may hang, on a short-lived thread of its own, and waits no longer than a limit.
 * giveUp() ends the thread by SIGALRM, whose handler calls pthread_exit(); the thread takes that
 * signal inside mayHang() only, and only when it was given up. The closure may go on until then, so
 * it owns or shares what it touches. What it throws is logged and counts as false. Used by one
 * thread.
 *
 * What the service's library must keep to, and what a given-up call leaves behind:
 * docs/hung-calls.md.
 *
 *     BoundedWorker worker([state] {
 *         state->done = BoundedWorker::mayHang([] { return callTheService(); });
 *         return state->done;
 *     });
 *     if (!worker.isStarted()) {
 *         return false;
 *     }
 *     const std::optional<bool> result = worker.wait(std::chrono::seconds(1));
 *     if (!result) {
 *         WIFI_LOGE("no response");
 *         worker.giveUp();
 *     }
 */
class BoundedWorker {
  public:
    /** Starts the thread. If the system has none to give, logs an error; see isStarted(). */
    explicit BoundedWorker(std::function<bool()> call);

    /** Whether the thread could be started. Without one the closure is never called. */
    bool isStarted() const { return isStarted_; }

    /** Gives the worker up, unless wait() has returned its result. */
    ~BoundedWorker();

    BoundedWorker(const BoundedWorker&) = delete;
    BoundedWorker& operator=(const BoundedWorker&) = delete;

    /**
     * Returns the closure's result, or nothing if it does not return within `limit`, or at once if
     * there is no thread. Nothing means that the result is lost and giveUp() is due. Call it once.
     */
    std::optional<bool> wait(std::chrono::milliseconds limit);

    /** Ends the thread if it is still running, and detaches it. Does not wait for it. */
    void giveUp();

    /**
     * Makes one call of the service and returns its result. Ends the thread instead if this worker
     * was given up, before the call or while the call lets SIGALRM in. On any other thread it is a
     * plain call. `call` does nothing else and destroys no object: the signal may come at any of
     * its instructions, and glibc unwinds a function that has something to destroy from its calls
     * only.
     */
    template <typename Call>
    CORVID_NOTHING_TO_DESTROY static std::invoke_result_t<Call&> mayHang(Call&& call) {
        const bool isLetIn = letAlarmIn_();
        if constexpr (std::is_void_v<std::invoke_result_t<Call&>>) {
            call();
            keepAlarmOut_(isLetIn);
        } else {
            auto result = call();
            keepAlarmOut_(isLetIn);
            return result;
        }
    }

  private:
    struct Shared;

    /** Returns whether this is a worker's thread; on others it does nothing. */
    static bool letAlarmIn_() noexcept;
    static void keepAlarmOut_(bool isLetIn) noexcept;

    std::shared_ptr<Shared> shared_;
    std::future<bool> result_;
    std::thread thread_;
    bool isStarted_ = false;
};

}  // namespace Ursa::OS::Wifi
