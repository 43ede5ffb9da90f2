#include "managers/FrequencyBlockManager.h"

#include <algorithm>
#include <array>
#include <utility>

#include "client/CorvidWifiClient.h"
#include "client/SupplicantParser.h"
#include "config/CorvidWifiProperties.h"
#include "managers/support/BoundedWorker.h"
#include "managers/support/StationSignal.h"
#include "managers/support/WifiBand.h"
#include "os/Log.h"

namespace Ursa::OS::Wifi {

using Sensors::ControllerWirelessFreqBlocklists;

namespace {

/** Channels 1 to 13 and the range that is blocked for each. */
constexpr std::array<FrequencyMap, 13> kChannels = {{
    {2412, 2402, 2430},
    {2417, 2402, 2434},
    {2422, 2406, 2440},
    {2427, 2410, 2444},
    {2432, 2414, 2450},
    {2437, 2420, 2454},
    {2442, 2424, 2458},
    {2447, 2428, 2462},
    {2452, 2434, 2466},
    {2457, 2438, 2470},
    {2462, 2444, 2476},
    {2467, 2448, 2478},
    {2472, 2448, 2478},
}};

/** Where third-order intermodulation products of a channel fall. */
constexpr std::array<FrequencyMap, 3> kIm3 = {{
    {2412, 2451, 2453},
    {2432, 2475, 2477},
    {2462, 2425, 2427},
}};

constexpr int kChannelSpacing = 5;  ///< MHz
constexpr int kNoFrequency = -1;
constexpr int kNoChannel = -2;

/** An update of the list, for reports. A negative index clears the list. */
std::string updateText(int channelIndex) {
    if (channelIndex < 0) {
        return "clear";
    }
    const FrequencyMap& channel = kChannels[static_cast<size_t>(channelIndex)];
    return "block " + std::to_string(channel.startFreq) + " - " + std::to_string(channel.endFreq);
}

std::unique_ptr<Sensors::ControllerProvider> getProvider() {
    WIFI_LOGD("ControllerProvider: getting a controller provider");
    auto provider = BoundedWorker::mayHang([] { return Sensors::createControllerProvider(); });
    if (provider == nullptr) {
        WIFI_LOGE("cannot get controller provider");
        return nullptr;
    }
    WIFI_LOGD("ControllerProvider: calling APIs");
    return provider;
}

}  // namespace

int32_t chooseBlockedFrequency(int32_t staFreq, int32_t p2pFreq) {
    return staFreq != -1 && staFreq < kFirst5GhzFrequency ? staFreq : p2pFreq;
}

int channelIndex(int32_t freq) {
    if (freq < 0) {
        return kNoFrequency;
    }
    const int offset = freq - kChannels.front().centerFreq;
    const bool isChannel =
        offset >= 0 && freq <= kChannels.back().centerFreq && offset % kChannelSpacing == 0;
    return isChannel ? offset / kChannelSpacing : kNoChannel;
}

FrequencyBlockManager::FrequencyBlockManager(std::shared_ptr<CorvidWifiClient> client,
                                             std::chrono::milliseconds limit)
    : client_(std::move(client)),
      limit_(limit),
      shared_(std::make_shared<Shared>(Sysprop::corvid_wifi_im3_mitigation_band2g(false))) {
    if (client_ != nullptr) {
        setCoexActionCallback_();
    }
}

FrequencyBlockManager::~FrequencyBlockManager() = default;

void FrequencyBlockManager::setCoexActionCallback_() {
    registrations_ = registerCoexActions(
        *client_,
        {
            {CoexEventType::WIFI_STA_CONNECTED, "FrequencyBlockManager.onWifiStaConnected",
             [this](const CoexAction& /*action*/) { onWifiStaConnected_(); }},
            {CoexEventType::WIFI_STA_DISCONNECTED, "FrequencyBlockManager.onWifiStaDisconnected",
             [this](const CoexAction& action) { onWifiStaDisconnected_(action.data); }},
            {CoexEventType::WIFI_P2P_CONNECTED, "FrequencyBlockManager.onWifiP2pConnected",
             [this](const CoexAction& action) { onWifiP2pConnected_(action.data); }},
            {CoexEventType::WIFI_P2P_DISCONNECTED, "FrequencyBlockManager.onWifiP2pDisconnected",
             [this](const CoexAction& action) { onWifiP2pDisconnected_(action.data); }},
            {CoexEventType::WIFI_P2P_CHANNEL_SWITCH, "FrequencyBlockManager.onWifiP2pChannelSwitch",
             [this](const CoexAction& action) { onWifiP2pChannelSwitch_(action.data); }},
        });
}

void FrequencyBlockManager::onWifiStaConnected_() {
    WIFI_LOGI("Wi-Fi STA event(CONNECTED)");
    const StationSignal signal = pollStationSignal(*client_);
    if (signal.outcome == StationSignal::Outcome::NotSent) {
        WIFI_LOGI("failed to send wpa_supplicant command.");
        return;
    }
    WIFI_LOGD("poll signals rssi:%d freq:%d (%s)", signal.rssi, signal.frequency,
              signal.isKnown() ? "success" : "fail");
    if (signal.isKnown()) {
        WIFI_LOGD("STA Freq:%d newFreq:%d", staFreq_.load(), signal.frequency);
        staFreq_ = signal.frequency;
        updateFrequencyBlock_();
    }
}

void FrequencyBlockManager::onWifiStaDisconnected_(const std::string& event) {
    WIFI_LOGI("Wi-Fi STA event(DISCONNECTED %s)", event.c_str());
    staFreq_ = -1;
    updateFrequencyBlock_();
}

void FrequencyBlockManager::onWifiP2pConnected_(const std::string& event) {
    WIFI_LOGI("Wi-Fi P2P event(CONNECTED)");
    int freq = -1;
    if (!parsed([&] { return getInt32ValueByKey(event, "freq=", 0, freq); })) {
        return;
    }
    WIFI_LOGD("P2P Freq:%d newFreq:%d", p2pFreq_.load(), freq);
    p2pFreq_ = freq;
    updateFrequencyBlock_();
}

void FrequencyBlockManager::onWifiP2pDisconnected_(const std::string& event) {
    WIFI_LOGI("Wi-Fi P2P event(DISCONNECTED-%s)", event.c_str());
    p2pFreq_ = -1;
    updateFrequencyBlock_();
}

void FrequencyBlockManager::onWifiP2pChannelSwitch_(const std::string& event) {
    WIFI_LOGI("Wi-Fi P2P event(CHANNEL-SWITCH %s)", event.c_str());
    ChannelSwitchResult result = {};
    if (!getChannelSwitchResult(event.c_str(), result)) {
        WIFI_LOGW("failed to parse freq and ifname.");
        return;
    }
    if (result.interfaceType == NetInterfaceType::P2P) {
        WIFI_LOGD("P2P Freq:%d newFreq:%d", p2pFreq_.load(), result.frequency);
        p2pFreq_ = result.frequency;
        updateFrequencyBlock_();
    }
}

void FrequencyBlockManager::updateFrequencyBlock_() {
    WIFI_LOGI("current blocked freq:%d STA freq:%d P2P freq:%d", blockedFreq_.load(),
              staFreq_.load(), p2pFreq_.load());
    const int32_t chosen = chooseBlockedFrequency(staFreq_, p2pFreq_);
    WIFI_LOGD("chosen new freq:%d", chosen);
    if (chosen == blockedFreq_) {
        return;
    }
    const int index = channelIndex(chosen);
    lastAttempt_.begin(updateText(index));
    BoundedWorker worker(
        [weak = std::weak_ptr<CorvidWifiClient>(client_), shared = shared_, index] {
            if (const auto client = weak.lock()) {
                client->recordTask("FrequencyBlockManager.worker");
            }
            return setFrequencyBlockByChannel_(*shared, index);
        });
    if (!worker.isStarted()) {
        lastAttempt_.end(CommandOutcome::NotSent, "no thread");
        return;  // the next event tries again, as after a time-out
    }
    const auto result = worker.wait(limit_);
    if (!result) {
        WIFI_LOGE("ControllerProvider: no response");
        *lastUpdate_.lock() = {"no response", Moment::now()};
        lastAttempt_.end(CommandOutcome::TimedOut, "no response");
        worker.giveUp();
        return;  // the next event tries again
    }
    blockedFreq_ = chosen;  // also if the service refused it: only a time-out is tried again
    *lastUpdate_.lock() = {*result ? "ok" : "failed", Moment::now()};
    if (*result) {
        lastAttempt_.end(CommandOutcome::Answered);
    } else {
        lastAttempt_.end(CommandOutcome::Failed, shared_->failure.load());
    }
}

bool FrequencyBlockManager::setFrequencyBlockByChannel_(Shared& shared, int channelIndex) {
    const auto provider = getProvider();
    if (provider == nullptr) {
        shared.failure = "no controller provider";
        return false;
    }
    ControllerWirelessFreqBlocklists list;
    if (!BoundedWorker::mayHang([&] { return provider->getWirelessFreqBlocklists(list); })) {
        shared.failure = "getWirelessFreqBlocklists() failed";
        WIFI_LOGE("ControllerProvider: getWirelessFreqBlocklists() failed");
        return false;
    }
    WIFI_LOGD("Frequency is blocked by us:%d", shared.blockedByUs ? 1 : 0);
    if (!list.empty() && list.front().start != 0) {
        WIFI_LOGI("ControllerProvider: %zu ranges are previously blocked", list.size());
        for (const auto& range : list) {
            WIFI_LOGD("ControllerProvider: previously blocked (freq:%u-%u)", range.start,
                      range.end);
        }
    }
    return channelIndex < 0 ? clearBlock_(*provider, shared)
                            : addBlock_(*provider, shared, list, channelIndex);
}

bool FrequencyBlockManager::clearBlock_(Sensors::ControllerProvider& provider, Shared& shared) {
    if (!shared.blockedByUs) {
        return true;
    }
    WIFI_LOGI("ControllerProvider: clear all blocked frequencies");
    if (!BoundedWorker::mayHang([&] { return provider.clearWirelessFreqBlocklists(); })) {
        shared.failure = "clearWirelessFreqBlocklists() failed";
        WIFI_LOGE("ControllerProvider: clearWirelessFreqBlocklists() failed");
        return false;
    }
    shared.blockedByUs = false;
    shared.ranges.lock()->clear();
    return true;
}

bool FrequencyBlockManager::addBlock_(Sensors::ControllerProvider& provider, Shared& shared,
                                      ControllerWirelessFreqBlocklists& list, int channelIndex) {
    const FrequencyMap& channel = kChannels[static_cast<size_t>(channelIndex)];
    WIFI_LOGI("ControllerProvider: channel %d(freq:%u-%u) is blocked", channelIndex + 1,
              channel.startFreq, channel.endFreq);
    list.push_back({channel.startFreq, channel.endFreq});
    const auto im3 = std::find_if(kIm3.begin(), kIm3.end(), [&](const FrequencyMap& entry) {
        return entry.centerFreq == channel.centerFreq;
    });
    if (shared.im3MitigationBand2g && im3 != kIm3.end()) {
        WIFI_LOGI("ControllerProvider: extra IM3 mitigation frequency block range (freq:%u-%u)",
                  im3->startFreq, im3->endFreq);
        list.push_back({im3->startFreq, im3->endFreq});
    }
    if (!BoundedWorker::mayHang([&] { return provider.setWirelessFreqBlocklists(list); })) {
        shared.failure = "setWirelessFreqBlocklists() failed";
        WIFI_LOGE("ControllerProvider: setWirelessFreqBlocklists() failed");
        return false;
    }
    shared.blockedByUs = true;
    *shared.ranges.lock() = list;
    return true;
}

bool FrequencyBlockManager::getFrequencyBlock_(ControllerWirelessFreqBlocklists& list) {
    const auto provider = getProvider();
    if (provider == nullptr) {
        return false;
    }
    list.clear();
    if (!provider->getWirelessFreqBlocklists(list)) {
        WIFI_LOGE("ControllerProvider: getWirelessFreqBlocklists() failed");
        return false;
    }
    WIFI_LOGD("Frequency is blocked by us:%d", shared_->blockedByUs ? 1 : 0);
    if (list.empty()) {
        return false;
    }
    WIFI_LOGI("ControllerProvider: %zu ranges are blocked", list.size());
    for (const auto& range : list) {
        WIFI_LOGD("ControllerProvider: blocked (freq:%u-%u)", range.start, range.end);
    }
    return true;
}

StateTree FrequencyBlockManager::describe() const {
    StateTree state = StateTree::parts();
    state.set("staFrequency", knownOrNothing(staFreq_));
    state.set("p2pFrequency", knownOrNothing(p2pFreq_));
    state.set("chosen", knownOrNothing(blockedFreq_));
    state.set("blockedByUs", shared_->blockedByUs.load());
    state.set("im3", shared_->im3MitigationBand2g);
    StateTree& ranges = state.set("ranges", StateTree::list());
    const ControllerWirelessFreqBlocklists list = *shared_->ranges.lock();
    for (const auto& range : list) {
        StateTree& entry = ranges.add(StateTree::parts());
        entry.set("start", range.start);
        entry.set("end", range.end);
        entry.asLine(std::to_string(range.start) + " - " + std::to_string(range.end));
    }
    const Update last = *lastUpdate_.lock();
    state.set("lastResult", last.result == nullptr ? StateTree() : StateTree(last.result));
    state.set("at", last.at);
    state.set("lastAttempt", lastAttempt_.describe());
    return state;
}

bool FrequencyBlockManager::dumpInfo(std::string& out) {
    out += std::string("\tIM3 Mitigation (Band 2G): ") +
           (shared_->im3MitigationBand2g ? "1" : "0") + "\n";
    ControllerWirelessFreqBlocklists list;
    if (getFrequencyBlock_(list)) {
        for (size_t i = 0; i < list.size(); ++i) {
            out += "\tFrequency blocklist " + std::to_string(i) + " (mhz): [" +
                   std::to_string(list[i].start) + " - " + std::to_string(list[i].end) + "]\n";
        }
    }
    return true;
}

}  // namespace Ursa::OS::Wifi
