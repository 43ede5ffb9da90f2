#include "tools/Record.h"

#include <corvid_wifi_version.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include <hidl/HidlTransportSupport.h>
#include <net/if.h>

#include "tools/Json.h"
#include "tools/Methods.h"
#include "tools/Print.h"
#include "tools/Properties.h"
#include "tools/StopSignals.h"
#include "tools/Subscription.h"
#include "tools/TraceFile.h"
#include "tools/WakeFd.h"

namespace Ursa::OS::Wifi::Tools {

using ::android::sp;
using ::vendor::corvid::hardware::wifi::V1_0::P2pInfo;
using ::vendor::corvid::hardware::wifi::V1_0::StaInfo;
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

namespace {

/** Quicker than that, the samples alone would keep the supplicant busy. */
constexpr std::chrono::milliseconds kShortestInterval = 100ms;

/** How often a service that is not there is looked for. */
constexpr std::chrono::milliseconds kRetry = 500ms;

/** The station's interface: the daemon follows no other. */
constexpr const char* kStation = "wlan0";

/** A file's name without its ending: "walk" of "/data/walk.jsonl"; none of standard output. */
std::string stemOf(const std::string& path) {
    const std::string name = path == "-" ? "" : std::filesystem::path(path).filename().string();
    const size_t dot = name.rfind('.');
    return dot == 0 ? name : name.substr(0, dot);
}

/** The kernel's P2P interfaces "p2p0" and "p2p-wlan0-N", of which the daemon follows one. */
Json interfaces() {
    Json names = {{"sta", kStation}};
    const std::unique_ptr<struct if_nameindex, void (*)(struct if_nameindex*)> list(
        if_nameindex(), if_freenameindex);
    for (const struct if_nameindex* entry = list.get();
         entry != nullptr && entry->if_name != nullptr; ++entry) {
        const std::string_view name = entry->if_name;
        if (name == "p2p0" || name.substr(0, 10) == "p2p-wlan0-") {
            names["p2p"] = name;
        }
    }
    return names;
}

/** A width code of the interface as MHz. */
Json widthOf(uint32_t code) {
    switch (code) {
        case 1:
            return 20;
        case 2:
            return 40;
        case 3:
            return 80;
        case 4:
            return "80+80";
        case 5:
            return 160;
        default:
            return nullptr;
    }
}

/** Null without a link. */
Json toJson(const StaInfo& info) {
    if (info.frequency <= 0) {
        return nullptr;
    }
    return {{"frequency_mhz", info.frequency},
            {"rssi_dbm", info.rssi != -1 ? Json(info.rssi) : Json(nullptr)},
            {"bandwidth_mhz", widthOf(info.bandwidth)}};
}

/** Null without a group. */
Json toJson(const P2pInfo& info) {
    if (info.frequency <= 0) {
        return nullptr;
    }
    static constexpr int32_t kWidths[] = {20, 40, 80, 160};
    const bool known = std::count(std::begin(kWidths), std::end(kWidths), info.bandwidth) != 0;
    return {{"frequency_mhz", info.frequency},
            {"bandwidth_mhz", known ? Json(info.bandwidth) : Json(nullptr)}};
}

/** What the threads of the HIDL runtime use; it lives as long as the objects they call. */
struct Shared {
    Shared(const std::string& path, Existing existing) : trace(path, existing, failed) {}

    WakeFd failed;
    TraceFile trace;
};

/** The service while it lives: each time it comes back it is another one. */
class Session {
  public:
    /** Throws ServiceError when the service dies or refuses the callback. */
    Session(sp<IWifi> service, const std::shared_ptr<Shared>& shared)
        : service_(std::move(service)),
          subscription_(
              service_,
              [shared](const Json& event) {
                  Json fields = event;
                  if (const auto type = fields.find("type"); type != fields.end()) {
                      fields["regdomType"] = *type;  // "type" is the record's
                      fields.erase("type");
                  }
                  shared->trace.write("callback", fields);
              },
              [died = died_] { died->wake(); }) {
        if (const uint32_t code = subscription_.start(); code != 0) {
            subscription_.end();
            throw ServiceError("the service refused the callback (code " + std::to_string(code) +
                               ")");
        }
    }

    int diedFd() const { return died_->fd(); }

    /** The fields of a sample. Throws ServiceError. */
    Json sample() {
        Json sta;
        requireAnswer(service_->getStaInfo([&sta](const StaInfo& info) { sta = toJson(info); }));
        Json p2p;
        requireAnswer(service_->getP2pInfo([&p2p](const P2pInfo& info) { p2p = toJson(info); }));
        return {{"sta", sta}, {"p2p", p2p}};
    }

    void end() { subscription_.end(); }

  private:
    const std::shared_ptr<WakeFd> died_ = std::make_shared<WakeFd>();
    const sp<IWifi> service_;
    Subscription subscription_;
};

/** One line of a terminal, written over; silent where standard error is none. */
class Progress {
  public:
    void show(size_t samples, Clock::duration passed, const std::string& now) {
        if (shown_) {
            std::fprintf(stderr, "\r\033[K%lld s, %zu samples: %s",
                         static_cast<long long>(
                             std::chrono::duration_cast<std::chrono::seconds>(passed).count()),
                         samples, now.c_str());
        }
    }
    void clear() {
        if (shown_) {
            std::fputs("\r\033[K", stderr);
        }
    }

  private:
    const bool shown_ = knowsEscapes(STDERR_FILENO);
};

/** A sample for people. */
std::string describe(const Json& sample) {
    const Json& sta = sample["sta"];
    if (sta.is_null()) {
        return "not connected";
    }
    const Json& rssi = sta["rssi_dbm"];
    return toLine(sta["frequency_mhz"]) + " MHz, " +
           (rssi.is_null() ? "signal unknown" : toLine(rssi) + " dBm");
}

class Recording {
  public:
    Recording(const RecordOptions& options, const WakeFd& stop, const Deadline& deadline)
        : options_(options),
          stop_(stop),
          deadline_(deadline),
          shared_(std::make_shared<Shared>(options.path, options.existing)) {}

    RecordEnd run() {
        // One thread of the runtime's own calls the callbacks.
        ::android::hardware::configureRpcThreadpool(1, false);
        shared_->trace.writeHeader(header_());
        const char* reason = nullptr;
        for (next_ = start_; reason == nullptr; reason = wait_()) {
            take_();
        }
        deadline_.start();
        if (session_) {
            session_->end();
        }
        shared_->trace.write("end", {{"reason", reason}});
        progress_.clear();
        return result_();
    }

  private:
    Json header_() const {
        return {{"type", "header"},
                {"format", "corvid-trace"},
                {"version", 1},
                {"source", "record"},
                {"made_by", "corvid-wifi record"},
                {"tool_version", CORVID_WIFI_VERSION},
                {"label", options_.label},
                {"interval_s", std::chrono::duration<double>(options_.interval).count()},
                {"service", std::string(IWifi::descriptor) + "/default"},
                {"interfaces", interfaces()},
                {"properties", properties_}};
    }

    /** A sample, when there is a service. */
    void take_() {
        try {
            if (!session_ && !connect_()) {
                say_("the service is not available; waiting for it");
                return;
            }
            const Json sample = session_->sample();
            shared_->trace.write("sample", sample);
            ++samples_;
            progress_.show(samples_, Clock::now() - start_, describe(sample));
        } catch (const ServiceError& error) {
            say_(error.what());
            lose_();
        }
    }

    bool connect_() {
        sp<IWifi> service = IWifi::tryGetService();
        if (service == nullptr) {
            return false;
        }
        session_ = std::make_unique<Session>(service, shared_);
        Json fields = {{"state", "started"}};
        if (Json properties = daemonProperties(); properties != properties_) {
            properties_ = std::move(properties);
            fields["properties"] = properties_;
        }
        shared_->trace.write("daemon", fields);
        trouble_.clear();
        return true;
    }

    /** Tells people of a trouble, once while it lasts. */
    void say_(const std::string& trouble) {
        if (trouble != trouble_) {
            progress_.clear();
            std::fprintf(stderr, "corvid-wifi: %s\n", trouble.c_str());
            trouble_ = trouble;
        }
    }

    /** The service is gone, or answers no more: it is looked for again. */
    void lose_() {
        if (session_) {
            session_->end();
            session_.reset();
            shared_->trace.write("daemon", {{"state", "ended"}});
        }
    }

    /** Waits for the next sample. Why the recording ends, or null. */
    const char* wait_() {
        // A sample that comes late does not move the others, and those that were missed are left.
        if (const Clock::time_point now = Clock::now(); now >= next_) {
            next_ += options_.interval * ((now - next_) / options_.interval + 1);
        }
        for (;;) {
            Clock::time_point wake =
                session_ ? next_ : std::min(next_, Clock::now() + Clock::duration(kRetry));
            if (options_.until) {
                wake = std::min(wake, start_ + *options_.until);
            }
            pollfd ends[] = {{stop_.fd(), POLLIN, 0},
                             {shared_->failed.fd(), POLLIN, 0},
                             {session_ ? session_->diedFd() : -1, POLLIN, 0}};
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(wake - Clock::now());
            const int timeout = static_cast<int>(std::clamp<int64_t>(left.count(), 0, 60'000));
            if (::poll(ends, std::size(ends), timeout) < 0 && errno != EINTR) {
                throw std::system_error(errno, std::generic_category(), "poll");
            }
            if (ends[0].revents != 0 || ends[1].revents != 0) {
                return "interrupted";
            }
            if (ends[2].revents != 0) {
                lose_();
            }
            if (options_.until && Clock::now() >= start_ + *options_.until) {
                return "duration";
            }
            if (Clock::now() >= wake) {
                return nullptr;
            }
        }
    }

    RecordEnd result_() {
        const char* name = options_.path == "-" ? "standard output" : options_.path.c_str();
        const int error = shared_->trace.error();
        if (error == EPIPE) {
            signal(SIGPIPE, SIG_DFL);
            raise(SIGPIPE);
        }
        if (error != 0) {
            std::fprintf(stderr, "corvid-wifi: %s: %s; it is whole up to its last line\n", name,
                         std::strerror(error));
            return RecordEnd::Failed;
        }
        std::fprintf(stderr, "corvid-wifi: %s: %zu samples\n", name, samples_);
        return samples_ > 0 ? RecordEnd::Done : RecordEnd::NoService;
    }

    const RecordOptions& options_;
    const WakeFd& stop_;
    const Deadline& deadline_;
    const Clock::time_point start_ = Clock::now();
    Clock::time_point next_;
    const std::shared_ptr<Shared> shared_;
    Json properties_ = daemonProperties();  ///< as the trace has them so far
    std::unique_ptr<Session> session_;
    size_t samples_ = 0;
    std::string trouble_;  ///< what was said of a service that is not there
    Progress progress_;
};

}  // namespace

RecordOptions readRecordOptions(const CommandLine& line) {
    RecordOptions options;
    options.path = line.arguments.front();
    if (options.path.empty()) {
        throw UsageError("record: FILE is empty; allowed is a path, or - for standard output");
    }
    options.label = line.has("--label") ? line.value("--label") : stemOf(options.path);
    if (line.has("--interval")) {
        options.interval = readTime("--interval", line.value("--interval"));
        if (options.interval < kShortestInterval) {
            throw UsageError("--interval is " + toLine(line.value("--interval")) +
                             "; allowed is 100ms and longer");
        }
    }
    if (line.has("--until")) {
        options.until = readTime("--until", line.value("--until"));
    }
    if (line.has("--force")) {
        options.existing = Existing::Overwrite;
    }
    return options;
}

RecordEnd record(const RecordOptions& options, const Deadline& deadline) {
    deadline.stop();
    // A reader that closes the pipe, and a file that may not grow, are errors to be handled.
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);
    const WakeFd stop;
    const StopSignals signals(stop, &deadline);
    Recording recording(options, stop, deadline);
    const double perMinute = 60 / std::chrono::duration<double>(options.interval).count();
    std::fprintf(stderr,
                 "corvid-wifi: each sample costs the daemon a SIGNAL_POLL and a netlink dump: "
                 "%.3g of each per minute. Ctrl-C ends it.\n",
                 perMinute);
    return recording.run();
}

}  // namespace Ursa::OS::Wifi::Tools
