#include "tools/Monitor.h"

#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <android-base/thread_annotations.h>
#include <android-base/unique_fd.h>
#include <hidl/HidlTransportSupport.h>
#include <sys/eventfd.h>

#include "tools/Json.h"
#include "tools/Methods.h"

namespace Ursa::OS::Wifi::Tools {

using ::android::sp;
using ::android::wp;
using ::android::base::unique_fd;
using ::android::hardware::hidl_death_recipient;
using ::android::hardware::hidl_string;
using ::android::hardware::Return;
using ::android::hardware::Void;
using ::android::hidl::base::V1_0::IBase;
using ::vendor::corvid::hardware::wifi::V1_0::ICorvidWifiManagerCallback;
using ::vendor::corvid::hardware::wifi::V1_0::Status;

namespace {

/** Wakes the main thread: signal it from any thread or signal handler, poll it for input. */
class WakeFd {
  public:
    WakeFd() : fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        if (fd_ < 0) {
            throw std::system_error(errno, std::generic_category(), "eventfd");
        }
    }

    void wake() const { wake(fd_); }
    static void wake(int fd) {
        const uint64_t one = 1;
        // It fails only after 2^64 wake-ups that nobody has read.
        [[maybe_unused]] const ssize_t written = ::write(fd, &one, sizeof(one));
    }
    int fd() const { return fd_; }

  private:
    unique_fd fd_;
};

/** Wakes on SIGINT and SIGTERM while it lives. One at a time. */
class StopSignals {
  public:
    explicit StopSignals(const WakeFd& wakeUp) {
        wakeFd_ = wakeUp.fd();
        struct sigaction action = {};
        action.sa_handler = [](int /*signal*/) {
            const int savedErrno = errno;
            WakeFd::wake(wakeFd_);
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
    ~StopSignals() {
        sigaction(SIGINT, &oldInt_, nullptr);
        sigaction(SIGTERM, &oldTerm_, nullptr);
    }
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

  private:
    static std::atomic<int> wakeFd_;

    struct sigaction oldInt_ = {};
    struct sigaction oldTerm_ = {};
};

std::atomic<int> StopSignals::wakeFd_ = -1;
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler reads it");

/** std::mutex, known to clang's thread-safety analysis. */
class CAPABILITY("mutex") Mutex : public std::mutex {
  public:
    void lock() ACQUIRE() { std::mutex::lock(); }
    void unlock() RELEASE() { std::mutex::unlock(); }
};

class SCOPED_CAPABILITY MutexLock {
  public:
    explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~MutexLock() RELEASE() { mutex_.unlock(); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

  private:
    Mutex& mutex_;
};

/**
 * Writes the lines. An event may arrive before the service's answer to the registration does: it
 * waits for the "registered" line here, and not in the call, which the service may make before it
 * answers. Any thread.
 */
class EventWriter {
  public:
    /** `failed` wakes when a line can't be written. */
    EventWriter(std::FILE* out, const WakeFd& failed) : out_(out), failed_(failed) {}

    void registered() EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        registered_ = true;
        write_(toLine({{"event", "registered"}}));
        for (const std::string& line : waiting_) {
            write_(line);
        }
        waiting_.clear();
    }

    void event(std::string line) EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        if (registered_) {
            write_(line);
        } else {
            waiting_.push_back(std::move(line));
        }
    }

    /** The errno of the first line that could not be written, or 0. */
    int error() EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        return error_;
    }

  private:
    void write_(const std::string& line) REQUIRES(mutex_) {
        if (error_ != 0) {
            return;
        }
        if (std::fprintf(out_, "%s\n", line.c_str()) < 0 || std::fflush(out_) != 0) {
            error_ = errno;
            failed_.wake();
        }
    }

    std::FILE* const out_;
    const WakeFd& failed_;
    Mutex mutex_;
    bool registered_ GUARDED_BY(mutex_) = false;
    int error_ GUARDED_BY(mutex_) = 0;
    std::vector<std::string> waiting_ GUARDED_BY(mutex_);
};

/** What the threads of the HIDL runtime use; it lives as long as the objects they call. */
struct Shared {
    explicit Shared(std::FILE* out) : writer(out, failed) {}

    WakeFd died;
    WakeFd failed;
    EventWriter writer;
};

class EventCallback : public ICorvidWifiManagerCallback {
  public:
    explicit EventCallback(std::shared_ptr<Shared> shared) : shared_(std::move(shared)) {}

    Return<void> onChannelSwitch(int32_t frequency, int32_t width, bool isP2p) override {
        shared_->writer.event(toLine({{"event", "onChannelSwitch"},
                                      {"frequency", frequency},
                                      {"width", width},
                                      {"isP2p", isP2p}}));
        return Void();
    }

    Return<void> onAssocStarted() override {
        shared_->writer.event(toLine({{"event", "onAssocStarted"}}));
        return Void();
    }

    Return<void> onRegdomUpdated(const hidl_string& init, const hidl_string& type,
                                 const hidl_string& alpha2) override {
        shared_->writer.event(toLine({{"event", "onRegdomUpdated"},
                                      {"init", std::string(init)},
                                      {"type", std::string(type)},
                                      {"alpha2", std::string(alpha2)}}));
        return Void();
    }

  private:
    const std::shared_ptr<Shared> shared_;
};

class DeathRecipient : public hidl_death_recipient {
  public:
    explicit DeathRecipient(std::shared_ptr<Shared> shared) : shared_(std::move(shared)) {}

    void serviceDied(uint64_t /*cookie*/, const wp<IBase>& /*who*/) override {
        shared_->died.wake();
    }

  private:
    const std::shared_ptr<Shared> shared_;
};

/** What the main thread wakes for. */
enum class Wake { Stop, Failed, Died };

Wake waitForEnd(const WakeFd& stop, const Shared& shared) {
    pollfd ends[] = {
        {shared.died.fd(), POLLIN, 0}, {shared.failed.fd(), POLLIN, 0}, {stop.fd(), POLLIN, 0}};
    while (::poll(ends, std::size(ends), -1) < 0) {
        if (errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "poll");
        }
    }
    // A death counts before a signal: the callback is gone, there is nothing to unregister.
    if (ends[0].revents != 0) {
        return Wake::Died;
    }
    return ends[1].revents != 0 ? Wake::Failed : Wake::Stop;
}

MonitorEnd serviceDied() {
    std::fprintf(stderr, "corvid-wifi: the service died\n");
    return MonitorEnd::ServiceDied;
}

}  // namespace

MonitorEnd monitor(IWifi& service, std::FILE* out, const Deadline& deadline) {
    // A reader that closes the pipe is an error to be handled: the callback must be unregistered.
    signal(SIGPIPE, SIG_IGN);
    const WakeFd stop;
    const StopSignals signals(stop);

    // One thread of the runtime's own calls the callback; this one waits for the end.
    ::android::hardware::configureRpcThreadpool(1, false);
    const auto shared = std::make_shared<Shared>(out);
    const sp<EventCallback> callback = new EventCallback(shared);
    const sp<DeathRecipient> recipient = new DeathRecipient(shared);

    const Return<bool> linked = service.linkToDeath(recipient, 0);
    requireAnswer(linked);
    if (!linked) {
        throw ServiceError("the service died before the callback was registered");
    }

    uint32_t code = 0;
    const auto takeCode = [&code](const Status& status) { code = status.code; };
    requireAnswer(service.registerCorvidWifiManagerCallback(callback, takeCode));
    if (code != 0) {
        std::fprintf(stderr, "corvid-wifi: the service refused the callback (code %u)\n", code);
        return MonitorEnd::Failed;
    }
    deadline.stop();
    shared->writer.registered();

    const Wake wake = waitForEnd(stop, *shared);
    if (wake == Wake::Died) {
        return serviceDied();
    }
    deadline.start();
    const Return<void> unregistered =
        service.unregisterCorvidWifiManagerCallback(callback, takeCode);
    if (!unregistered.isOk()) {
        return serviceDied();
    }
    const bool unlinked = service.unlinkToDeath(recipient).withDefault(false);
    static_cast<void>(unlinked);  // false: it died just now, and nobody needs it any more

    if (wake == Wake::Failed && shared->writer.error() == EPIPE) {
        signal(SIGPIPE, SIG_DFL);
        raise(SIGPIPE);
    }
    if (wake == Wake::Failed) {
        std::fprintf(stderr, "corvid-wifi: can't write: %s\n",
                     std::strerror(shared->writer.error()));
        return MonitorEnd::Failed;
    }
    if (code != 0) {
        std::fprintf(stderr, "corvid-wifi: the service refused to unregister (code %u)\n", code);
        return MonitorEnd::Failed;
    }
    return MonitorEnd::Stopped;
}

}  // namespace Ursa::OS::Wifi::Tools
