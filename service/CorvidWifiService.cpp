#include "service/CorvidWifiService.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <exception>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include <cutils/native_handle.h>

#include "client/CorvidWifiClient.h"
#include "client/Task.h"
#include "config/FeatureList.h"
#include "managers/AllManagers.h"
#include "os/Log.h"
#include "os/Trace.h"
#include "service/ReportWriter.h"

namespace vendor::corvid::hardware::wifi::V1_0::implementation {

using ::android::hardware::Void;

namespace managers = ::Ursa::OS::Wifi;
using ::Ursa::OS::TraceSlice;

namespace {

/** How long the reader of a report may stop reading. Meanwhile no other call is served. */
constexpr std::chrono::milliseconds kReportPatience{200};

/** What the thread does while it serves a call of a manager. The first call allocates. */
template <typename Manager>
const managers::Task& callOf() {
    static const managers::Task& task = managers::Task::named(
        std::string(managers::typeName<Manager>()) + ".call", managers::Task::Kind::Other);
    return task;
}

/** Marks the thread as serving a call of a manager, for a scope. */
class CallScope {
  public:
    explicit CallScope(const managers::Task& task)
        : slice_(TraceSlice::outermost([&]() -> const std::string& { return task.name(); })),
          task_(task) {}

  private:
    const TraceSlice slice_;
    const managers::TaskScope task_;
};

Status makeStatus(bool success) { return {success ? 0U : 1U, ""}; }

/** Converts the interface's type to the daemon's own; an unknown value becomes UNKNOWN. */
managers::P2pDeviceType toDeviceType(P2pDeviceType type) {
    return type > P2pDeviceType::MIRACAST ? managers::P2pDeviceType::UNKNOWN
                                          : static_cast<managers::P2pDeviceType>(type);
}

/** What `call` returns; false if it throws, as it does without memory, which is logged. */
template <typename Call>
bool succeeds(Call call) {
    try {
        return call();
    } catch (const std::exception& error) {
        WIFI_LOGE("A call failed: %s", error.what());
        return false;
    }
}

/** One feature's part of the dump. */
struct DumpPart {
    std::string_view label;
    void (*append)(const managers::CorvidWifiManager& root, std::string_view label,
                   std::string& text);
};

template <typename Manager>
void appendDump(const managers::CorvidWifiManager& root, std::string_view label,
                std::string& text) {
    const auto manager = root.get<Manager>();
    text += label;
    text += manager != nullptr ? ": Enabled\n" : ": Disabled\n";
    if (manager != nullptr) {
        manager->dumpInfo(text);
    }
}

/** Every feature's part, in the alphabetical order of their labels. */
template <typename... Managers>
auto dumpParts(const std::tuple<managers::Feature<Managers>...>& features) {
    std::array parts = {DumpPart{std::get<managers::Feature<Managers>>(features).dumpLabel,
                                 &appendDump<Managers>}...};
    std::sort(parts.begin(), parts.end(),
              [](const DumpPart& a, const DumpPart& b) { return a.label < b.label; });
    return parts;
}

}  // namespace

CorvidWifiService::CorvidWifiService(std::shared_ptr<managers::CorvidWifiClient> client)
    : client_(client != nullptr ? std::move(client)
                                : std::make_shared<managers::CorvidWifiClient>()),
      manager_(client_),
      report_(*client_, manager_) {}

template <typename Manager, typename Callback, typename Call>
Return<void> CorvidWifiService::answer_(const Callback& callback, Call call) {
    const auto manager = manager_.get<Manager>();
    const auto serve = [&] {
        const CallScope scope(callOf<Manager>());
        return call(*manager);
    };
    callback(makeStatus(manager != nullptr && succeeds(serve)));
    return Void();
}

Return<void> CorvidWifiService::clearScs(int32_t id, clearScs_cb callback) {
    return answer_<managers::ScsManager>(
        callback, [&](managers::ScsManager& manager) { return manager.clear(id); });
}

Return<void> CorvidWifiService::dumpInfo(dumpInfo_cb callback) {
    std::string text;
    succeeds([&] {
        for (const DumpPart& part : dumpParts(managers::kFeatures)) {
            part.append(manager_, part.label, text);
        }
        text += "Process and Thread ID\n";
        for (const auto& [task, pid] : manager_.copyTaskToPidMap()) {
            text += "\t" + task + ": " + std::to_string(pid) + "\n";
        }
        return true;
    });
    callback(text);
    return Void();
}

Return<void> CorvidWifiService::getP2pInfo(getP2pInfo_cb callback) {
    managers::P2pInfo info;
    manager_.get<managers::P2pManager>()->getP2pInfo(info);  // this slot is never switched off
    callback({info.frequency, info.bandwidth});
    return Void();
}

Return<void> CorvidWifiService::getStaInfo(getStaInfo_cb callback) {
    managers::StaInfo info = {-1, -1, 0};
    succeeds([&] {
        const CallScope scope(callOf<managers::StaManager>());
        manager_.get<managers::StaManager>()->getStaInfo(info);  // this slot is never switched off
        return true;
    });
    const bool known = info.bandwidth >= 1 && info.bandwidth <= 5;
    callback({info.frequency, info.rssi, known ? static_cast<uint32_t>(info.bandwidth) : 0U});
    return Void();
}

Return<void> CorvidWifiService::isP2pPairedDeviceType(P2pDeviceType type,
                                                      isP2pPairedDeviceType_cb callback) {
    return answer_<managers::P2pManager>(callback, [&](const managers::P2pManager& manager) {
        return manager.isP2pPairedDeviceType(toDeviceType(type));
    });
}

Return<void> CorvidWifiService::registerCorvidWifiManagerCallback(
    const sp<ICorvidWifiManagerCallback>& client, registerCorvidWifiManagerCallback_cb callback) {
    callback(makeStatus(succeeds([&] { return manager_.link(client); })));
    return Void();
}

Return<void> CorvidWifiService::setElnaBypass(uint32_t mode, setElnaBypass_cb callback) {
    return answer_<managers::ElnaBypassManager>(
        callback,
        [&](managers::ElnaBypassManager& manager) { return manager.setElnaBypass(mode); });
}

Return<void> CorvidWifiService::setMccTimeAllocation(uint32_t value,
                                                     setMccTimeAllocation_cb callback) {
    return answer_<managers::MccTimeManager>(callback, [&](managers::MccTimeManager& manager) {
        return manager.setMccTimeAllocation(value);
    });
}

Return<void> CorvidWifiService::setP2pNoa(uint32_t count, uint32_t noaValue1, uint32_t noaValue2,
                                          setP2pNoa_cb callback) {
    return answer_<managers::NoaManager>(callback, [&](managers::NoaManager& manager) {
        return manager.setP2pNoa(count, noaValue1, noaValue2);
    });
}

Return<void> CorvidWifiService::setP2pPairedDeviceType(P2pDeviceType type,
                                                       setP2pPairedDeviceType_cb callback) {
    const auto txPowerManager = manager_.get<managers::TxPowerManager>();
    const auto txChainManager = manager_.get<managers::TxChainManager>();
    return answer_<managers::P2pManager>(callback, [&](managers::P2pManager& manager) {
        if (type != P2pDeviceType::HALBERD && type != P2pDeviceType::MIRACAST) {
            return false;  // nothing is tuned for NONE or UNKNOWN
        }
        const bool isHalberd = type == P2pDeviceType::HALBERD;
        if (txPowerManager != nullptr) {
            txPowerManager->toggleFeature(isHalberd, managers::NetInterfaceType::P2P);
        }
        if (txChainManager != nullptr) {
            txChainManager->toggleFeature(isHalberd);
        }
        return manager.setP2pPairedDeviceType(toDeviceType(type));
    });
}

Return<void> CorvidWifiService::debug(const hidl_handle& handle,
                                      const hidl_vec<hidl_string>& options) {
    const native_handle_t* const native = handle.getNativeHandle();
    if (native == nullptr || native->numFds < 1) {
        return Void();
    }
    succeeds([&] {
        const std::vector<std::string> words(options.begin(), options.end());
        // What is not taken is lost: a reader that stops reading is none of the daemon's business.
        managers::ReportWriter writer(native->data[0], kReportPatience);
        report_.write(words, [&](std::string_view piece) { return writer.write(piece); });
        return true;
    });
    return Void();
}

template <typename MakeProfile>
int32_t CorvidWifiService::setScs_(MakeProfile makeProfile) {
    const auto manager = manager_.get<managers::ScsManager>();
    int32_t id = -1;
    succeeds([&] {
        const CallScope scope(callOf<managers::ScsManager>());
        managers::ScsProfile profile = makeProfile();
        id = manager == nullptr ? -1 : manager->set(profile);
        return true;
    });
    return id;
}

Return<int32_t> CorvidWifiService::setScsV4(const ScsProfileV4& profile) {
    constexpr uint32_t kIpV4 = 0;
    return setScs_([&]() -> managers::ScsProfile {
        return {kIpV4, profile.localIp, profile.localPort, profile.remoteIp, profile.remotePort,
                0,     profile.dscp,    profile.protocol};
    });
}

Return<int32_t> CorvidWifiService::setScsV6(const ScsProfileV6& profile) {
    constexpr uint32_t kIpV6 = 1;
    // ScsProfile has no field for the flow label.
    return setScs_([&]() -> managers::ScsProfile {
        return {kIpV6, profile.localIp, profile.localPort, profile.remoteIp, profile.remotePort,
                0,     profile.dscp,    profile.protocol};
    });
}

Return<void> CorvidWifiService::startCsa(uint32_t channel, uint32_t bandwidth,
                                         startCsa_cb callback) {
    return answer_<managers::ChannelSwitchManager>(callback,
                                                   [&](managers::ChannelSwitchManager& manager) {
                                                       return manager.startCsa(channel, bandwidth);
                                                   });
}

Return<void> CorvidWifiService::unregisterCorvidWifiManagerCallback(
    const sp<ICorvidWifiManagerCallback>& client, unregisterCorvidWifiManagerCallback_cb callback) {
    callback(makeStatus(succeeds([&] { return manager_.unlink(client); })));
    return Void();
}

Return<void> CorvidWifiService::updateTxPowerConfig(bool allowed, updateTxPowerConfig_cb callback) {
    return answer_<managers::TxPowerManager>(callback, [&](managers::TxPowerManager& manager) {
        return manager.updateTxPowerConfig(allowed);
    });
}

}  // namespace vendor::corvid::hardware::wifi::V1_0::implementation
