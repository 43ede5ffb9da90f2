#pragma once

namespace Ursa::OS::Wifi {

class CorvidWifiClient;

/** The station's signal, as the supplicant tells it. */
struct StationSignal {
    enum class Outcome {
        NotSent,        ///< the question did not reach the supplicant
        NotUnderstood,  ///< its reply lacks a value, or has one that is no number
        Known,          ///< both values are there
    };

    Outcome outcome = Outcome::NotSent;
    int rssi = -1;       ///< dBm, -1 when not found
    int frequency = -1;  ///< MHz, -1 when not found

    bool isKnown() const { return outcome == Outcome::Known; }
};

/**
 * Asks the supplicant ("SIGNAL_POLL") and waits for the reply. One that is only half there gives
 * the half that was found. Logs nothing. Any thread.
 */
StationSignal pollStationSignal(CorvidWifiClient& client);

}  // namespace Ursa::OS::Wifi
