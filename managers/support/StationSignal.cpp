#include "managers/support/StationSignal.h"

#include <string>

#include "client/CorvidWifiClient.h"
#include "client/SupplicantParser.h"
#include "os/Trace.h"

namespace Ursa::OS::Wifi {

StationSignal pollStationSignal(CorvidWifiClient& client) {
    StationSignal signal;
    std::string reply;
    if (client.sendWpaCtrlCmd("SIGNAL_POLL", reply, NetInterfaceType::STA)) {
        const bool known =
            parsed([&] { return getRssiAndFreq(reply, signal.rssi, signal.frequency); });
        signal.outcome =
            known ? StationSignal::Outcome::Known : StationSignal::Outcome::NotUnderstood;
        if (known) {
            traceCounter("STA RSSI (dBm)", signal.rssi);
        }
    }
    return signal;
}

}  // namespace Ursa::OS::Wifi
