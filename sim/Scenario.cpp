#include "sim/Scenario.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <utility>

#include "sim/Words.h"

namespace sim {

namespace {

constexpr int kLowestMHz = 2400;
constexpr int kHighestMHz = 7200;
constexpr int kLowestDbm = -110;
constexpr int kHighestDbm = 0;
/** A file name that fits into a socket's address below any sensible root. */
constexpr size_t kLongestName = 31;

std::string fileName(Words& words, std::string_view what, const std::string& name) {
    if (name.empty() || name.size() > kLongestName || name.find('/') != std::string::npos ||
        name[0] == '.') {
        words.complain(std::string(what) + " '" + name + "' is not a plain name of at most " +
                       std::to_string(kLongestName) + " characters");
    }
    return name;
}

int frequency(Words& words, const std::string& text) {
    return static_cast<int>(words.number("freq", text, "MHz", kLowestMHz, kHighestMHz));
}

int rssi(Words& words, const std::string& text) {
    return static_cast<int>(words.number("rssi", text, "dBm", kLowestDbm, kHighestDbm));
}

int times(const Words& words) {
    const auto text = words.option("times");
    return text ? static_cast<int>(words.number("times", *text, "", 1, 1000000)) : 0;
}

/** A property's name is a file's name too: no slash, no hidden file. */
std::string propertyName(Words& words) {
    std::string name = words.word("the property's name");
    if (name.find_first_of("/ ") != std::string::npos || name[0] == '.') {
        words.complain("'" + name + "' is not a property's name");
    }
    return name;
}

Action parseProperty(Words& words) {
    std::string name = propertyName(words);
    return SetProperty{std::move(name), words.textToEnd("the property's value")};
}

Action parseUnset(Words& words) {
    std::string name = propertyName(words);
    words.end();
    return SetProperty{std::move(name), std::nullopt};
}

/** The sensor library's steering properties, by the operation that each steers. */
Action parseSensors(Words& words) {
    static const std::vector<std::string_view> kOperations = {
        "controller.create", "controller.get", "controller.set",
        "controller.clear",  "camera.create",  "camera.notify"};
    static const std::vector<std::vector<std::string_view>> kBehaviours = {
        {"ok", "null", "hang"}, {"ok", "fail", "hang"}, {"ok", "fail", "hang"},
        {"ok", "fail", "hang"}, {"ok", "null", "hang"}, {"ok", "hang"}};
    const size_t operation = words.oneOf("sensor operation", kOperations);
    const auto& allowed = kBehaviours[operation];
    const size_t behaviour = words.oneOf("behaviour", allowed);
    words.end();
    return SetProperty{"debug.sensors." + std::string(kOperations[operation]),
                       std::string(allowed[behaviour])};
}

Action parseSupplicant(Words& words) {
    using What = SupplicantControl::What;
    SupplicantControl action;
    action.what = static_cast<What>(
        words.oneOf("action of the supplicant",
                    {"start", "terminate", "crash", "restart", "suspend", "resume"}));
    if (action.what == What::Start) {
        words.readOptions({"p2p"});
        if (const auto p2p = words.option("p2p")) {
            action.p2p = fileName(words, "p2p", *p2p);
        }
    } else if (action.what == What::Terminate) {
        action.removeFolder = words.skip("remove-folder");
    }
    words.end();
    return action;
}

Action parseSocket(Words& words) {
    SocketControl action;
    action.what = static_cast<SocketControl::What>(
        words.oneOf("action on a socket", {"create", "delete", "abandon"}));
    action.name = fileName(words, "socket", words.word("the socket's name"));
    words.end();
    return action;
}

Action parseFolder(Words& words) {
    FolderControl action;
    action.which =
        static_cast<FolderControl::Which>(words.oneOf("folder", {"sockets", "hwbinder"}));
    action.create = words.oneOf("action on a folder", {"create", "remove"}) == 0;
    words.end();
    return action;
}

Action parseConnect(Words& words) {
    words.readOptions({"freq", "width", "rssi", "bssid", "ssid", "ip"});
    Connect action;
    action.frequencyMHz = frequency(words, words.required("freq", "5180MHz"));
    action.width = words.width(words.option("width", "20"));
    action.rssiDbm = rssi(words, words.option("rssi", "-50"));
    action.bssid = words.option("bssid", "02:00:00:00:01:00");
    action.ssid = words.option("ssid", "test");
    action.ip = words.option("ip", "10.0.0.2");
    return action;
}

Action parseDisconnect(Words& words) {
    words.readOptions({"reason", "by"});
    Disconnect action;
    action.reason =
        static_cast<int>(words.number("reason", words.option("reason", "3"), "", 0, 65535));
    const std::string by = words.option("by", "headset");
    if (by != "headset" && by != "ap") {
        words.complain("by '" + by + "' is unknown; allowed: headset, ap");
    }
    action.byHeadset = by == "headset";
    return action;
}

Action parseRssi(Words& words) {
    SetRssi action{};
    if (!words.skip("from")) {
        action.fromDbm = action.toDbm = rssi(words, words.word("the signal (dBm)"));
        words.end();
        return action;
    }
    action.fromDbm = rssi(words, words.word("the first signal (dBm)"));
    words.oneOf("word", {"to"});
    action.toDbm = rssi(words, words.word("the last signal (dBm)"));
    words.oneOf("word", {"over"});
    action.over = words.duration("the walk's time", words.word("the walk's time"));
    words.end();
    return action;
}

Action parseChannel(Words& words) {
    words.oneOf("action on the channel", {"switch"});
    words.readOptions({"freq", "width", "ifname", "style"});
    ChannelSwitch action;
    action.frequencyMHz = frequency(words, words.required("freq", "5200MHz"));
    action.width = words.width(words.option("width", "20"));
    action.ifname = fileName(words, "ifname", words.option("ifname", "wlan0"));
    const std::string style = words.option("style", "headset");
    if (style != "headset" && style != "mainline") {
        words.complain("style '" + style + "' is unknown; allowed: headset, mainline");
    }
    action.mainline = style == "mainline";
    return action;
}

Action parseScan(Words& words) {
    words.readOptions({"networks"});
    return Scan{
        static_cast<int>(words.number("networks", words.option("networks", "3"), "", 0, 1000))};
}

Action parseRegdom(Words& words) {
    words.readOptions({"init", "type", "alpha2", "on"});
    return Regdom{words.required("init", "USER"), words.required("type", "COUNTRY"),
                  words.option("alpha2", ""), words.option("on", "wlan0")};
}

Action parseAssoc(Words& words) {
    words.oneOf("word", {"started"});
    words.readOptions({"ifname"});
    return AssocStarted{words.required("ifname", "p2p-wlan0-0")};
}

Action parseP2p(Words& words) {
    switch (words.oneOf("P2P action", {"start", "switch", "stop", "peer"})) {
        case 0: {
            words.readOptions({"freq", "width", "ifname", "on", "role", "up-after"});
            P2pStart action;
            action.frequencyMHz = frequency(words, words.required("freq", "5180MHz"));
            action.width = words.width(words.option("width", "20"));
            if (const auto ifname = words.option("ifname")) {
                action.ifname = fileName(words, "ifname", *ifname);
            }
            action.on = words.option("on", "");
            const std::string role = words.option("role", "GO");
            if (role != "GO" && role != "client") {
                words.complain("role '" + role + "' is unknown; allowed: GO, client");
            }
            action.groupOwner = role == "GO";
            action.upAfter = words.duration("up-after", words.option("up-after", "150ms"));
            return action;
        }
        case 1: {
            words.readOptions({"freq", "width"});
            return P2pSwitch{frequency(words, words.required("freq", "5200MHz")),
                             words.width(words.option("width", "20"))};
        }
        case 2: {
            words.readOptions({"reason", "down-after"});
            return P2pStop{words.option("reason", "REQUESTED"),
                           words.duration("down-after", words.option("down-after", "190ms"))};
        }
        default: {
            const bool joins = words.oneOf("action of the peer", {"joins", "leaves"}) == 0;
            words.readOptions({"mac"});
            return P2pPeer{joins, words.option("mac", "46:00:00:00:02:00")};
        }
    }
}

Action parseInterface(Words& words) {
    const bool add = words.oneOf("action on an interface", {"add", "remove"}) == 0;
    std::string name = fileName(words, "interface", words.word("the interface's name"));
    words.end();
    return InterfaceControl{add, std::move(name)};
}

Action parseEvent(Words& words) {
    std::string socket = fileName(words, "socket", words.word("the socket's name"));
    return SendEvent{std::move(socket), "<3>" + words.textToEnd("the event's text")};
}

Action parseRaw(Words& words) {
    SendEvent action;
    action.socket = fileName(words, "socket", words.word("the socket's name"));
    if (const auto text = words.quoted()) {
        words.end();
        action.text = *text;
        return action;
    }
    words.readOptions({"size", "fill"});
    const auto size = words.number("size", words.required("size", "4096"), "", 0, 65536);
    const auto fill = words.number("fill", words.option("fill", "0x41"), "", 0, 255);
    action.text.assign(static_cast<size_t>(size), static_cast<char>(fill));
    return action;
}

Action parseBurst(Words& words) {
    Burst action;
    action.socket = fileName(words, "socket", words.word("the socket's name"));
    action.count =
        static_cast<int>(words.number("count", words.word("the number of events"), "", 1, 1000000));
    action.text = "<3>" + words.textToEnd("the event's text");
    return action;
}

/** A text of more than a control socket's client takes. */
constexpr size_t kTooLongReply = 5000;

Action parseReply(Words& words) {
    ReplyRule action;
    action.prefix = words.word("the beginning of the command");
    if (auto text = words.quoted()) {
        action.answer = *text;
    } else {
        const size_t answer = words.oneOf(
            "answer", {"ok", "fail", "unknown", "empty", "none", "too-long", "default"});
        switch (answer) {
            case 0:
                action.answer = "OK\n";
                break;
            case 1:
                action.answer = "FAIL\n";
                break;
            case 2:
                action.answer = "UNKNOWN COMMAND\n";
                break;
            case 3:
                break;
            case 4:
                action.none = true;
                break;
            case 5:
                action.answer.assign(kTooLongReply, 'x');
                break;
            default:
                words.end();
                return RemoveReplyRules{action.prefix};
        }
    }
    words.readOptions({"on", "times", "after"});
    action.on = words.option("on", "");
    action.times = times(words);
    action.after = words.duration("after", words.option("after", "0ms"));
    return action;
}

int errorNumber(Words& words) {
    static const std::vector<std::pair<std::string_view, int>> kNames = {
        {"EPERM", EPERM},       {"ENOENT", ENOENT},
        {"EIO", EIO},           {"ENXIO", ENXIO},
        {"EBADF", EBADF},       {"EAGAIN", EAGAIN},
        {"ENOMEM", ENOMEM},     {"EACCES", EACCES},
        {"EBUSY", EBUSY},       {"ENODEV", ENODEV},
        {"EINVAL", EINVAL},     {"ERANGE", ERANGE},
        {"ENOLINK", ENOLINK},   {"EOPNOTSUPP", EOPNOTSUPP},
        {"ENETDOWN", ENETDOWN}, {"ENOBUFS", ENOBUFS},
        {"ENOTCONN", ENOTCONN}, {"ETIMEDOUT", ETIMEDOUT},
        {"EALREADY", EALREADY}, {"EINPROGRESS", EINPROGRESS}};
    const std::string text = words.word("the error");
    std::string allowed;
    for (const auto& [name, value] : kNames) {
        if (text == name) {
            return -value;
        }
        allowed.append(allowed.empty() ? "" : ", ").append(name);
    }
    if (text[0] != '-') {
        words.complain("unknown error '" + text + "'; allowed: -1 to -4095, " + allowed);
    }
    return static_cast<int>(words.number("error", text, "", -4095, -1));
}

const std::vector<std::string_view> kRequests = {"family", "interface-dump", "station-dump",
                                                 "vendor", "frame",          "any"};

Action parseNetlink(Words& words) {
    static const std::vector<std::string_view> kActions = {"family", "error", "spoil", "heal",
                                                           "listen", "close", "remove"};
    switch (const size_t what = words.oneOf("netlink action", kActions)) {
        case 0: {
            NetlinkFamily action{0};
            if (!words.skip("absent")) {
                words.readOptions({"id"});
                action.id = static_cast<int>(words.number(
                    "id", words.required("id", "28 (or the word absent)"), "", 17, 65535));
            }
            words.end();
            return action;
        }
        case 1: {
            NetlinkRule action{};
            action.request = static_cast<NetlinkRequest>(words.oneOf("request", kRequests));
            action.fault = NetlinkRule::Fault::Error;
            action.error = errorNumber(words);
            action.extAck = words.quoted().value_or("");
            action.capped = words.skip("capped");
            words.readOptions({"times"});
            action.times = times(words);
            return action;
        }
        case 2: {
            NetlinkRule action{};
            action.request = static_cast<NetlinkRequest>(words.oneOf("request", kRequests));
            // In the order of NetlinkRule::Fault, after Error.
            const size_t fault = words.oneOf("fault", {"truncated", "garbage", "no-station-info",
                                                       "no-bitrate", "silent", "hang-up"});
            action.fault = static_cast<NetlinkRule::Fault>(fault + 1);
            words.readOptions({"times"});
            action.times = times(words);
            return action;
        }
        case 3: {
            RemoveNetlinkRules action{NetlinkRequest::Any};
            if (!words.atEnd()) {
                action.request = static_cast<NetlinkRequest>(words.oneOf("request", kRequests));
            }
            words.end();
            return action;
        }
        default:
            words.end();
            return NetlinkListener{static_cast<NetlinkListener::What>(what - 4)};
    }
}

Action parseStats(Words& words) {
    StatsControl action{static_cast<StatsControl::What>(
        words.oneOf("action of the statistics service", {"start", "stop", "crash"}))};
    words.end();
    return action;
}

Action parseDaemon(Words& words) {
    DaemonControl action{DaemonControl::What::Signal, 0};
    switch (words.oneOf("action on the daemon", {"start", "stop", "kill", "signal"})) {
        case 0:
            action.what = DaemonControl::What::Start;
            break;
        case 1:
            action.signal = SIGTERM;
            break;
        case 2:
            action.signal = SIGKILL;
            break;
        default:
            action.signal = static_cast<int>(
                words.number("signal", words.word("the signal's number"), "", 1, 64));
    }
    words.end();
    return action;
}

Action parseMonitor(Words& words) {
    MonitorControl action{words.oneOf("action of the client", {"start", "stop"}) == 0};
    words.end();
    return action;
}

Action parseCall(Words& words) {
    Call action;
    action.arguments = {"call", words.word("the method's name")};
    while (!words.atEnd()) {
        action.arguments.push_back(words.word("argument"));
    }
    return action;
}

Action parseDump(Words& words) {
    words.end();
    return Call{{"dump"}};
}

Action parseExpect(Words& words) {
    static const std::vector<std::string_view> kKinds = {
        "event",  "command", "netlink",  "attach",  "detach",  "atom",   "log",
        "output", "call",    "callback", "sensors", "program", "socket", "burst"};
    Expect action;
    action.unwanted = words.skip("no");
    action.kind = kKinds[words.oneOf("kind of record", kKinds)];
    action.text = words.word("the text");
    words.oneOf("word", {"within"});
    action.within = words.duration("the time", words.word("the time"));
    words.end();
    return action;
}

Action parseSay(Words& words) { return Say{words.textToEnd("the text")}; }

template <typename T>
Action parseBare(Words& words) {
    words.end();
    return T{};
}

Action parseAction(Words& words) {
    using Parser = Action (*)(Words&);
    static const std::vector<std::pair<std::string_view, Parser>> kVerbs = {
        {"property", parseProperty},
        {"unset", parseUnset},
        {"sensors", parseSensors},
        {"supplicant", parseSupplicant},
        {"socket", parseSocket},
        {"folder", parseFolder},
        {"connect", parseConnect},
        {"disconnect", parseDisconnect},
        {"rssi", parseRssi},
        {"channel", parseChannel},
        {"scan", parseScan},
        {"regdom", parseRegdom},
        {"assoc", parseAssoc},
        {"p2p", parseP2p},
        {"interface", parseInterface},
        {"event", parseEvent},
        {"raw", parseRaw},
        {"burst", parseBurst},
        {"reply", parseReply},
        {"netlink", parseNetlink},
        {"stats", parseStats},
        {"daemon", parseDaemon},
        {"monitor", parseMonitor},
        {"call", parseCall},
        {"dump", parseDump},
        {"expect", parseExpect},
        {"say", parseSay},
        {"state", parseBare<ShowState>},
        {"end", parseBare<End>}};
    static const std::vector<std::string_view> kNames = [] {
        std::vector<std::string_view> names;
        names.reserve(kVerbs.size());
        for (const auto& verb : kVerbs) {
            names.push_back(verb.first);
        }
        return names;
    }();
    return kVerbs[words.oneOf("word", kNames)].second(words);
}

/** The next line of `text` from `position` on, without its newline; moves `position` behind it. */
std::string_view nextLine(std::string_view text, size_t& position) {
    const size_t newline = std::min(text.find('\n', position), text.size());
    const std::string_view line = text.substr(position, newline - position);
    position = newline + 1;
    return line;
}

}  // namespace

Scenario parseScenario(std::string name, std::string_view text) {
    Scenario scenario{std::move(name), {}};
    Duration now{0};
    bool prepare = true;
    bool ended = false;
    int number = 0;
    for (size_t position = 0; position < text.size();) {
        Words words(nextLine(text, position), ++number);
        if (words.atEnd()) {
            continue;
        }
        if (ended) {
            words.complain("nothing may follow 'end'");
        }
        if (words.skip("at")) {
            prepare = false;
            const std::string time = words.word("the time after 'at'");
            const bool relative = time[0] == '+';
            const Duration given = words.duration("the time", relative ? time.substr(1) : time);
            const Duration next = relative ? now + given : given;
            if (next < now) {
                words.complain("time goes backwards: " + time + " comes after " +
                               std::to_string(std::chrono::duration<double>(now).count()) +
                               "s; a time of its own or a later one is allowed");
            }
            now = next;
            if (words.atEnd()) {
                words.complain("what happens at " + time + " is missing");
            }
        }
        Step step{now, prepare, number, std::string(words.remainder()), parseAction(words)};
        ended = std::holds_alternative<End>(step.action);
        scenario.steps.push_back(std::move(step));
    }
    return scenario;
}

std::optional<Step> parseLine(std::string_view text, int line) {
    Words words(text, line);
    if (words.atEnd()) {
        return std::nullopt;
    }
    if (words.skip("at")) {
        words.complain("a time is for scenario files; a line given by hand is played at once");
    }
    std::string plain(words.remainder());
    return Step{Duration(0), false, line, std::move(plain), parseAction(words)};
}

std::string widthText(Width width) {
    switch (width) {
        case Width::MHz20:
            return "20";
        case Width::MHz40:
            return "40";
        case Width::MHz80:
            return "80";
        case Width::MHz80Plus80:
            return "80+80";
        case Width::MHz160:
            return "160";
    }
    return "";
}

int widthMHz(Width width) {
    switch (width) {
        case Width::MHz20:
            return 20;
        case Width::MHz40:
            return 40;
        case Width::MHz80:
        case Width::MHz80Plus80:
            return 80;
        case Width::MHz160:
            return 160;
    }
    return 0;
}

}  // namespace sim
