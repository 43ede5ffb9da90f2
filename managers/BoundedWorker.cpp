#include "managers/BoundedWorker.h"

#include <pthread.h>

#include <atomic>
#include <csignal>
#include <utility>

namespace Ursa::OS::Wifi {

/** Owned by both sides: whoever is faster decides whether the call returned or was given up. */
struct BoundedWorker::Shared {
    enum class Outcome { Running, Returned, GivenUp };

    std::atomic<Outcome> outcome{Outcome::Running};

    bool decide(Outcome wanted) {
        Outcome expected = Outcome::Running;
        return outcome.compare_exchange_strong(expected, wanted);
    }
};

namespace {

void endThread(int /*signal*/) { pthread_exit(nullptr); }

}  // namespace

BoundedWorker::BoundedWorker(std::function<bool()> call) : shared_(std::make_shared<Shared>()) {
    std::promise<bool> promise;
    result_ = promise.get_future();
    thread_ = std::thread(
        [shared = shared_, call = std::move(call), promise = std::move(promise)]() mutable {
            struct sigaction action = {};
            action.sa_handler = endThread;
            sigaction(SIGALRM, &action, nullptr);

            const bool result = call();
            if (shared->decide(Shared::Outcome::Returned)) {
                promise.set_value(result);
                return;
            }
            // Given up a moment ago. The signal may be under way, and must not meet the thread
            // in the middle of its own end.
            sigset_t alarm;
            sigemptyset(&alarm);
            sigaddset(&alarm, SIGALRM);
            pthread_sigmask(SIG_BLOCK, &alarm, nullptr);
        });
}

BoundedWorker::~BoundedWorker() { giveUp(); }

std::optional<bool> BoundedWorker::wait(std::chrono::milliseconds limit) {
    // The call may return in the very moment in which the time is over: that still counts.
    if (result_.wait_for(limit) != std::future_status::ready &&
        shared_->decide(Shared::Outcome::GivenUp)) {
        return std::nullopt;
    }
    const bool result = result_.get();
    thread_.join();
    return result;
}

void BoundedWorker::giveUp() {
    if (!thread_.joinable()) {
        return;
    }
    shared_->decide(Shared::Outcome::GivenUp);
    if (shared_->outcome == Shared::Outcome::GivenUp) {
        pthread_kill(thread_.native_handle(), SIGALRM);
    }
    thread_.detach();
}

}  // namespace Ursa::OS::Wifi
