#pragma once

// Parsers of the supplicant's text: command replies and event payloads (the text after the event's
// prefix). They log nothing, keep no state and may run on any thread. They return false for a
// missing key, and throw what std::stoi throws for a malformed number: wrap a call that reads
// numbers in parsed().

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "client/NetInterfaceType.h"

namespace Ursa::OS::Wifi {

struct ChannelSwitchResult {
    int32_t frequency;  ///< MHz, as the supplicant printed it
    int32_t width;      ///< channel width (MHz), as the supplicant printed it
    char ifname[16];    ///< NUL-terminated interface name (IFNAMSIZ)
    /** P2P if `ifname` begins with "p2p", STA if with "wlan", else 2, which is no enumerator. */
    NetInterfaceType interfaceType;
};

struct RegdomUpdatedResult {
    std::string init;    ///< who initiated the change, for example "USER"
    std::string type;    ///< kind of domain, for example "COUNTRY"
    std::string alpha2;  ///< country code, two letters or empty
};

/** Runs a parser and returns its result; false if it throws because a number is malformed. */
template <typename Parser>
bool parsed(Parser&& parser) {
    try {
        return parser();
    } catch (const std::logic_error&) {  // std::stoi: invalid_argument or out_of_range
        return false;
    }
}

/**
 * Finds `key` (with its "=") in `text` from `pos` on and reads the integer after it. Returns false
 * if there is no such key, or no blank after the integer: one at the end of the text is not read.
 */
bool getInt32ValueByKey(const std::string& text, const char* key, size_t pos, int& value);

/**
 * Reads the reply to "SIGNAL_POLL": RSSI in dBm and FREQUENCY in MHz; a missing one becomes -1.
 * Returns whether both were found.
 */
bool getRssiAndFreq(const std::string& reply, int& rssi, int& frequency);

/**
 * Reads the value of `key` from the reply to "STATUS". Returns false, and leaves `value` unchanged,
 * if no line has exactly that key.
 */
bool getValueFromWpaCmdStatusReply(const std::string& reply, const std::string& key,
                                   std::string& value);

/**
 * Reads a regulatory-domain change, for example "init=USER type=COUNTRY alpha2=US". Returns whether
 * init and type are present and alpha2 is absent or two characters long.
 */
bool getRegdomUpdatedResult(const std::string& event, RegdomUpdatedResult& result);

/**
 * Reads "freq=F ifname=N width=W", in that order. Returns false if one is missing or the name has
 * more than 15 characters; `result` may then be partly written.
 */
bool getChannelSwitchResult(const char* event, ChannelSwitchResult& result);

/**
 * The centre frequency in MHz of an IEEE 802.11 channel number of the 2.4 GHz (1 to 14) or 5 GHz
 * band (32 to 177); 0xFFFFFFFF for any other number.
 */
unsigned getFrequencyFromChannel(unsigned channel);

}  // namespace Ursa::OS::Wifi
