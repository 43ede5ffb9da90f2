#include "managers/ChannelSwitchCommand.h"

#include <cstddef>
#include <ostream>

#include "os/Log.h"

namespace Ursa::OS::Wifi {

namespace {

// Centre frequencies of the wide 5 GHz channels, MHz (IEEE 802.11, Annex E: channels 38, 46, ...
// and 42, 58, ...). Regulatory domains are left to the driver, which refuses what its own does not
// allow.

/** Each holds the two 20 MHz channels at centre - 10 and + 10. */
constexpr unsigned kCenters40[] = {
    5190, 5230, 5270, 5310, 5350, 5390, 5430, 5470,  // from 5180
    5510, 5550, 5590, 5630, 5670, 5710,              // from 5500
    5755, 5795, 5835, 5875,                          // from 5745
};

/** Each holds the four 20 MHz channels at centre - 30, - 10, + 10 and + 30. */
constexpr unsigned kCenters80[] = {
    5210, 5290, 5370, 5450,  // from 5180
    5530, 5610, 5690,        // from 5500
    5775, 5855,              // from 5745
};

/** The centre of the listed channel that contains the 20 MHz channel at `freq`. */
template <size_t Count>
std::optional<unsigned> centerOf(unsigned freq, const unsigned (&centers)[Count],
                                 unsigned bandwidth) {
    constexpr unsigned kStep = 20;  // MHz between neighbouring channels
    for (const unsigned center : centers) {
        const unsigned first = center - (bandwidth - kStep) / 2;
        if (freq >= first && freq < first + bandwidth && (freq - first) % kStep == 0) {
            return center;
        }
    }
    return std::nullopt;
}

}  // namespace

bool ChannelSwitchCommand::fromFrequencyAndBandwidth(unsigned freq, unsigned bandwidth,
                                                     ChannelSwitchCommand& out) {
    if (bandwidth == 20) {
        out = {freq, std::nullopt, bandwidth, false};
        return true;
    }
    if (bandwidth != 40 && bandwidth != 80) {
        WIFI_LOGE("Unsupported bandwidth %u", bandwidth);
        return false;
    }
    const auto center = bandwidth == 40 ? centerOf(freq, kCenters40, bandwidth)
                                        : centerOf(freq, kCenters80, bandwidth);
    if (!center) {
        WIFI_LOGE("Frequency %u MHz is not a 5 GHz channel that supports %u MHz", freq, bandwidth);
        return false;
    }
    out = {freq, center, bandwidth, true};
    return true;
}

std::ostream& operator<<(std::ostream& out, const ChannelSwitchCommand& command) {
    out << "CORVID_P2P_CHAN_SWITCH 0 " << command.freq << " bandwidth=" << command.bandwidth;
    if (command.centerFreq1) {
        out << " center_freq1=" << *command.centerFreq1;
    }
    if (command.vhtEnabled) {
        out << " vht_enabled=1";
    }
    return out;
}

}  // namespace Ursa::OS::Wifi
