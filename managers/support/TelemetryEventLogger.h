#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <android/frameworks/stats/1.0/IStats.h>

namespace Ursa::OS::Wifi {

enum class TelemetryEventType : int32_t {
    STA_CONNECTED = 1,
    STA_CHANNEL_SWITCH = 2,
    STA_DISCONNECTED = 3,
    MIPI_CLOCK = 4,
};

/**
 * One vendor atom for the platform's statistics service, made for one event and reported once. A
 * report runs on the caller's thread and is neither queued nor retried.
 */
class TelemetryEventLogger {
  public:
    /** Notes the time and the type's name; a type outside the enumeration is sent as "UNKNOWN". */
    explicit TelemetryEventLogger(TelemetryEventType type);

    void addAtomValue(const std::string& value);

    /** MHz and dBm, -1 for unknown. Returns false when the service is missing or the call failed.
     */
    bool reportStaManagerEvent(const int& freq, const int& rssi);

    /** Whether the camera service took `clock`. Result as above. */
    bool reportMipiClockManagerEvent(const bool& status, const int& clock);

  private:
    using Value = ::android::frameworks::stats::V1_0::VendorAtom::Value;

    void addAtomValue_(int32_t value);
    bool reportAtom(const int& atomId);

    std::vector<Value> values_;
};

}  // namespace Ursa::OS::Wifi
