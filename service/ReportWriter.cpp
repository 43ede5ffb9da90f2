#include "service/ReportWriter.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>
#include <string>

#include <android-base/unique_fd.h>
#include <sys/socket.h>
#include <sys/stat.h>

namespace Ursa::OS::Wifi {

namespace {

using ::android::base::unique_fd;

/** Keeps a SIGPIPE that the calling thread raises from having any effect. */
class PipeSignalHeldBack {
  public:
    PipeSignalHeldBack() {
        sigset_t pending;
        sigpending(&pending);
        wasPending_ = sigismember(&pending, SIGPIPE) == 1;
        const sigset_t pipe = pipeSignal_();
        pthread_sigmask(SIG_BLOCK, &pipe, &before_);
    }
    ~PipeSignalHeldBack() {
        if (!wasPending_) {
            const sigset_t pipe = pipeSignal_();
            const timespec none = {};
            while (sigtimedwait(&pipe, nullptr, &none) == -1 && errno == EINTR) {
            }
        }
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    PipeSignalHeldBack(const PipeSignalHeldBack&) = delete;
    PipeSignalHeldBack& operator=(const PipeSignalHeldBack&) = delete;

  private:
    static sigset_t pipeSignal_() {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGPIPE);
        return set;
    }

    sigset_t before_;
    bool wasPending_ = false;
};

/** A descriptor whose writes do not wait, as far as its kind can make them wait. */
class Target {
  public:
    explicit Target(int descriptor) : descriptor_(descriptor) {
        struct stat status = {};
        if (fstat(descriptor, &status) != 0) {
            return;
        }
        isSocket_ = S_ISSOCK(status.st_mode);
        if (!S_ISFIFO(status.st_mode) && !S_ISCHR(status.st_mode)) {
            return;
        }
        // Not by a flag of the caller's descriptor, which the caller could change meanwhile. But
        // another user's pipe cannot be opened anew.
        const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
        own_.reset(open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
        if (own_.ok()) {
            descriptor_ = own_.get();
            return;
        }
        const int flags = fcntl(descriptor, F_GETFL);
        if (flags >= 0 && (flags & O_NONBLOCK) == 0 &&
            fcntl(descriptor, F_SETFL, flags | O_NONBLOCK) == 0) {
            flagsBefore_ = flags;
        }
    }
    ~Target() {
        if (flagsBefore_ >= 0) {
            fcntl(descriptor_, F_SETFL, flagsBefore_);
        }
    }
    Target(const Target&) = delete;
    Target& operator=(const Target&) = delete;

    ssize_t write(std::string_view text) const {
        return isSocket_ ? send(descriptor_, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL)
                         : ::write(descriptor_, text.data(), text.size());
    }
    /** False when there is no room in time. */
    bool waitForRoom(std::chrono::milliseconds limit) const {
        pollfd waited = {descriptor_, POLLOUT, 0};
        return poll(&waited, 1, static_cast<int>(limit.count())) > 0;
    }

  private:
    int descriptor_;
    unique_fd own_;
    bool isSocket_ = false;
    int flagsBefore_ = -1;  ///< of the caller's descriptor; -1: unchanged
};

}  // namespace

bool writeReport(int descriptor, std::string_view text, std::chrono::milliseconds patience) {
    const PipeSignalHeldBack held;
    const Target target(descriptor);
    // A reader that takes a byte now and then must not hold the caller up for ever.
    const auto end = std::chrono::steady_clock::now() + 10 * patience;
    while (!text.empty()) {
        const ssize_t written = target.write(text);
        if (written > 0) {
            text.remove_prefix(static_cast<size_t>(written));
        } else if (written == 0 || (errno != EAGAIN && errno != EINTR)) {
            return false;
        } else if (std::chrono::steady_clock::now() > end || !target.waitForRoom(patience)) {
            return false;
        }
    }
    return true;
}

}  // namespace Ursa::OS::Wifi
