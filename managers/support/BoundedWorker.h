#pragma once

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <thread>
#include <type_traits>

// For a function whose thread a signal may end at any instruction, which therefore has nothing to
// destroy. A sanitizer's instrumentation would add clean-up. Not every clang knows the attribute,
// and an unknown one is an error with -Werror.
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
 * Runs a closure whose calls may hang on a short-lived thread, and waits at most a time limit for
 * it. giveUp() ends the thread by SIGALRM, whose handler calls pthread_exit(); the signal is
 * unblocked only inside mayHang(), so elsewhere the closure runs on and must own or share what it
 * uses. An exception is logged and counts as false. One thread uses the object.
 * docs/hung-calls.md: what the called library must allow, what an ended call leaves behind.
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
    /** Starts the thread. Logs an error if that fails; see isStarted(). */
    explicit BoundedWorker(std::function<bool()> call);

    /** False if the thread could not be started; the closure then never runs. */
    bool isStarted() const { return isStarted_; }

    /** Calls giveUp(), unless wait() has returned the result. */
    ~BoundedWorker();

    BoundedWorker(const BoundedWorker&) = delete;
    BoundedWorker& operator=(const BoundedWorker&) = delete;

    /**
     * Returns the closure's result; std::nullopt after `limit`, or at once without a thread. After
     * std::nullopt the result is lost: call giveUp(). Call wait() once.
     */
    std::optional<bool> wait(std::chrono::milliseconds limit);

    /** Ends the thread if it is still running, and detaches it. Does not wait for it. */
    void giveUp();

    /**
     * Makes one call that may hang and returns its result, with SIGALRM unblocked meanwhile: if the
     * worker is given up before or during the call, the thread ends here. On any other thread it is
     * a plain call. `call` must do nothing else and destroy no object: glibc cannot unwind a
     * function with something to destroy from an arbitrary instruction.
     */
    template <typename Call>
    CORVID_NOTHING_TO_DESTROY static std::invoke_result_t<Call&> mayHang(Call&& call) {
        const bool unblocked = unblockAlarm_();
        if constexpr (std::is_void_v<std::invoke_result_t<Call&>>) {
            call();
            blockAlarm_(unblocked);
        } else {
            auto result = call();
            blockAlarm_(unblocked);
            return result;
        }
    }

  private:
    struct Shared;

    /** Unblocks SIGALRM on a worker's thread. Returns false, doing nothing, on any other. */
    static bool unblockAlarm_() noexcept;
    /** Blocks SIGALRM again if `unblocked`, the result of unblockAlarm_(). */
    static void blockAlarm_(bool unblocked) noexcept;

    std::shared_ptr<Shared> shared_;
    std::future<bool> result_;
    std::thread thread_;
    bool isStarted_ = false;
};

}  // namespace Ursa::OS::Wifi
