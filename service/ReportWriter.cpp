#include "service/ReportWriter.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <ctime>

namespace Ursa::OS::Wifi {

namespace {

/** Blocks SIGPIPE on the calling thread for a scope, and discards one that was raised meanwhile. */
class PipeSignalBlocked {
  public:
    PipeSignalBlocked() {
        sigset_t pending;
        sigpending(&pending);
        wasPending_ = sigismember(&pending, SIGPIPE) == 1;
        const sigset_t pipe = pipeSignal_();
        pthread_sigmask(SIG_BLOCK, &pipe, &before_);
    }
    ~PipeSignalBlocked() {
        if (!wasPending_) {
            const sigset_t pipe = pipeSignal_();
            const timespec none = {};
            while (sigtimedwait(&pipe, nullptr, &none) == -1 && errno == EINTR) {
            }
        }
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    PipeSignalBlocked(const PipeSignalBlocked&) = delete;
    PipeSignalBlocked& operator=(const PipeSignalBlocked&) = delete;

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

/** Makes a caller's descriptor non-blocking for a scope. */
class Target {
  public:
    explicit Target(int descriptor) : descriptor_(descriptor), flags_(fcntl(descriptor, F_GETFL)) {
        if (isOpen()) {
            fcntl(descriptor_, F_SETFL, flags_ | O_NONBLOCK);
        }
    }
    ~Target() {
        if (isOpen()) {
            fcntl(descriptor_, F_SETFL, flags_);
        }
    }
    Target(const Target&) = delete;
    Target& operator=(const Target&) = delete;

    /** poll() would wait for a descriptor that is none. */
    bool isOpen() const { return flags_ >= 0; }

    /**
     * Writes at most PIPE_BUF bytes. After waitForRoom() that does not block, even if the caller
     * has cleared O_NONBLOCK meanwhile.
     */
    ssize_t write(std::string_view text) const {
        return ::write(descriptor_, text.data(), std::min<size_t>(text.size(), PIPE_BUF));
    }
    /** Returns false if there is no room in time, whatever signals are handled meanwhile. */
    bool waitForRoom(std::chrono::milliseconds limit) const {
        using std::chrono::milliseconds;
        const auto end = std::chrono::steady_clock::now() + limit;
        while (true) {
            const milliseconds left =
                std::max(std::chrono::ceil<milliseconds>(end - std::chrono::steady_clock::now()),
                         milliseconds::zero());
            pollfd waited = {descriptor_, POLLOUT, 0};
            const int ready = poll(&waited, 1, static_cast<int>(left.count()));
            if (ready >= 0 || errno != EINTR) {
                return ready > 0;
            }
        }
    }

  private:
    const int descriptor_;
    const int flags_;  ///< the caller's; negative: not a descriptor
};

}  // namespace

bool ReportWriter::write(std::string_view piece) {
    isWritten_ = isWritten_ && writeAll_(piece);
    return isWritten_;
}

bool ReportWriter::writeAll_(std::string_view piece) const {
    const PipeSignalBlocked blocked;
    const Target target(descriptor_);
    if (!target.isOpen()) {
        return false;
    }
    while (!piece.empty()) {
        // A reader that takes a byte now and then must not block this thread for ever.
        if (std::chrono::steady_clock::now() > end_ || !target.waitForRoom(patience_)) {
            return false;
        }
        const ssize_t written = target.write(piece);
        if (written > 0) {
            piece.remove_prefix(static_cast<size_t>(written));
        } else if (written == 0 || (errno != EAGAIN && errno != EINTR)) {
            return false;
        }
    }
    return true;
}

}  // namespace Ursa::OS::Wifi
