#include "managers/StaManager.h"

#include <exception>
#include <system_error>
#include <utility>

#include "client/CorvidWifiClient.h"
#include "managers/support/TelemetryEventLogger.h"
#include "os/Log.h"
#include "os/Trace.h"

namespace Ursa::OS::Wifi {

namespace {

constexpr int kSamplePeriodSeconds = 5;
constexpr int kRetryPeriodSeconds = 30;
/** Sends that may fail in a row before the worker gives up. */
constexpr uint32_t kMaxFailures = 4;

const char* bandwidthText(int code) {
    switch (code) {
        case 1:
            return "20";
        case 2:
            return "40";
        case 3:
            return "80";
        case 5:
            return "160";
        default:  // also 80+80 MHz (4), which the dump shows as unknown
            return "unknown";
    }
}

/** Runs a step of the worker. An exception (std::bad_alloc, for example) skips only that step. */
template <typename Step>
void guarded(Step step) {
    try {
        step();
    } catch (const std::exception& error) {
        WIFI_LOGE("Worker failed and goes on: %s", error.what());
    }
}

}  // namespace

StaManager::StaManager(std::shared_ptr<CorvidWifiClient> client, std::chrono::milliseconds second)
    : staConnectedCallbacks(std::make_shared<CallbackMap<const StaResult&>>()),
      staDisconnectedCallbacks(std::make_shared<CallbackMap<const StaResult&>>()),
      client_(std::move(client)),
      second_(second) {
    setStaCallback_();
}

StaManager::~StaManager() {
    {
        MutexLock lock(handlerMutex_);
        stopWorker_();
        notifyDisconnected_();
    }
    subscription_.reset();
    // A connection before the reset may have started another worker.
    MutexLock lock(handlerMutex_);
    stopWorker_();
}

void StaManager::setStaCallback_() {
    using Type = WifiClientCallbackType;
    constexpr char kDisconnected[] = "StaManager.onStaDisconnected";
    const auto disconnected = [this](const std::string& event) { onStaDisconnected_(event); };
    const std::vector<WifiClientCallbackItem> items = {
        {Type::WPA_STA_CONNECTED, NetInterfaceType::STA, "StaManager.onStaConnected",
         [this](const std::string& /*event*/) { onStaConnected_(); }},
        {Type::WPA_STA_DISCONNECTED, NetInterfaceType::STA, kDisconnected, disconnected},
        {Type::WPA_SOCKET_DISCONNECTED, NetInterfaceType::STA, kDisconnected, disconnected},
        {Type::WPA_STA_CHANNEL_SWITCH, NetInterfaceType::STA, "StaManager.onStaChannelSwitch",
         [this](const std::string& event) { onStaChannelSwitch_(event); }},
    };
    subscription_ = std::make_unique<WifiClientCallback>(client_, items);
}

void StaManager::onStaConnected_() {
    WIFI_LOGI("STA event(CONNECTED)");
    MutexLock lock(handlerMutex_);
    *samples_.lock() = {true, -1, {}, {}};
    TelemetryEventLogger logger(TelemetryEventType::STA_CONNECTED);
    const StationSignal signal = pollSignal_();
    logger.reportStaManagerEvent(signal.frequency, signal.rssi);
    startWorker_();
}

void StaManager::onStaDisconnected_(const std::string& event) {
    WIFI_LOGI("STA event(DISCONNECTED-%s)", event.c_str());
    MutexLock lock(handlerMutex_);
    *samples_.lock() = {};
    TelemetryEventLogger(TelemetryEventType::STA_DISCONNECTED).reportStaManagerEvent(-1, -1);
    stopWorker_();
    notifyDisconnected_();
}

void StaManager::onStaChannelSwitch_(const std::string& event) {
    WIFI_LOGI("STA event(CHANNEL_SWITCH-%s)", event.c_str());
    TelemetryEventLogger logger(TelemetryEventType::STA_CHANNEL_SWITCH);
    const StationSignal signal = pollSignal_();
    logger.reportStaManagerEvent(signal.frequency, signal.rssi);
}

void StaManager::startWorker_() {
    stopWorker_();
    notifyDisconnected_();
    running_ = true;
    try {
        worker_ = std::thread([this] { workerThread_(); });
    } catch (const std::system_error& error) {
        running_ = false;
        WIFI_LOGE("Failed to start the worker: %s", error.what());
    }
}

void StaManager::stopWorker_() {
    {
        std::lock_guard<std::mutex> lock(wakeMutex_);
        running_ = false;
    }
    wake_.notify_all();
    if (worker_.joinable()) {
        worker_.join();
    }
}

void StaManager::workerThread_() {
    guarded([&] { client_->recordTask("StaManager.worker"); });
    failures_ = 0;
    int pause = kSamplePeriodSeconds;
    StaResult result = {"", -1, -1};
    const TaskScope scope(workerTask_);
    while (sleep_(pause)) {
        guarded([&] { pause = sample_(result); });
    }
}

int StaManager::sample_(StaResult& result) {
    const TraceSlice slice = TraceSlice::outermost([] { return TraceName("StaManager.sample"); });
    const StationSignal signal = pollSignal_();
    if (signal.isKnown()) {
        if (result.event.empty()) {  // built once, not for each sample
            result.event = "StaManager event(CONNECTED)";
        }
        result.frequency = signal.frequency;
        result.rssi = signal.rssi;
        notify_(*staConnectedCallbacks, result);
        return kSamplePeriodSeconds;
    }
    if (failures_ >= kMaxFailures) {
        WIFI_LOGI("stop sending wpa_supplicant command. (timeout: %d sec)",
                  static_cast<int>(kMaxFailures) * kRetryPeriodSeconds);
        running_ = false;
    }
    return kRetryPeriodSeconds;
}

bool StaManager::sleep_(int seconds) {
    std::unique_lock<std::mutex> lock(wakeMutex_);
    return !wake_.wait_for(lock, seconds * second_, [this] { return !running_; });
}

void StaManager::notifyDisconnected_() {
    notify_(*staDisconnectedCallbacks, {"StaManager event(DISCONNECTED)", -1, -1});
}

void StaManager::notify_(CallbackMap<const StaResult&>& subscribers, const StaResult& result) {
    try {
        subscribers.trigger(result);
    } catch (const std::exception& error) {
        // One subscriber's exception must not end the worker or the destructor, nor prevent the
        // next worker from starting.
        WIFI_LOGE("A subscriber of %s failed: %s", result.event.c_str(), error.what());
    }
}

StationSignal StaManager::pollSignal_() {
    const StationSignal signal = pollStationSignal(*client_);
    if (signal.isKnown()) {
        const auto samples = samples_.lock();
        samples->frequency = signal.frequency;
        samples->at = Moment::coarseNow();
        if (samples->rssi.size() == Samples::kCapacity) {
            samples->rssi.erase(samples->rssi.begin());
        }
        samples->rssi.push_back(signal.rssi);
    }
    if (signal.outcome == StationSignal::Outcome::NotSent) {
        const uint32_t failures = ++failures_;
        WIFI_LOGI("failed %u times for sending wpa_supplicant command.", failures);
    } else {
        failures_ = 0;
    }
    return signal;
}

void StaManager::getStaInfo(StaInfo& info) {
    const StationSignal signal = pollStationSignal(*client_);
    info = {signal.frequency, signal.rssi, 0};
    if (signal.outcome == StationSignal::Outcome::NotSent) {
        WIFI_LOGE("Failed to send SIGNAL_POLL command");
    } else if (!signal.isKnown()) {
        WIFI_LOGE("failed to parse frequency and RSSI from SIGNAL_POLL response");
    } else if (signal.frequency != -1) {
        info.bandwidth = client_->getNl80211Client()->getStaBandwidth();
    }
}

StateTree StaManager::describe() const {
    const Samples samples = *samples_.lock();
    StateTree state = StateTree::parts();
    state.set("link", samples.isLinkUp ? "up" : "down");
    state.set("frequency", knownOrNothing(samples.frequency));
    state.set("rssi", samples.rssi.empty() ? StateTree() : StateTree(samples.rssi.back()));
    state.set("sampledAt", samples.at);
    state.set("sampling", running_.load());
    state.set("failedPolls", failures_.load());
    StateTree& signal = state.set("signal", StateTree::list());
    for (const int rssi : samples.rssi) {
        signal.add(rssi);
    }
    return state;
}

bool StaManager::dumpInfo(std::string& out) {
    StaInfo info = {};
    getStaInfo(info);
    out += "\tSTA frequency: " + std::to_string(info.frequency) + "\n";
    out += "\tSTA rssi: " + std::to_string(info.rssi) + "\n";
    out += std::string("\tSTA bandwidth: ") + bandwidthText(info.bandwidth) + "\n";
    return true;
}

}  // namespace Ursa::OS::Wifi
