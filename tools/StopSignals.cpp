#include "tools/StopSignals.h"

#include <pthread.h>

#include <atomic>
#include <cerrno>

namespace Ursa::OS::Wifi::Tools {

namespace {

// A signal handler reads them.
std::atomic<int> gWakeFd = -1;
std::atomic<const Deadline*> gDeadline = nullptr;
static_assert(std::atomic<int>::is_always_lock_free);
static_assert(std::atomic<const Deadline*>::is_always_lock_free);

}  // namespace

StopSignals::StopSignals(const WakeFd& wakeUp, const Deadline* deadline) {
    gWakeFd = wakeUp.fd();
    gDeadline = deadline;
    struct sigaction action = {};
    action.sa_handler = [](int /*signal*/) {
        const int savedErrno = errno;
        WakeFd::wake(gWakeFd);
        if (const Deadline* started = gDeadline) {
            started->start();  // one system call
        }
        errno = savedErrno;
    };
    // Reset: a second Ctrl-C ends the process at once.
    action.sa_flags = static_cast<int>(SA_RESTART | SA_RESETHAND);
    sigaction(SIGINT, &action, &oldInt_);
    sigaction(SIGTERM, &action, &oldTerm_);
    // The parent may have started this process with them blocked.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

StopSignals::~StopSignals() {
    sigaction(SIGINT, &oldInt_, nullptr);
    sigaction(SIGTERM, &oldTerm_, nullptr);
}

}  // namespace Ursa::OS::Wifi::Tools
