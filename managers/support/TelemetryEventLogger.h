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
 * One vendor atom for the platform's statistics service: construct it for one event, report it
 * once. A report is a synchronous call on the caller's thread, neither queued nor retried. One
 * thread.
 */
class TelemetryEventLogger {
  public:
    /**
     * Notes the time, the first value, and the type, whose name is the second; a type outside the
     * enumeration is sent as "UNKNOWN".
     */
    explicit TelemetryEventLogger(TelemetryEventType type);

    void addAtomValue(const std::string& value);

    /** Reports MHz and dBm, -1 for unknown. Returns false if the service is missing or fails. */
    bool reportStaManagerEvent(int freq, int rssi);

    /** Reports whether the camera service accepted `clock`. Result as above. */
    bool reportMipiClockManagerEvent(bool status, int clock);

  private:
    using Value = ::android::frameworks::stats::V1_0::VendorAtom::Value;

    void addAtomValue_(int32_t value);
    /** The next value. The first two are made here: a signal poll waits behind the constructor. */
    Value& append_();
    bool reportAtom(int atomId);

    const TelemetryEventType type_;
    const int32_t timeMs_;  ///< low 32 bits of the time since the epoch
    std::vector<Value> values_;
};

}  // namespace Ursa::OS::Wifi
