#pragma once

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <thread>

namespace Ursa::OS::Wifi {

/**
 * One call into a service that may hang, made on a short-lived thread of its own.
 *
 *     BoundedWorker worker([state] { return callTheService(*state); });
 *     const std::optional<bool> result = worker.wait(std::chrono::seconds(1));
 *     if (!result) {
 *         WIFI_LOGE("no response");
 *         worker.giveUp();
 *     }
 *
 * What ends a thread that hangs: giveUp() sends it SIGALRM, whose handler, installed by the worker
 * for the whole process, calls pthread_exit(). The thread's handle is still valid then: it is
 * detached only after the signal was sent, and a worker whose call has returned is never signalled.
 *
 * What is leaked: on glibc nothing, pthread_exit() unwinds the stack and destroys what lives on it.
 * On bionic it does not, and whatever the hung call and the closure hold stays until the process
 * ends.
 *
 * What the call must not do: run under a noexcept function or a catch (...) that does not rethrow,
 * which would end the process while unwinding; hold a lock that others need; throw. It may go on
 * after it was given up, until it meets the signal: whatever it touches it must own or share.
 */
class BoundedWorker {
  public:
    /** Starts the thread. Throws std::system_error when there is none to be had. */
    explicit BoundedWorker(std::function<bool()> call);

    /** Gives up a worker that nobody has waited for to the end. */
    ~BoundedWorker();

    BoundedWorker(const BoundedWorker&) = delete;
    BoundedWorker& operator=(const BoundedWorker&) = delete;

    /** The call's result, or nothing when it has not returned within `limit`. */
    std::optional<bool> wait(std::chrono::milliseconds limit);

    /** Lets go of the thread and ends it. */
    void giveUp();

  private:
    struct Shared;

    std::shared_ptr<Shared> shared_;
    std::future<bool> result_;
    std::thread thread_;
};

}  // namespace Ursa::OS::Wifi
