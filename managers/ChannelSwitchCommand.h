#pragma once

#include <iosfwd>
#include <optional>

namespace Ursa::OS::Wifi {

/** The supplicant's private command that moves the P2P group to another channel. All MHz. */
struct ChannelSwitchCommand {
    unsigned freq = 0;                    ///< primary 20 MHz channel
    std::optional<unsigned> centerFreq1;  ///< centre of the whole channel; none at 20 MHz
    unsigned bandwidth = 0;               ///< 20, 40 or 80
    bool vhtEnabled = false;              ///< set above 20 MHz

    /**
     * Builds the command. 20 MHz takes any frequency; 40 and 80 need one that is a 20 MHz channel
     * of a wide 5 GHz channel (IEEE 802.11). Logs an error and returns false for anything else.
     */
    static bool fromFrequencyAndBandwidth(unsigned freq, unsigned bandwidth,
                                          ChannelSwitchCommand& out);
};

/** Writes the command's text. */
std::ostream& operator<<(std::ostream& out, const ChannelSwitchCommand& command);

}  // namespace Ursa::OS::Wifi
