#pragma once

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <thread>
#include <type_traits>

namespace Ursa::OS::Wifi {

/**
 * Calls into a service that may hang, made on a short-lived thread of its own.
 *
 *     BoundedWorker worker([state] {
 *         bool done = false;
 *         BoundedWorker::mayHang([&] { done = callTheService(); });
 *         state->done = done;
 *         return done;
 *     });
 *     if (!worker.isStarted()) {
 *         return false;
 *     }
 *     const std::optional<bool> result = worker.wait(std::chrono::seconds(1));
 *     if (!result) {
 *         WIFI_LOGE("no response");
 *         worker.giveUp();
 *     }
 *
 * What ends a thread that hangs: giveUp() sends it SIGALRM, whose handler calls pthread_exit(). The
 * handler is the process's, installed before the thread starts; on any other thread it does
 * nothing. The thread takes the signal inside mayHang() only. So it never ends in the middle of our
 * own work, with the allocator's or the log's lock in its hands; one that was given up goes no
 * further than to its next mayHang().
 *
 * Why its handle is valid when the signal is sent: it is detached after that, and until then a
 * thread keeps its handle even when it has ended. A worker whose call has returned is not signalled
 * at all: a single step decides whether it returned or was given up.
 *
 * What is leaked: on glibc nothing, pthread_exit() unwinds the stack and destroys what lives on it
 * and in the closure. bionic does not unwind: there, whatever these two hold stays until the
 * process ends.
 *
 * What the service's library must not do in a call: wait under a noexcept function (a destructor is
 * one) or under a catch (...) that does not rethrow, which would end the process while unwinding;
 * wait with a lock in its hands that others need; block SIGALRM or handle it. And on glibc a call
 * that does not return in time must be waiting in the kernel: one that computes can be unwound from
 * few places. Nor must it wait while a provider is released, which is a destructor too and so is
 * not done inside mayHang(): whoever waits for the worker goes on in time, but its thread would
 * stay.
 *
 * The closure may go on after it was given up, until it meets the signal: whatever it touches it
 * must own or share. It must not throw.
 */
class BoundedWorker {
  public:
    /** Starts the thread. When there is none to be had, an error line says so, and that is all. */
    explicit BoundedWorker(std::function<bool()> call);

    /** Whether the thread could be started: without one the closure is never called. */
    bool isStarted() const { return isStarted_; }

    /** Gives up a worker that nobody has waited for to the end. */
    ~BoundedWorker();

    BoundedWorker(const BoundedWorker&) = delete;
    BoundedWorker& operator=(const BoundedWorker&) = delete;

    /**
     * Once: the closure's result, or nothing when it has not returned within `limit`, in which case
     * it will be given up. Nothing, at once, when there is no thread.
     */
    std::optional<bool> wait(std::chrono::milliseconds limit);

    /** Ends the thread, if it is there still, and lets go of it. */
    void giveUp();

    /**
     * Makes one call of the service. On a worker's thread it does not return when the worker is
     * given up; on any other it is a plain call. `call` creates no object that needs a destructor:
     * only a function with nothing to destroy can be unwound from wherever the signal meets it.
     */
    template <typename Call>
    static void mayHang(Call&& call) {
        using Function = std::remove_reference_t<Call>;
        mayHang_([](void* function) { (*static_cast<Function*>(function))(); }, &call);
    }

  private:
    struct Shared;

    static void mayHang_(void (*call)(void*), void* argument);

    std::shared_ptr<Shared> shared_;
    std::future<bool> result_;
    std::thread thread_;
    bool isStarted_ = false;
};

}  // namespace Ursa::OS::Wifi
