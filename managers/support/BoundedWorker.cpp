#include "managers/support/BoundedWorker.h"

#include <pthread.h>

#include <atomic>
#include <csignal>
#include <exception>
#include <system_error>
#include <utility>

#include "os/Log.h"

namespace Ursa::OS::Wifi {

namespace {

enum class Outcome { Running, Returned, GivenUp };

static_assert(std::atomic<Outcome>::is_always_lock_free, "a signal handler reads it");

/** The outcome of this thread's worker; null on a thread that is no worker's. */
thread_local const std::atomic<Outcome>* outcomeHere = nullptr;

void endWorker(int /*signal*/) {
    if (outcomeHere != nullptr && *outcomeHere == Outcome::GivenUp) {
        pthread_exit(nullptr);
    }
}

sigset_t alarmSignal() noexcept {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGALRM);
    return set;
}

/** Blocks SIGALRM for a scope, on this thread and on those that it starts meanwhile. */
class AlarmBlocked {
  public:
    AlarmBlocked() {
        const sigset_t alarm = alarmSignal();
        pthread_sigmask(SIG_BLOCK, &alarm, &before_);
    }
    ~AlarmBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    AlarmBlocked(const AlarmBlocked&) = delete;
    AlarmBlocked& operator=(const AlarmBlocked&) = delete;

  private:
    sigset_t before_;
};

}  // namespace

/** Shared by both threads. The first to decide() sets whether the call returned or was given up. */
struct BoundedWorker::Shared {
    std::atomic<Outcome> outcome{Outcome::Running};
    /** Not on the thread's stack: unwinding it would report a broken promise. */
    std::promise<bool> promise;

    bool decide(Outcome wanted) {
        Outcome expected = Outcome::Running;
        return outcome.compare_exchange_strong(expected, wanted);
    }
};

BoundedWorker::BoundedWorker(std::function<bool()> call) : shared_(std::make_shared<Shared>()) {
    // Set every time, because the process's handler may have been replaced since.
    struct sigaction action = {};
    action.sa_handler = endWorker;
    action.sa_flags = SA_RESTART;  // a SIGALRM from elsewhere must not make system calls fail
    sigaction(SIGALRM, &action, nullptr);

    result_ = shared_->promise.get_future();
    const AlarmBlocked blocked;
    try {
        thread_ = std::thread([shared = shared_, call = std::move(call)] {
            outcomeHere = &shared->outcome;
            bool result = false;
            try {
                result = call();
            } catch (const std::exception& error) {
                // mayHang() was left with SIGALRM unblocked. (The forced unwinding of a thread that
                // was given up is no std::exception and is not caught here.)
                blockAlarm_(true);
                WIFI_LOGE("A call failed: %s", error.what());
            }
            if (shared->decide(Outcome::Returned)) {
                shared->promise.set_value(result);
            }
        });
        isStarted_ = true;
    } catch (const std::system_error& error) {
        WIFI_LOGE("Failed to start a thread: %s", error.what());
    }
}

BoundedWorker::~BoundedWorker() { giveUp(); }

std::optional<bool> BoundedWorker::wait(std::chrono::milliseconds limit) {
    if (!isStarted_) {
        return std::nullopt;
    }
    // A call that returns just as the limit passes still counts: decide() then fails.
    if (result_.wait_for(limit) != std::future_status::ready && shared_->decide(Outcome::GivenUp)) {
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
    shared_->decide(Outcome::GivenUp);
    if (shared_->outcome == Outcome::GivenUp) {
        pthread_kill(thread_.native_handle(), SIGALRM);
    }
    thread_.detach();
}

CORVID_NOTHING_TO_DESTROY bool BoundedWorker::unblockAlarm_() noexcept {
    if (outcomeHere == nullptr) {
        return false;
    }
    const sigset_t alarm = alarmSignal();
    pthread_sigmask(SIG_UNBLOCK, &alarm, nullptr);
    return true;
}

CORVID_NOTHING_TO_DESTROY void BoundedWorker::blockAlarm_(bool unblocked) noexcept {
    if (unblocked) {
        const sigset_t alarm = alarmSignal();
        pthread_sigmask(SIG_BLOCK, &alarm, nullptr);
    }
}

}  // namespace Ursa::OS::Wifi
