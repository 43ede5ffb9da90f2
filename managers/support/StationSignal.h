#pragma once

namespace Ursa::OS::Wifi {

class CorvidWifiClient;

/** The station's signal, as the supplicant reports it. */
struct StationSignal {
    enum class Outcome {
        NotSent,        ///< the command was not sent or not answered
        NotUnderstood,  ///< the reply lacks a value, or has a malformed one
        Known,          ///< the reply has both values
    };

    Outcome outcome = Outcome::NotSent;
    int rssi = -1;       ///< dBm, -1 if not in the reply
    int frequency = -1;  ///< MHz, -1 if not in the reply

    bool isKnown() const { return outcome == Outcome::Known; }
};

/**
 * Sends SIGNAL_POLL to the supplicant and waits for the reply, 10 s at most. Keeps a value even if
 * the other is missing. Logs nothing. Any thread.
 */
StationSignal pollStationSignal(CorvidWifiClient& client);

}  // namespace Ursa::OS::Wifi
