#include "tools/Monitor.h"

#include <poll.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <hidl/HidlTransportSupport.h>

#include "tools/Json.h"
#include "tools/Methods.h"
#include "tools/Mutex.h"
#include "tools/StopSignals.h"
#include "tools/Subscription.h"
#include "tools/WakeFd.h"

namespace Ursa::OS::Wifi::Tools {

namespace {

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
    Subscription subscription(
        &service, [shared](const Json& event) { shared->writer.event(toLine(event)); },
        [shared] { shared->died.wake(); });
    if (const uint32_t code = subscription.start(); code != 0) {
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
    const std::optional<uint32_t> code = subscription.end();
    if (!code) {
        return serviceDied();
    }
    if (wake == Wake::Failed && shared->writer.error() == EPIPE) {
        signal(SIGPIPE, SIG_DFL);
        raise(SIGPIPE);
    }
    if (wake == Wake::Failed) {
        std::fprintf(stderr, "corvid-wifi: can't write: %s\n",
                     std::strerror(shared->writer.error()));
        return MonitorEnd::Failed;
    }
    if (*code != 0) {
        std::fprintf(stderr, "corvid-wifi: the service refused to unregister (code %u)\n", *code);
        return MonitorEnd::Failed;
    }
    return MonitorEnd::Stopped;
}

}  // namespace Ursa::OS::Wifi::Tools
