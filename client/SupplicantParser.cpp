#include "client/SupplicantParser.h"

#include <charconv>
#include <cstdio>
#include <string_view>
#include <system_error>

#include "client/StartsWith.h"

namespace Ursa::OS::Wifi {

namespace {

/** Cuts the next piece off the front of `text`, up to `separator` or the end. */
std::string_view cutPiece(std::string_view& text, char separator) {
    const size_t end = text.find(separator);
    const std::string_view piece = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    return piece;
}

/** Splits "name=value" at its first "=". Returns false when there is none. */
bool splitPair(std::string_view pair, std::string_view& name, std::string_view& value) {
    const size_t equals = pair.find('=');
    if (equals == std::string_view::npos) {
        return false;
    }
    name = pair.substr(0, equals);
    value = pair.substr(equals + 1);
    return true;
}

/** std::stoi, with a fast path: only text that std::from_chars rejects pays for std::stoi. */
int toInt(std::string_view text) {
    int value = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    return result.ec == std::errc() ? value : std::stoi(std::string(text));
}

NetInterfaceType interfaceTypeOf(std::string_view ifname) {
    if (startsWith(ifname, "p2p")) {
        return NetInterfaceType::P2P;
    }
    if (startsWith(ifname, "wlan")) {
        return NetInterfaceType::STA;
    }
    return static_cast<NetInterfaceType>(2);
}

}  // namespace

bool getInt32ValueByKey(const std::string& text, const char* key, size_t pos, int& value) {
    const size_t found = text.find(key, pos);
    if (found == std::string::npos) {
        return false;
    }
    const size_t begin = found + std::string_view(key).size();
    const size_t end = text.find(' ', begin);
    if (end == std::string::npos) {
        return false;
    }
    value = toInt(std::string_view(text).substr(begin, end - begin));
    return true;
}

bool getRssiAndFreq(const std::string& reply, int& rssi, int& frequency) {
    rssi = -1;
    frequency = -1;
    std::string_view rest = reply;
    while (!rest.empty() && (rssi == -1 || frequency == -1)) {
        constexpr std::string_view kRssi = "RSSI=";
        constexpr std::string_view kFrequency = "FREQUENCY=";
        const std::string_view line = cutPiece(rest, '\n');
        if (rssi == -1 && startsWith(line, kRssi)) {
            rssi = toInt(line.substr(kRssi.size()));
        } else if (frequency == -1 && startsWith(line, kFrequency)) {
            frequency = toInt(line.substr(kFrequency.size()));
        }
    }
    return rssi != -1 && frequency != -1;
}

bool getValueFromWpaCmdStatusReply(const std::string& reply, const std::string& key,
                                   std::string& value) {
    std::string_view rest = reply;
    while (!rest.empty()) {
        std::string_view name;
        std::string_view text;
        if (splitPair(cutPiece(rest, '\n'), name, text) && name == key) {
            value = text;
            return true;
        }
    }
    return false;
}

bool getRegdomUpdatedResult(const std::string& event, RegdomUpdatedResult& result) {
    result = {};
    std::string_view rest = event;
    while (!rest.empty()) {
        std::string_view name;
        std::string_view value;
        if (!splitPair(cutPiece(rest, ' '), name, value)) {
            continue;
        }
        if (name == "init") {
            result.init = value;
        } else if (name == "type") {
            result.type = value;
        } else if (name == "alpha2") {
            result.alpha2 = value;
        }
    }
    return !result.init.empty() && !result.type.empty() &&
           (result.alpha2.empty() || result.alpha2.size() == 2);
}

bool getChannelSwitchResult(const char* event, ChannelSwitchResult& result) {
    // "%15s": ifname is IFNAMSIZ bytes, its NUL included.
    if (sscanf(event, "freq=%d ifname=%15s width=%d", &result.frequency, result.ifname,
               &result.width) != 3) {
        return false;
    }
    result.interfaceType = interfaceTypeOf(result.ifname);
    return true;
}

unsigned getFrequencyFromChannel(unsigned channel) {
    if (channel >= 1 && channel <= 13) {
        return 2407 + 5 * channel;
    }
    if (channel == 14) {
        return 2484;
    }
    if (channel >= 32 && channel <= 177) {
        return 5000 + 5 * channel;
    }
    return 0xFFFFFFFF;
}

}  // namespace Ursa::OS::Wifi
