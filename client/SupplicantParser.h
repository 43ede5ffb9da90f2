#pragma once

// Readers of the supplicant's text: command replies and event payloads (the text after the event's
// prefix). They log nothing and keep no state. A key that is missing is reported by the result; a
// value that is no number where a number belongs makes std::stoi throw. Whoever takes text from
// outside calls them through parsed(), so that no text can end the process.

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
    /** P2P for names beginning with "p2p", STA for "wlan", else 2: no kind we know. */
    NetInterfaceType interfaceType;
};

struct RegdomUpdatedResult {
    std::string init;    ///< who initiated the change, for example "USER"
    std::string type;    ///< kind of domain, for example "COUNTRY"
    std::string alpha2;  ///< country code, two letters or empty
};

/** Runs a parser; a number that is none counts as text that did not parse. */
template <typename Parser>
bool parsed(Parser&& parser) {
    try {
        return parser();
    } catch (const std::logic_error&) {  // std::stoi: invalid_argument or out_of_range
        return false;
    }
}

/**
 * Finds `key` (with its "=") in `text` from `pos` on and reads the integer behind it, which a blank
 * must end: a number at the very end of the text is not read. Returns false when there is none.
 */
bool getInt32ValueByKey(const std::string& text, const char* key, size_t pos, int& value);

/**
 * Reads the reply to "SIGNAL_POLL": RSSI in dBm and FREQUENCY in MHz, -1 for what is not there.
 * Returns true when both were found.
 */
bool getRssiAndFreq(const std::string& reply, int& rssi, int& frequency);

/**
 * Reads one line of the reply to "STATUS". Returns false, and leaves `value` alone, when no line
 * has exactly that key.
 */
bool getValueFromWpaCmdStatusReply(const std::string& reply, const std::string& key,
                                   std::string& value);

/**
 * Reads a regulatory-domain change, for example "init=USER type=COUNTRY alpha2=US". Returns true
 * when init and type are there and alpha2 is empty or two characters long.
 */
bool getRegdomUpdatedResult(const std::string& event, RegdomUpdatedResult& result);

/**
 * Reads "freq=F ifname=N width=W", in that order. Returns false when one is missing (fields may
 * then be partly written), or when the name has more than 15 characters.
 */
bool getChannelSwitchResult(const char* event, ChannelSwitchResult& result);

/**
 * The centre frequency in MHz of an IEEE 802.11 channel number of the 2.4 GHz (1 to 14) or 5 GHz
 * band (32 to 177); 0xFFFFFFFF for any other number.
 */
unsigned getFrequencyFromChannel(unsigned channel);

}  // namespace Ursa::OS::Wifi
