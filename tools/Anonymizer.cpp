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

/** What stands around a value. */
struct Quotes {
    std::string_view open;
    std::string_view close;
};
/** The first are those of a text inside a line of JSON that was cut off. */
constexpr Quotes kQuotes[] = {{"\\\"", "\\\""}, {"\"", "\""}, {"'", "'"}};

/** Where the quoted value ends that begins at `begin`; npos if it was cut off. */
size_t endOfQuoted(std::string_view line, size_t begin, const Quotes& quotes) {
    for (size_t i = begin; i < line.size(); ++i) {
        if (line.substr(i, quotes.close.size()) == quotes.close) {
            // The supplicant writes a ' inside a name as it is.
            const size_t next = i + quotes.close.size();
            if (quotes.close != "'" || next == line.size() ||
                std::string_view(" ),\"\\\t").find(line[next]) != std::string_view::npos) {
                return i;
            }
        } else if (line[i] == '\\' && quotes.close != "'") {
            i += 2 * quotes.close.size() - 1;  // what is escaped, a quote too, is no end
        }
    }
    return std::string_view::npos;
}

/** A value in a line: without its quotes. One without quotes goes to the end of the line. */
std::string_view valueAt(std::string_view line, size_t begin) {
    for (const Quotes& quotes : kQuotes) {
        if (line.substr(begin, quotes.open.size()) == quotes.open) {
            begin += quotes.open.size();
            const size_t end = endOfQuoted(line, begin, quotes);
            return line.substr(begin, end == std::string_view::npos ? end : end - begin);
        }
    }
    // A key in hexadecimal has other fields behind it.
    const size_t end = line.find_first_not_of("0123456789abcdefABCDEF", begin);
    constexpr size_t kKeyDigits = 64;
    return line.substr(begin, end == begin + kKeyDigits ? kKeyDigits : std::string_view::npos);
}

/**
 * Replaces the value behind each match of `name` by what `replace` makes of it. Values are found
 * without a regular expression: matching a long one would overflow the stack.
 */
std::string withValuesReplaced(const std::string& line, const std::regex& name,
                               const std::function<std::string(const std::string&)>& replace) {
    std::string out;
    size_t from = 0;
    std::smatch match;
    while (std::regex_search(line.begin() + static_cast<std::ptrdiff_t>(from), line.end(), match,
                             name)) {
        const std::string_view value =
            valueAt(line, static_cast<size_t>(match.suffix().first - line.begin()));
        const auto begin = static_cast<size_t>(value.data() - line.data());
        out.append(line, from, begin - from);
        out += value.empty() ? "" : replace(std::string(value));
        from = begin + value.size();
    }
    return out.append(line, from);
}

bool isSecret(const std::string& name) {
    static const std::regex kName(R"re((?:passphrase|psk|password|wep_key\d?)$)re",
                                  std::regex::icase);
    return std::regex_search(name, kName);
}

}  // namespace

std::string Anonymizer::standIn_(const std::string& kind, const std::string& original) {
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

std::string Anonymizer::line_(const std::string& original) {
    static const std::regex kSecret(R"re((?:passphrase|psk|password|wep_key\d?)"?(?:=|: ?))re",
                                    std::regex::icase);
    static const std::regex kSsid(R"re((?:^|[^b])ssid(?:"?(?:=|: ?)| (?='))|^\s*ssid )re",
                                  std::regex::icase);
    static const std::regex kMac(R"re(\b([0-9a-f]{2}(?::[0-9a-f]{2}){5})\b)re", std::regex::icase);
    static const std::regex kIp6(R"re((?:^|[^0-9a-z:])([0-9a-f]{1,4}(?::[0-9a-f]{0,4}){2,7}))re",
                                 std::regex::icase);
    static const std::regex kIp(R"re(\b((?:\d{1,3}\.){3}\d{1,3})\b)re");
    std::string out = withValuesReplaced(original, kSecret,
                                         [](const std::string&) { return std::string("secret"); });
    out = withValuesReplaced(out, kSsid,
                             [this](const std::string& name) { return standIn_("ssid", name); });
    out = replaced(out, kMac, [this](const std::string& mac) {
        const bool isNone = mac == "00:00:00:00:00:00" || lower(mac) == "ff:ff:ff:ff:ff:ff";
        return isNone ? mac : standIn_("mac", mac);
    });
    out = replaced(out, kIp6, [this](const std::string& ip) {
        // Six pairs are a MAC address, three are a time of day.
        const bool isIp =
            ip.find("::") != std::string::npos || std::count(ip.begin(), ip.end(), ':') == 7;
        return isIp ? standIn_("ip6", ip) : ip;
    });
    return replaced(out, kIp, [this](const std::string& ip) {
        return ip == "127.0.0.1" || ip == "0.0.0.0" ? ip : standIn_("ip", ip);
    });
}

Json Anonymizer::json_(const Json& original) {
    if (original.is_string()) {
        return text(original.get_ref<const std::string&>());
    }
    Json out = original;
    if (original.is_array()) {
        for (Json& value : out) {
            value = json_(value);
        }
    } else if (original.is_object()) {
        for (const auto& [name, value] : original.items()) {
            const bool isName = value.is_string() && !value.get_ref<const std::string&>().empty();
            if (isName && lower(name) == "ssid") {
                out[name] = standIn_("ssid", value);
            } else {
                out[name] = isName && isSecret(name) ? Json("secret") : json_(value);
            }
        }
    }
    return out;
}

std::string Anonymizer::text(std::string_view original) {
    std::string out;
    for (size_t begin = 0; begin < original.size();) {
        const size_t end = std::min(original.find('\n', begin), original.size());
        const std::string line(original.substr(begin, end - begin));
        const Json json = line.substr(0, 1) == "{" || line.substr(0, 1) == "["
                              ? Json::parse(line, nullptr, false)
                              : Json(Json::value_t::discarded);
        out += json.is_discarded() ? line_(line) : toLine(json_(json));
        if (end < original.size()) {
            out += '\n';
        }
        begin = end + 1;
    }
    return out;
}

}  // namespace Ursa::OS::Wifi::Tools
