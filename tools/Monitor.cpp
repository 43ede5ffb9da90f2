#include "tools/Monitor.h"

#include <poll.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <functional>
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
#include "tools/Report.h"
#include "tools/StopSignals.h"
#include "tools/Subscription.h"
#include "tools/WakeFd.h"

namespace Ursa::OS::Wifi::Tools {

using ::android::sp;

namespace {

/** "2026-11-22T07:51:38.123Z", of now. */
std::string timeOfDay() {
    using std::chrono::milliseconds;
    const auto now = std::chrono::duration_cast<milliseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    const time_t seconds = static_cast<time_t>(now.count() / 1000);
    struct tm utc {};
    gmtime_r(&seconds, &utc);
    char day[32];
    strftime(day, sizeof(day), "%Y-%m-%dT%H:%M:%S", &utc);
    char text[48];
    std::snprintf(text, sizeof(text), "%s.%03dZ", day, static_cast<int>(now.count() % 1000));
    return text;
}

/**
 * Writes the lines. An event may arrive before the service's answer to the registration does: it
 * waits for the "registered" line here, and not in the call, which the service may make before it
 * answers. Any thread.
 */
class EventWriter {
  public:
    /** `failed` wakes when a line can't be written. */
    EventWriter(std::FILE* out, const WakeFd& failed, bool timestamps)
        : out_(out), failed_(failed), timestamps_(timestamps) {}

    void registered() EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        registered_ = true;
        write_({{"event", "registered"}});
        for (const Json& line : waiting_) {
            write_(line);
        }
        waiting_.clear();
    }

    void event(Json line) EXCLUDES(mutex_) {
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
    void write_(Json line) REQUIRES(mutex_) {
        if (error_ != 0) {
            return;
        }
        if (timestamps_) {
            line["time"] = timeOfDay();
        }
        if (std::fprintf(out_, "%s\n", toLine(line).c_str()) < 0 || std::fflush(out_) != 0) {
            error_ = errno;
            failed_.wake();
        }
    }

    std::FILE* const out_;
    const WakeFd& failed_;
    const bool timestamps_;
    Mutex mutex_;
    bool registered_ GUARDED_BY(mutex_) = false;
    int error_ GUARDED_BY(mutex_) = 0;
    std::vector<Json> waiting_ GUARDED_BY(mutex_);
};

/** What the threads of the HIDL runtime use; it lives as long as the objects they call. */
struct Shared {
    Shared(std::FILE* out, bool timestamps) : writer(out, failed, timestamps) {}

    WakeFd died;
    WakeFd failed;
    EventWriter writer;
};

/** What the main thread wakes for. */
enum class Wake { Stop, Failed, Died };

/** Waits for it; until then, `look` is called twice a second, if it is one. */
Wake waitForEnd(const WakeFd& stop, const Shared& shared, const std::function<void()>& look) {
    constexpr int kBetweenLooksMs = 500;
    pollfd ends[] = {
        {shared.died.fd(), POLLIN, 0}, {shared.failed.fd(), POLLIN, 0}, {stop.fd(), POLLIN, 0}};
    int ready = 0;
    while ((ready = ::poll(ends, std::size(ends), look ? kBetweenLooksMs : -1)) <= 0) {
        if (ready < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "poll");
        }
        if (look) {
            look();
        }
    }
    // A death counts before a signal: the callback is gone, there is nothing to unregister.
    if (ends[0].revents != 0) {
        return Wake::Died;
    }
    return ends[1].revents != 0 ? Wake::Failed : Wake::Stop;
}

/** Hands on what is new in the service's history, or has repeated, each time. */
class HistoryFollower {
  public:
    HistoryFollower(sp<IWifi> service, EventWriter& writer)
        : service_(std::move(service)), writer_(writer) {}

    void look() {
        const Json history = askReport(service_, {"history"}).value("history", Json::object());
        for (const Json& entry : history.value("entries", Json::array())) {
            const int64_t sequence = entry.value("sequence", int64_t{0});
            const int64_t repeats = entry.value("repeats", int64_t{1});
            if (sequence > last_ || (sequence == last_ && repeats > repeats_)) {
                last_ = sequence;
                repeats_ = repeats;
                writer_.event({{"history", entry}});
            }
        }
    }

  private:
    const sp<IWifi> service_;
    EventWriter& writer_;
    int64_t last_ = 0;
    int64_t repeats_ = 0;  ///< of the last one, which goes on as long as nothing else happens
};

MonitorEnd serviceDied() {
    std::fprintf(stderr, "corvid-wifi: the service died\n");
    return MonitorEnd::ServiceDied;
}

}  // namespace

MonitorEnd monitor(const sp<IWifi>& service, std::FILE* out, const Deadline& deadline,
                   const MonitorOptions& options) {
    // A reader that closes the pipe is an error to be handled: the callback must be unregistered.
    signal(SIGPIPE, SIG_IGN);
    const WakeFd stop;
    const StopSignals signals(stop);

    // One thread of the runtime's own calls the callback; this one waits for the end.
    ::android::hardware::configureRpcThreadpool(1, false);
    const auto shared = std::make_shared<Shared>(out, options.timestamps);
    Subscription subscription(
        service, [shared](const Json& event) { shared->writer.event(event); },
        [shared] { shared->died.wake(); });
    if (const uint32_t code = subscription.start(); code != 0) {
        std::fprintf(stderr, "corvid-wifi: the service refused the callback (code %u)\n", code);
        return MonitorEnd::Failed;
    }
    deadline.stop();
    shared->writer.registered();

    HistoryFollower follower(service, shared->writer);
    const auto look = [&follower, &deadline] {
        deadline.start();
        follower.look();
        deadline.stop();
    };
    Wake wake = Wake::Died;
    try {
        if (options.history) {
            look();
        }
        wake = waitForEnd(stop, *shared, options.history ? std::function<void()>(look) : nullptr);
    } catch (const ServiceDied&) {
        deadline.stop();
    }
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
