#include "managers/StaManager.h"

#include <exception>
#include <system_error>
#include <utility>

#include "client/CorvidWifiClient.h"
#include "client/SupplicantParser.h"
#include "managers/TelemetryEventLogger.h"
#include "os/Log.h"

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
        default:  // 80+80 MHz (4) too: the dump has no word for it
            return "unknown";
    }
}

}  // namespace

StaManager::StaManager(std::shared_ptr<CorvidWifiClient> client, std::chrono::milliseconds second)
    : staConnectedCallbacks(std::make_shared<CallbackMap<const StaResult&>>()),
      staDisconnectedCallbacks(std::make_shared<CallbackMap<const StaResult&>>()),
      client_(std::move(client)),
      second_(second) {
    std::vector<WifiClientCallbackItem> items;
    setStaCallback_(items);
    subscription_ = std::make_unique<WifiClientCallback>(client_, items);
}

StaManager::~StaManager() {
    {
        MutexLock lock(handlerMutex_);
        stopWorker_();
        notifyDisconnected_();
    }
    subscription_.reset();
    // A connection that came in between has started a worker again.
    MutexLock lock(handlerMutex_);
    stopWorker_();
}

void StaManager::setStaCallback_(std::vector<WifiClientCallbackItem>& items) {
    connectedHandler_ = [this](const std::string& /*event*/) { onStaConnected_(); };
    disconnectedHandler_ = [this](const std::string& event) { onStaDisconnected_(event); };
    channelSwitchHandler_ = [this](const std::string& event) { onStaChannelSwitch_(event); };
    items.push_back(
        {WifiClientCallbackType::WPA_STA_CONNECTED, connectedHandler_, NetInterfaceType::STA});
    items.push_back({WifiClientCallbackType::WPA_STA_DISCONNECTED, disconnectedHandler_,
                     NetInterfaceType::STA});
    items.push_back({WifiClientCallbackType::WPA_SOCKET_DISCONNECTED, disconnectedHandler_,
                     NetInterfaceType::STA});
    items.push_back({WifiClientCallbackType::WPA_STA_CHANNEL_SWITCH, channelSwitchHandler_,
                     NetInterfaceType::STA});
}

void StaManager::onStaConnected_() {
    WIFI_LOGI("STA event(CONNECTED)");
    MutexLock lock(handlerMutex_);
    client_->recordTask("StaManager.onStaConnected");
    TelemetryEventLogger logger(TelemetryEventType::STA_CONNECTED);
    int rssi = -1;
    int freq = -1;
    pollSignal_(rssi, freq);
    logger.reportStaManagerEvent(freq, rssi);
    startWorker_();
}

void StaManager::onStaDisconnected_(const std::string& event) {
    WIFI_LOGI("STA event(DISCONNECTED-%s)", event.c_str());
    MutexLock lock(handlerMutex_);
    client_->recordTask("StaManager.onStaDisconnected");
    TelemetryEventLogger(TelemetryEventType::STA_DISCONNECTED).reportStaManagerEvent(-1, -1);
    stopWorker_();
    notifyDisconnected_();
}

void StaManager::onStaChannelSwitch_(const std::string& event) {
    WIFI_LOGI("STA event(CHANNEL_SWITCH-%s)", event.c_str());
    client_->recordTask("StaManager.onStaChannelSwitch");
    TelemetryEventLogger logger(TelemetryEventType::STA_CHANNEL_SWITCH);
    int rssi = -1;
    int freq = -1;
    pollSignal_(rssi, freq);
    logger.reportStaManagerEvent(freq, rssi);
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
    client_->recordTask("StaManager.worker");
    failures_ = 0;
    int pause = kSamplePeriodSeconds;
    StaResult sample = {"StaManager event(CONNECTED)", -1, -1};
    while (sleep_(pause)) {
        if (pollSignal_(sample.rssi, sample.frequency)) {
            notify_(*staConnectedCallbacks, sample);
            pause = kSamplePeriodSeconds;
        } else if (failures_ >= kMaxFailures) {
            WIFI_LOGI("stop sending wpa_supplicant command. (timeout: %d sec)",
                      static_cast<int>(kMaxFailures) * kRetryPeriodSeconds);
            running_ = false;
        } else {
            pause = kRetryPeriodSeconds;
        }
    }
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
        // A subscriber's defect must end neither the worker nor the destructor, nor keep a new link
        // from its worker.
        WIFI_LOGE("A subscriber of %s failed: %s", result.event.c_str(), error.what());
    }
}

bool StaManager::pollSignal_(int& rssi, int& freq) {
    std::string reply;
    if (!client_->sendWpaCtrlCmd("SIGNAL_POLL", reply, NetInterfaceType::STA)) {
        const uint32_t failures = ++failures_;
        WIFI_LOGI("failed %u times for sending wpa_supplicant command.", failures);
        return false;
    }
    failures_ = 0;
    return parsed([&] { return getRssiAndFreq(reply, rssi, freq); });
}

void StaManager::getStaInfo(StaInfo& info) {
    info = {-1, -1, 0};
    std::string reply;
    if (!client_->sendWpaCtrlCmd("SIGNAL_POLL", reply, NetInterfaceType::STA)) {
        WIFI_LOGE("Failed to send SIGNAL_POLL command");
        return;
    }
    // A reply that is only half there gives the half that was found.
    if (!parsed([&] { return getRssiAndFreq(reply, info.rssi, info.frequency); })) {
        WIFI_LOGE("failed to parse frequency and RSSI from SIGNAL_POLL response");
        return;
    }
    if (info.frequency != -1) {
        info.bandwidth = client_->getNl80211Client()->getStaBandwidth();
    }
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
