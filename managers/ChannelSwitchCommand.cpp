#include "managers/ChannelSwitchCommand.h"

#include <array>
#include <ostream>

#include "os/Log.h"

namespace Ursa::OS::Wifi {

namespace {

constexpr unsigned kChannelWidth = 20;  ///< MHz between two neighbouring 5 GHz channels

/** A run of neighbouring 5 GHz channels, both ends included, in which wide channels are formed. */
struct Segment {
    unsigned first;
    unsigned last;
};

/**
 * From each segment's first channel on, every two neighbours form a 40 MHz channel and every four
 * an 80 MHz one (IEEE 802.11, operating classes 116 to 130). Deliberately complete, whatever a
 * regulatory domain allows:
 *
 *     5180 5200 | 5220 5240 || 5260 ... 5460 5480
 *     5500 5520 | 5540 5560 || 5580 ... 5700 5720
 *     5745 5765 | 5785 5805 || 5825 5845 | 5865 5885
 */
constexpr std::array<Segment, 3> kSegments = {{{5180, 5480}, {5500, 5720}, {5745, 5885}}};

/** The centre of the channel of that width to which a primary channel belongs, if any. */
std::optional<unsigned> centerOf(unsigned freq, unsigned bandwidth) {
    for (const Segment& segment : kSegments) {
        if (freq >= segment.first && freq <= segment.last &&
            (freq - segment.first) % kChannelWidth == 0) {
            const unsigned block = (freq - segment.first) / bandwidth;
            return segment.first + block * bandwidth + (bandwidth - kChannelWidth) / 2;
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
    const auto center = centerOf(freq, bandwidth);
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
