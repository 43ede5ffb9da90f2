#include "managers/MipiClockManager.h"

#include <array>
#include <utility>

#include <vrsensors/Sensors.h>

#include "client/CorvidWifiClient.h"
#include "client/SupplicantParser.h"
#include "managers/support/BoundedWorker.h"
#include "managers/support/StationSignal.h"
#include "managers/support/TelemetryEventLogger.h"
#include "os/Log.h"

namespace Ursa::OS::Wifi {

namespace {

constexpr int32_t kClock384 = 0;
constexpr int32_t kClock398 = 1;
constexpr int32_t kSameClock = -1;

constexpr char kCameraName[] = "worldTracking";
constexpr int kMaxAttempts = 5;

struct ClockRange {
    int32_t from;  ///< MHz, inclusive
    int32_t to;    ///< MHz, inclusive
    int32_t clock;
};

/** Frequencies that harmonics of the usual 384 MHz clock disturb. */
constexpr std::array<ClockRange, 4> kClocks = {{
    {5745, 5885, kClock398},
    {6115, 6255, kClock398},
    {6595, 6735, kClock398},
    {6915, 7055, kClock398},
}};

const char* toText(int32_t clock) {
    switch (clock) {
        case kClock384:
            return "384 mhz";
        case kClock398:
            return "398 mhz";
        case kSameClock:
            return "same frequency as last time";
        default:
            return "unknown frequency";
    }
}

}  // namespace

int32_t mipiClockOf(int32_t freq) {
    if (freq == -1) {
        return kSameClock;
    }
    for (const ClockRange& range : kClocks) {
        if (freq >= range.from && freq <= range.to) {
            return range.clock;
        }
    }
    return kClock384;
}

MipiClockManager::MipiClockManager(std::shared_ptr<CorvidWifiClient> client,
                                   std::chrono::milliseconds limit)
    : client_(std::move(client)), limit_(limit) {
    setCoexActionCallback_();
}

MipiClockManager::~MipiClockManager() { ending_ = true; }

void MipiClockManager::setCoexActionCallback_() {
    registrations_ = registerCoexActions(
        *client_,
        {
            {CoexEventType::WIFI_STA_CONNECTED, "MipiClockManager.onWifiStaConnected",
             [this](const CoexAction& /*action*/) { onWifiStaConnected_(); }},
            {CoexEventType::WIFI_STA_DISCONNECTED, "MipiClockManager.onWifiStaDisconnected",
             [this](const CoexAction& action) { onWifiStaDisconnected_(action.data); }},
            {CoexEventType::WIFI_STA_CHANNEL_SWITCH, "MipiClockManager.onWifiStaChannelSwitch",
             [this](const CoexAction& action) { onWifiStaChannelSwitch_(action.data); }},
        });
}

void MipiClockManager::onWifiStaConnected_() {
    WIFI_LOGI("Wi-Fi STA event(CONNECTED)");
    const StationSignal signal = pollStationSignal(*client_);
    if (signal.outcome == StationSignal::Outcome::NotSent) {
        WIFI_LOGE("failed to send wpa_supplicant command.");
        return;
    }
    WIFI_LOGD("poll signals rssi:%d freq:%d (%s)", signal.rssi, signal.frequency,
              signal.isKnown() ? "success" : "fail");
    if (signal.isKnown()) {
        notifyListener_(mipiClockOf(signal.frequency));
    }
}

void MipiClockManager::onWifiStaDisconnected_(const std::string& event) {
    WIFI_LOGI("Wi-Fi STA event(DISCONNECTED %s)", event.c_str());
    // The clock stays: without a link nothing is disturbed, and the next link sets its own.
}

void MipiClockManager::onWifiStaChannelSwitch_(const std::string& event) {
    WIFI_LOGI("Wi-Fi STA event(CHANNEL-SWITCH %s)", event.c_str());
    ChannelSwitchResult result = {};
    if (!getChannelSwitchResult(event.c_str(), result)) {
        WIFI_LOGE("failed to parse freq and ifname.");
        return;
    }
    const bool isSta = result.interfaceType == NetInterfaceType::STA;
    notifyListener_(isSta ? mipiClockOf(result.frequency) : kSameClock);
}

void MipiClockManager::notifyListener_(int32_t newClock) {
    WIFI_LOGD("last clock:%d new clock:%d", clock_.load(), newClock);
    if (newClock == clock_) {
        return;
    }
    const int32_t clock = newClock == kSameClock ? clock_.load() : newClock;
    bool accepted = false;
    attempts_.lock()->failed = 0;
    for (int attempt = 1; attempt <= kMaxAttempts && !accepted; ++attempt) {
        if (ending_) {
            return;  // neither accepted nor refused, so no atom is reported
        }
        WIFI_LOGD("(%d/%d) notify new clock:%d", attempt, kMaxAttempts, clock);
        accepted = notifySensorService_(clock);
        if (accepted) {
            attempts_.lock()->accepted = Moment::now();
        } else {
            ++attempts_.lock()->failed;
        }
    }
    if (accepted) {
        clock_ = clock;
    } else {
        WIFI_LOGE("notification failed %d times", kMaxAttempts);
    }
    TelemetryEventLogger(TelemetryEventType::MIPI_CLOCK)
        .reportMipiClockManagerEvent(accepted, clock);
}

bool MipiClockManager::notifySensorService_(int32_t clock) {
    lastAttempt_.begin(std::string("notifyMipiClock ") + kCameraName + " " + toText(clock));
    BoundedWorker worker([weak = std::weak_ptr<CorvidWifiClient>(client_), clock] {
        if (const auto client = weak.lock()) {
            client->recordTask("MipiClockManager.worker");
        }
        return notifyCameraProvider_(clock);
    });
    if (!worker.isStarted()) {
        lastAttempt_.end(CommandOutcome::NotSent, "no thread");
        return false;
    }
    const auto result = worker.wait(limit_);
    if (!result) {
        lastAttempt_.end(CommandOutcome::TimedOut, "no response");
        WIFI_LOGE("CameraProvider: no response");
        WIFI_LOGD("CameraProvider: killing woker");
        worker.giveUp();
        return false;
    }
    if (*result) {
        lastAttempt_.end(CommandOutcome::Answered);
    } else {
        lastAttempt_.end(CommandOutcome::Failed, "no camera provider");
    }
    return *result;
}

bool MipiClockManager::notifyCameraProvider_(int32_t clock) {
    WIFI_LOGD("CameraProvider: getting a camera provider");
    const auto provider = BoundedWorker::mayHang([] { return Sensors::createCameraProvider(); });
    if (provider == nullptr) {
        WIFI_LOGE("cannot get camera provider");
        return false;
    }
    WIFI_LOGD("CameraProvider: calling API");
    const std::string camera = kCameraName;
    // The result is ignored: a call that returns counts as accepted.
    BoundedWorker::mayHang([&] { return provider->notifyMipiClock(camera, clock); });
    WIFI_LOGD("CameraProvider: API has successfully returned");
    return true;
}

StateTree MipiClockManager::describe() const {
    const int32_t clock = clock_;
    const Attempts attempts = *attempts_.lock();
    StateTree state = StateTree::parts();
    state.set("clock", clock == kSameClock ? StateTree()
                                           : StateTree(clock == kClock384 ? "384 MHz" : "398 MHz"));
    state.set("accepted", attempts.accepted);
    state.set("attemptsFailed", attempts.failed);
    state.set("lastAttempt", lastAttempt_.describe());
    return state;
}

bool MipiClockManager::dumpInfo(std::string& out) {
    out += std::string("\tMIPI Clock is set to ") + toText(clock_) + "\n";
    return true;
}

}  // namespace Ursa::OS::Wifi
