#include "managers/BoundedWorker.h"

#include <pthread.h>

#include <atomic>
#include <csignal>
#include <system_error>
#include <utility>

#include "os/Log.h"

// ThreadSanitizer gives a function something to clean up; see mayHang_.
#if defined(__clang__)
#define CORVID_NOTHING_TO_CLEAN_UP __attribute__((noinline, disable_sanitizer_instrumentation))
#else
#define CORVID_NOTHING_TO_CLEAN_UP __attribute__((noinline))
#endif

namespace Ursa::OS::Wifi {

/** Owned by both sides: whoever is faster decides whether the call returned or was given up. */
struct BoundedWorker::Shared {
    enum class Outcome { Running, Returned, GivenUp };

    std::atomic<Outcome> outcome{Outcome::Running};
    /** Here, and not on the thread: one that is unwound has no broken promise to report. */
    std::promise<bool> promise;

    bool decide(Outcome wanted) {
        Outcome expected = Outcome::Running;
        return outcome.compare_exchange_strong(expected, wanted);
    }
};

namespace {

thread_local bool isWorker = false;

void endWorker(int /*signal*/) {
    if (isWorker) {
        pthread_exit(nullptr);
    }
}

sigset_t alarmSignal() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGALRM);
    return set;
}

/** Keeps SIGALRM from the calling thread, and from those that it starts, for a scope. */
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

BoundedWorker::BoundedWorker(std::function<bool()> call) : shared_(std::make_shared<Shared>()) {
    // Each time: the process's handler may have been replaced since.
    struct sigaction action = {};
    action.sa_handler = endWorker;
    sigaction(SIGALRM, &action, nullptr);

    result_ = shared_->promise.get_future();
    const AlarmBlocked blocked;
    try {
        thread_ = std::thread([shared = shared_, call = std::move(call)] {
            isWorker = true;
            const bool result = call();
            if (shared->decide(Shared::Outcome::Returned)) {
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

// A function that has something to clean up can be unwound only from its calls: an unwinder that
// finds it anywhere else ends the process. This one has nothing, so the signal may come anywhere.
CORVID_NOTHING_TO_CLEAN_UP void BoundedWorker::mayHang_(void (*call)(void*), void* argument) {
    const sigset_t alarm = alarmSignal();
    sigset_t before;
    pthread_sigmask(SIG_UNBLOCK, &alarm, &before);
    call(argument);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace Ursa::OS::Wifi
