#include "managers/support/TelemetryEventLogger.h"

#include <chrono>

#include "os/Log.h"

namespace Ursa::OS::Wifi {

using ::android::sp;
using ::android::frameworks::stats::V1_0::IStats;
using ::android::frameworks::stats::V1_0::VendorAtom;

namespace {

constexpr char kReverseDomainName[] = "com.corvid.os";
constexpr int kStaManagerAtom = 116183;
constexpr int kMipiClockManagerAtom = 119925;

const char* toString(TelemetryEventType type) {
    switch (type) {
        case TelemetryEventType::STA_CONNECTED:
            return "WIFI_STA_CONNECTED";
        case TelemetryEventType::STA_CHANNEL_SWITCH:
            return "WIFI_STA_CHANNEL_SWITCH";
        case TelemetryEventType::STA_DISCONNECTED:
            return "WIFI_STA_DISCONNECTED";
        case TelemetryEventType::MIPI_CLOCK:
            return "MIPI_CLOCK_EVENT";
    }
    return "UNKNOWN";
}

/** Low 32 bits of the milliseconds since the epoch: the atom's field is that wide. */
int32_t wrappedTimeMs() {
    using std::chrono::milliseconds;
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<int32_t>(std::chrono::duration_cast<milliseconds>(now).count());
}

}  // namespace

TelemetryEventLogger::TelemetryEventLogger(TelemetryEventType type)
    : type_(type), timeMs_(wrappedTimeMs()) {}

void TelemetryEventLogger::addAtomValue(const std::string& value) { append_().stringValue(value); }

void TelemetryEventLogger::addAtomValue_(int32_t value) { append_().intValue(value); }

TelemetryEventLogger::Value& TelemetryEventLogger::append_() {
    if (values_.empty()) {
        constexpr size_t kValues = 4;  // of every report
        values_.reserve(kValues);
        values_.emplace_back().intValue(timeMs_);
        values_.emplace_back().stringValue(toString(type_));
    }
    return values_.emplace_back();
}

bool TelemetryEventLogger::reportStaManagerEvent(int freq, int rssi) {
    addAtomValue_(freq);
    addAtomValue_(rssi);
    WIFI_LOGI("Report STA Manager event: freq:%d rssi:%d", freq, rssi);
    return reportAtom(kStaManagerAtom);
}

bool TelemetryEventLogger::reportMipiClockManagerEvent(bool status, int clock) {
    addAtomValue_(status ? 1 : 0);
    addAtomValue_(clock);
    WIFI_LOGI("Report MIPI Manager event: status:%d clock:%d", status ? 1 : 0, clock);
    return reportAtom(kMipiClockManagerAtom);
}

bool TelemetryEventLogger::reportAtom(int atomId) {
    // Looked up for every report because the service may restart; tryGetService() does not wait.
    const sp<IStats> stats = IStats::tryGetService();
    if (stats == nullptr) {
        WIFI_LOGE("Stats HAL is unavailable!");
        return false;
    }
    VendorAtom atom;
    atom.reverseDomainName = kReverseDomainName;
    atom.atomId = atomId;
    atom.values = values_;
    WIFI_LOGI("Reporting vendor atom %d to telemetry service", atomId);
    return stats->reportVendorAtom(atom).isOk();
}

}  // namespace Ursa::OS::Wifi
