#include "tools/Anonymizer.h"

#include <algorithm>
#include <cctype>
#include <functional>
#include <regex>

namespace Ursa::OS::Wifi::Tools {

namespace {

/** Replaces group 1 of each match of `pattern` by what `replace` makes of it. */
std::string replaced(const std::string& text, const std::regex& pattern,
                     const std::function<std::string(const std::string&)>& replace) {
    std::string out;
    auto from = text.begin();
    for (std::sregex_iterator match(text.begin(), text.end(), pattern), end; match != end;
         ++match) {
        out.append(from, (*match)[1].first);
        out += replace((*match)[1]);
        from = (*match)[1].second;
    }
    return out.append(from, text.end());
}

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    return text;
}

}  // namespace

std::string Anonymizer::standIn(const std::string& kind, const std::string& original) {
    auto& known = standIns_[kind];
    const std::string number = std::to_string(known.size() + 1);
    std::string made = kind + "-" + number;
    if (kind == "mac") {
        char text[24];
        const auto count = static_cast<unsigned>(known.size() + 1);
        std::snprintf(text, sizeof(text), "02:00:00:00:%02x:%02x", count / 256 % 256, count % 256);
        made = text;
    } else if (kind == "ip") {
        made = "192.0.2." + number;  // of the block that is for documents
    } else if (kind == "ip6") {
        made = "2001:db8::" + number;
    }
    return known.emplace(lower(original), made).first->second;
}

std::string Anonymizer::text(const std::string& original) {
    static const std::regex kSecret(
        R"re((?:passphrase|psk|password|wep_key\d?)"?[=:]\s?"?([^"\s,]+))re", std::regex::icase);
    static const std::regex kSsid(R"re((?:^|[^b])ssid"?(?:=|: ?)['"]?([^'"\n\t,]+)['"]?)re",
                                  std::regex::icase);
    static const std::regex kMac(R"re(\b([0-9a-f]{2}(?::[0-9a-f]{2}){5})\b)re", std::regex::icase);
    static const std::regex kIp6(R"re((?:^|[^0-9a-z:])([0-9a-f]{1,4}(?::[0-9a-f]{0,4}){2,7}))re",
                                 std::regex::icase);
    static const std::regex kIp(R"re(\b((?:\d{1,3}\.){3}\d{1,3})\b)re");
    std::string out =
        replaced(original, kSecret, [](const std::string&) { return std::string("secret"); });
    out = replaced(out, kSsid, [this](const std::string& name) { return standIn("ssid", name); });
    out = replaced(out, kMac, [this](const std::string& mac) {
        const bool isNone = mac == "00:00:00:00:00:00" || lower(mac) == "ff:ff:ff:ff:ff:ff";
        return isNone ? mac : standIn("mac", mac);
    });
    out = replaced(out, kIp6, [this](const std::string& ip) {
        // Six pairs are a MAC address, three are a time of day.
        const bool isIp =
            ip.find("::") != std::string::npos || std::count(ip.begin(), ip.end(), ':') == 7;
        return isIp ? standIn("ip6", ip) : ip;
    });
    return replaced(out, kIp, [this](const std::string& ip) {
        return ip == "127.0.0.1" || ip == "0.0.0.0" ? ip : standIn("ip", ip);
    });
}

}  // namespace Ursa::OS::Wifi::Tools
