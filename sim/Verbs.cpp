#include "sim/Verbs.h"

#include <cerrno>
#include <csignal>
#include <optional>
#include <utility>

#include "sim/PropertyCheck.h"
#include "sim/Simulation.h"

namespace sim {

namespace {

constexpr int kLowestMHz = 2400;
constexpr int kHighestMHz = 7200;
constexpr int kLowestDbm = -110;
constexpr int kHighestDbm = 0;
/** A file name that fits into a socket's address below any sensible root. */
constexpr size_t kLongestName = 31;
/** A text of more than a control socket's client takes. */
constexpr size_t kTooLongReply = 5000;

/** For a line that is done at once: `act` returns why it failed, or an empty text. */
Action atOnce(std::function<std::string(Simulation&)> act) {
    return
        [act = std::move(act)](Simulation& simulation, const Done& done) { done(act(simulation)); };
}

/** For a line that is done at once and cannot fail. */
Action always(std::function<void(Simulation&)> act) {
    return [act = std::move(act)](Simulation& simulation, const Done& done) {
        act(simulation);
        done("");
    };
}

std::string fileName(Words& words, std::string_view what, const std::string& name) {
    if (name.empty() || name.size() > kLongestName || name.find('/') != std::string::npos ||
        name[0] == '.') {
        words.fail(std::string(what) + " '" + name + "' is not a plain name of at most " +
                   std::to_string(kLongestName) + " characters");
    }
    return name;
}

std::string socketName(Words& words) {
    return fileName(words, "socket", words.word("the socket's name"));
}

/** The option `key` as a file's name; empty if it was not given. */
std::string fileOption(Words& words, std::string_view key) {
    const auto name = words.option(key);
    return name ? fileName(words, key, *name) : "";
}

int frequency(Words& words, std::string_view example) {
    return static_cast<int>(
        words.number("freq", words.required("freq", example), "MHz", kLowestMHz, kHighestMHz));
}

int dbm(const Words& words, const std::string& text) {
    return static_cast<int>(words.number("rssi", text, "dBm", kLowestDbm, kHighestDbm));
}

int times(const Words& words) {
    const auto text = words.option("times");
    return text ? static_cast<int>(words.number("times", *text, "", 1, 1000000)) : 0;
}

std::string noSocket(const std::string& name) { return "there is no socket " + name; }

// The headset's files

/** A property's name is a file's name too: no slash, no hidden file. */
std::string propertyName(Words& words) {
    std::string name = words.word("the property's name");
    if (name.find_first_of("/ ") != std::string::npos || name[0] == '.') {
        words.fail("'" + name + "' is not a property's name");
    }
    return name;
}

Action setProperty(std::string name, std::optional<std::string> value) {
    return atOnce([name = std::move(name), value = std::move(value)](Simulation& simulation) {
        return simulation.files.setProperty(name, value);
    });
}

Action property(Words& words) {
    std::string name = propertyName(words);
    std::string value = words.textToEnd("the property's value");
    if (std::string warning = propertyWarning(name, value); !warning.empty()) {
        words.warn(std::move(warning));
    }
    return setProperty(std::move(name), std::move(value));
}

Action unset(Words& words) {
    std::string name = propertyName(words);
    words.end();
    return setProperty(std::move(name), std::nullopt);
}

Action sensors(Words& words) {
    using Behaviours = std::vector<std::string_view>;
    static const std::vector<std::string_view> kOperations = {
        "controller.create", "controller.get", "controller.set",
        "controller.clear",  "camera.create",  "camera.notify"};
    const std::string_view operation = words.oneOf("sensor operation", kOperations);
    const bool creates = operation == "controller.create" || operation == "camera.create";
    const std::string_view behaviour =
        words.oneOf("behaviour", creates                        ? Behaviours{"ok", "null", "hang"}
                                 : operation == "camera.notify" ? Behaviours{"ok", "hang"}
                                                                : Behaviours{"ok", "fail", "hang"});
    words.end();
    return setProperty("debug.sensors." + std::string(operation), std::string(behaviour));
}

Action folder(Words& words) {
    const bool sockets = words.oneOf("folder", {"sockets", "hwbinder"}) == "sockets";
    const bool create = words.oneOf("action on a folder", {"create", "remove"}) == "create";
    words.end();
    return atOnce([sockets, create](Simulation& simulation) {
        if (!sockets) {
            return simulation.files.changeFolder(DeviceFiles::Folder::Hwbinder, create);
        }
        if (!create) {
            for (const std::string& name : simulation.supplicant.names()) {
                simulation.supplicant.close(name, true);
            }
        }
        return simulation.files.changeFolder(DeviceFiles::Folder::Sockets, create);
    });
}

// The supplicant

Action startSupplicant(Words& words) {
    words.readOptions({"p2p"});
    return atOnce([p2p = fileOption(words, "p2p")](Simulation& simulation) {
        // Like the real one, it makes the folder when that is missing.
        const std::string error = simulation.files.changeFolder(DeviceFiles::Folder::Sockets, true);
        return error.empty() ? simulation.headset.startSupplicant(p2p) : error;
    });
}

Action terminateSupplicant(Words& words) {
    const bool removeFolder = words.skip("remove-folder");
    words.end();
    return atOnce([removeFolder](Simulation& simulation) {
        const std::string error = simulation.headset.terminateSupplicant();
        return error.empty() && removeFolder
                   ? simulation.files.changeFolder(DeviceFiles::Folder::Sockets, false)
                   : error;
    });
}

Action supplicant(Words& words) {
    const std::string_view what =
        words.oneOf("action of the supplicant",
                    {"start", "terminate", "crash", "restart", "suspend", "resume"});
    if (what == "start") {
        return startSupplicant(words);
    }
    if (what == "terminate") {
        return terminateSupplicant(words);
    }
    words.end();
    if (what == "crash") {
        return atOnce([](Simulation& simulation) { return simulation.headset.crashSupplicant(); });
    }
    if (what == "restart") {
        return atOnce(
            [](Simulation& simulation) { return simulation.headset.restartSupplicant(); });
    }
    if (what == "suspend") {
        return always([](Simulation& simulation) { simulation.supplicant.suspend(); });
    }
    return always([](Simulation& simulation) { simulation.supplicant.resume(); });
}

Action socket(Words& words) {
    const std::string_view what =
        words.oneOf("action on a socket", {"create", "delete", "abandon"});
    const std::string name = socketName(words);
    words.end();
    if (what == "create") {
        return atOnce([name](Simulation& simulation) { return simulation.supplicant.open(name); });
    }
    return atOnce([name, abandon = what == "abandon"](Simulation& simulation) -> std::string {
        if (abandon && !simulation.supplicant.isOpen(name)) {
            return noSocket(name);
        }
        simulation.supplicant.close(name, !abandon);
        return "";
    });
}

/** What the supplicant is made to answer; nothing for "default". */
std::optional<Reply> replyOf(Words& words) {
    if (auto text = words.quoted()) {
        return Reply{Reply::How::Send, *text};
    }
    const std::string_view answer =
        words.oneOf("answer", {"ok", "fail", "unknown", "empty", "none", "too-long", "default"});
    if (answer == "default") {
        return std::nullopt;
    }
    return Reply{answer == "none" ? Reply::How::None : Reply::How::Send,
                 answer == "ok"         ? "OK\n"
                 : answer == "fail"     ? "FAIL\n"
                 : answer == "unknown"  ? "UNKNOWN COMMAND\n"
                 : answer == "too-long" ? std::string(kTooLongReply, 'x')
                                        : ""};
}

Action reply(Words& words) {
    ReplyRule rule;
    rule.prefix = words.word("the beginning of the command");
    const std::optional<Reply> given = replyOf(words);
    if (!given) {
        words.end();
        return always([prefix = rule.prefix](Simulation& simulation) {
            simulation.supplicant.removeRules(prefix);
        });
    }
    words.readOptions({"on", "times", "after"});
    rule.reply = *given;
    rule.on = words.option("on", "");
    rule.times = times(words);
    rule.reply.after = words.duration("after", words.option("after", "0ms"));
    return always([rule](Simulation& simulation) {
        ReplyRule scaled = rule;
        scaled.reply.after = simulation.scaled(rule.reply.after);
        simulation.supplicant.addRule(std::move(scaled));
    });
}

// The station

Action connect(Words& words) {
    words.readOptions({"freq", "width", "rssi", "bssid", "ssid", "ip"});
    StaLink link;
    link.frequencyMHz = frequency(words, "5180MHz");
    link.width = words.width(words.option("width", "20"));
    const int rssi = dbm(words, words.option("rssi", "-50"));
    link.bssid = words.option("bssid", "02:00:00:00:01:00");
    link.ssid = words.option("ssid", "test");
    link.ip = words.option("ip", "10.0.0.2");
    return atOnce(
        [link, rssi](Simulation& simulation) { return simulation.headset.connect(link, rssi); });
}

Action disconnect(Words& words) {
    words.readOptions({"reason", "by"});
    const auto reason =
        static_cast<int>(words.number("reason", words.option("reason", "3"), "", 0, 65535));
    const bool byHeadset = words.optionOf("by", {"headset", "ap"}) == "headset";
    return atOnce([reason, byHeadset](Simulation& simulation) {
        return simulation.headset.disconnect(reason, byHeadset);
    });
}

Action rssi(Words& words) {
    int from = 0;
    int to = 0;
    Duration over{0};
    if (words.skip("from")) {
        from = dbm(words, words.word("the first signal (dBm)"));
        words.oneOf("word", {"to"});
        to = dbm(words, words.word("the last signal (dBm)"));
        words.oneOf("word", {"over"});
        over = words.duration("the walk's time", words.word("the walk's time"));
    } else {
        from = to = dbm(words, words.word("the signal (dBm)"));
    }
    words.end();
    return always([from, to, over](Simulation& simulation) {
        simulation.radio.signal.walk(from, to, EventLoop::Clock::now(), simulation.scaled(over));
    });
}

Action channel(Words& words) {
    words.oneOf("action on the channel", {"switch"});
    words.readOptions({"freq", "width", "ifname", "style"});
    ChannelSwitch change;
    change.frequencyMHz = frequency(words, "5200MHz");
    change.width = words.width(words.option("width", "20"));
    change.ifname = fileName(words, "ifname", words.option("ifname", "wlan0"));
    change.mainline = words.optionOf("style", {"headset", "mainline"}) == "mainline";
    return atOnce(
        [change](Simulation& simulation) { return simulation.headset.switchChannel(change); });
}

Action scan(Words& words) {
    words.readOptions({"networks"});
    const auto networks =
        static_cast<int>(words.number("networks", words.option("networks", "3"), "", 0, 1000));
    return atOnce([networks](Simulation& simulation) { return simulation.headset.scan(networks); });
}

Action regdom(Words& words) {
    words.readOptions({"init", "type", "alpha2", "on"});
    const Regdom regdom{words.required("init", "USER"), words.required("type", "COUNTRY"),
                        words.option("alpha2", ""), words.option("on", "wlan0")};
    return atOnce(
        [regdom](Simulation& simulation) { return simulation.headset.changeRegdom(regdom); });
}

Action assoc(Words& words) {
    words.oneOf("word", {"started"});
    words.readOptions({"ifname"});
    return atOnce([ifname = words.required("ifname", "p2p-wlan0-0")](Simulation& simulation) {
        return simulation.headset.startAssociation(ifname);
    });
}

// P2P

Action startGroup(Words& words) {
    words.readOptions({"freq", "width", "ifname", "on", "role", "up-after"});
    P2pStart start;
    start.frequencyMHz = frequency(words, "5180MHz");
    start.width = words.width(words.option("width", "20"));
    start.ifname = fileOption(words, "ifname");
    start.on = words.option("on", "");
    start.groupOwner = words.optionOf("role", {"GO", "client"}) == "GO";
    start.upAfter = words.duration("up-after", words.option("up-after", "150ms"));
    return atOnce([start](Simulation& simulation) {
        P2pStart scaled = start;
        scaled.upAfter = simulation.scaled(start.upAfter);
        return simulation.headset.startGroup(scaled);
    });
}

Action switchGroup(Words& words) {
    words.readOptions({"freq", "width"});
    const int frequencyMHz = frequency(words, "5200MHz");
    const Width width = words.width(words.option("width", "20"));
    return atOnce([frequencyMHz, width](Simulation& simulation) {
        return simulation.headset.switchGroup(frequencyMHz, width);
    });
}

Action stopGroup(Words& words) {
    words.readOptions({"reason", "down-after"});
    const Duration downAfter = words.duration("down-after", words.option("down-after", "190ms"));
    return atOnce(
        [reason = words.option("reason", "REQUESTED"), downAfter](Simulation& simulation) {
            return simulation.headset.stopGroup(reason, simulation.scaled(downAfter));
        });
}

Action p2p(Words& words) {
    const std::string_view what = words.oneOf("P2P action", {"start", "switch", "stop", "peer"});
    if (what == "start") {
        return startGroup(words);
    }
    if (what == "switch") {
        return switchGroup(words);
    }
    if (what == "stop") {
        return stopGroup(words);
    }
    const bool joins = words.oneOf("action of the peer", {"joins", "leaves"}) == "joins";
    words.readOptions({"mac"});
    return atOnce([joins, mac = words.option("mac", "46:00:00:00:02:00")](Simulation& simulation) {
        return simulation.headset.peer(joins, mac);
    });
}

Action interface(Words& words) {
    const bool add = words.oneOf("action on an interface", {"add", "remove"}) == "add";
    const std::string name = fileName(words, "interface", words.word("the interface's name"));
    words.end();
    return always([add, name](Simulation& simulation) {
        if (add) {
            simulation.radio.addInterface(name);
        } else {
            simulation.radio.removeInterface(name);
        }
    });
}

// Raw events

Action sendBytes(std::string socket, std::string bytes) {
    return atOnce([socket = std::move(socket), bytes = std::move(bytes)](Simulation& simulation) {
        if (!simulation.supplicant.isOpen(socket)) {
            return noSocket(socket);
        }
        simulation.supplicant.send(socket, bytes);
        return std::string();
    });
}

Action event(Words& words) {
    std::string socket = socketName(words);
    return sendBytes(std::move(socket), "<3>" + words.textToEnd("the event's text"));
}

Action raw(Words& words) {
    std::string socket = socketName(words);
    if (const auto text = words.quoted()) {
        words.end();
        return sendBytes(std::move(socket), *text);
    }
    words.readOptions({"size", "fill"});
    const auto size = words.number("size", words.required("size", "4096"), "", 0, 65536);
    const auto fill = words.number("fill", words.option("fill", "0x41"), "", 0, 255);
    return sendBytes(std::move(socket),
                     std::string(static_cast<size_t>(size), static_cast<char>(fill)));
}

Action burst(Words& words) {
    const std::string socket = socketName(words);
    const auto count =
        static_cast<int>(words.number("count", words.word("the number of events"), "", 1, 1000000));
    return atOnce([socket, count,
                   text = "<3>" + words.textToEnd("the event's text")](Simulation& simulation) {
        if (!simulation.supplicant.isOpen(socket)) {
            return noSocket(socket);
        }
        simulation.supplicant.burst(socket, count, text);
        return std::string();
    });
}

// The kernel

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
        words.fail("unknown error '" + text + "'; allowed: -1 to -4095, " + allowed);
    }
    return static_cast<int>(words.number("error", text, "", -4095, -1));
}

NetlinkRequest netlinkRequest(Words& words) {
    const std::string_view name = words.oneOf(
        "request", {"family", "interface-dump", "station-dump", "vendor", "frame", "any"});
    return name == "family"           ? NetlinkRequest::Family
           : name == "interface-dump" ? NetlinkRequest::InterfaceDump
           : name == "station-dump"   ? NetlinkRequest::StationDump
           : name == "vendor"         ? NetlinkRequest::Vendor
           : name == "frame"          ? NetlinkRequest::Frame
                                      : NetlinkRequest::Any;
}

NetlinkRule::Fault netlinkFault(Words& words) {
    using Fault = NetlinkRule::Fault;
    const std::string_view name = words.oneOf(
        "fault", {"truncated", "garbage", "no-station-info", "no-bitrate", "silent", "hang-up"});
    return name == "truncated"         ? Fault::Truncated
           : name == "garbage"         ? Fault::Garbage
           : name == "no-station-info" ? Fault::NoStationInfo
           : name == "no-bitrate"      ? Fault::NoBitrate
           : name == "silent"          ? Fault::Silent
                                       : Fault::HangUp;
}

Action netlinkFamily(Words& words) {
    int id = 0;
    if (!words.skip("absent")) {
        words.readOptions({"id"});
        id = static_cast<int>(
            words.number("id", words.required("id", "28 (or the word absent)"), "", 17, 65535));
    }
    words.end();
    return always([id](Simulation& simulation) { simulation.kernel.setFamily(id); });
}

Action netlinkRule(Words& words, bool isError) {
    NetlinkRule rule{};
    rule.request = netlinkRequest(words);
    if (isError) {
        rule.fault = NetlinkRule::Fault::Error;
        rule.error = errorNumber(words);
        rule.atEnd = words.skip("at-end");
        if (rule.atEnd && rule.request != NetlinkRequest::InterfaceDump &&
            rule.request != NetlinkRequest::StationDump) {
            words.fail("at-end is for the end of interface-dump or station-dump");
        }
        rule.extAck = rule.atEnd ? "" : words.quoted().value_or("");
        rule.capped = !rule.atEnd && words.skip("capped");
    } else {
        rule.fault = netlinkFault(words);
    }
    words.readOptions({"times"});
    rule.times = times(words);
    return always([rule](Simulation& simulation) { simulation.kernel.addRule(rule); });
}

Action netlink(Words& words) {
    const std::string_view what = words.oneOf(
        "netlink action", {"family", "error", "spoil", "heal", "listen", "close", "remove"});
    if (what == "family") {
        return netlinkFamily(words);
    }
    if (what == "error" || what == "spoil") {
        return netlinkRule(words, what == "error");
    }
    if (what == "heal") {
        const NetlinkRequest request = words.atEnd() ? NetlinkRequest::Any : netlinkRequest(words);
        words.end();
        return always(
            [request](Simulation& simulation) { simulation.kernel.removeRules(request); });
    }
    words.end();
    if (what == "listen") {
        return atOnce([](Simulation& simulation) { return simulation.kernel.listen(); });
    }
    return always([remove = what == "remove"](Simulation& simulation) {
        simulation.kernel.close();
        if (remove) {
            simulation.kernel.removePath();
        }
    });
}

// Programs

Action stats(Words& words) {
    const std::string_view what =
        words.oneOf("action of the statistics service", {"start", "stop", "crash"});
    words.end();
    if (what == "start") {
        return [](Simulation& simulation, Done done) {
            simulation.programs.startStats(std::move(done));
        };
    }
    return [signal = what == "stop" ? SIGTERM : SIGKILL](Simulation& simulation, Done done) {
        simulation.programs.endStats(signal, std::move(done));
    };
}

Action daemon(Words& words) {
    const std::string_view what =
        words.oneOf("action on the daemon", {"start", "stop", "kill", "signal"});
    int signal = what == "kill" ? SIGKILL : SIGTERM;
    if (what == "signal") {
        signal =
            static_cast<int>(words.number("signal", words.word("the signal's number"), "", 1, 64));
    }
    words.end();
    if (what == "start") {
        return
            [](Simulation& simulation, const Done& done) { simulation.programs.startDaemon(done); };
    }
    return [signal](Simulation& simulation, Done done) {
        simulation.programs.signalDaemon(signal, std::move(done));
    };
}

Action monitor(Words& words) {
    const std::string_view what =
        words.oneOf("action of the client", {"start", "stop", "suspend", "resume"});
    words.end();
    if (what == "suspend" || what == "resume") {
        return atOnce([signal = what == "suspend" ? SIGSTOP : SIGCONT](Simulation& simulation) {
            return simulation.programs.signalMonitor(signal);
        });
    }
    return [start = what == "start"](Simulation& simulation, Done done) {
        if (start) {
            simulation.programs.startMonitor(done);
        } else {
            simulation.programs.stopMonitor(std::move(done));
        }
    };
}

Action runClient(std::vector<std::string> arguments) {
    return [arguments = std::move(arguments)](Simulation& simulation, const Done& done) {
        simulation.programs.runClient(arguments, done);
    };
}

Action call(Words& words) {
    std::vector<std::string> arguments = {"call", words.word("the method's name")};
    while (!words.atEnd()) {
        arguments.push_back(words.word("argument"));
    }
    if (words.checks().call) {
        const std::vector<std::string> asked(arguments.begin() + 1, arguments.end());
        if (const std::string wrong = words.checks().call(asked); !wrong.empty()) {
            words.fail(wrong);
        }
    }
    return runClient(std::move(arguments));
}

Action client(Words& words) {
    std::vector<std::string> arguments = {words.word("the client's word")};
    while (!words.atEnd()) {
        arguments.push_back(words.word("argument"));
    }
    return runClient(std::move(arguments));
}

Action dump(Words& words) {
    words.end();
    return runClient({"dump"});
}

// Showing and checking

Action say(Words& words) {
    return always([text = words.textToEnd("the text")](Simulation& simulation) {
        simulation.recorder.add(Record("say", text));
    });
}

Action state(Words& words) {
    words.end();
    return always([](Simulation& simulation) { simulation.recordState(); });
}

Action expect(Words& words) {
    static const std::vector<std::string_view> kKinds = {
        "event",  "command", "netlink",  "attach",  "detach",  "atom",   "log",
        "output", "call",    "callback", "sensors", "program", "socket", "burst"};
    Expectation expectation;
    expectation.unwanted = words.skip("no");
    expectation.kind = words.oneOf("kind of record", kKinds);
    expectation.text = words.word("the text");
    words.oneOf("word", {"within"});
    expectation.within = words.duration("the time", words.word("the time"));
    words.end();
    return [expectation](Simulation& simulation, Done done) {
        Expectation scaled = expectation;
        // A limit is there to fail, and what is due comes no later at a higher speed. What must not
        // come may come when the time is over.
        if (expectation.unwanted || simulation.speed < 1) {
            scaled.within = simulation.scaled(expectation.within);
        }
        simulation.expectations.add(scaled, std::move(done));
    };
}

/** Does nothing: the player of the lines looks for this verb. */
Action end(Words& words) {
    words.end();
    return always([](Simulation&) {});
}

}  // namespace

const std::vector<Verb>& verbs() {
    static const std::vector<Verb> kVerbs = {
        {"property", property, {{"property NAME VALUE", "sets a system property"}}},
        {"unset", unset, {{"unset NAME", "removes a system property"}}},
        {"sensors",
         sensors,
         {{"sensors OPERATION BEHAVIOUR",
           "how the sensor library behaves: controller.create and camera.create are ok, null or "
           "hang; controller.get, controller.set, controller.clear are ok, fail or hang; "
           "camera.notify is ok or hang"}}},
        {"supplicant",
         supplicant,
         {{"supplicant start [p2p=NAME]",
           "makes the folder and the socket wlan0, and one for the P2P device (p2p=p2p0) if asked; "
           "a socket file left by a crash is replaced"},
          {"supplicant terminate [remove-folder]",
           "ends in order: sends its last events (group removed, disconnected, terminating), "
           "removes "
           "its sockets, and the folder if asked"},
          {"supplicant crash", "ends without an event: the socket files stay"},
          {"supplicant restart", "crashes, if it runs, and starts again as before"},
          {"supplicant suspend", "answers nothing until it is resumed"},
          {"supplicant resume", "answers what came in meanwhile, and goes on"}}},
        {"socket",
         socket,
         {{"socket create|delete|abandon NAME",
           "a single socket: made, removed, or left behind with nobody listening"}}},
        {"folder",
         folder,
         {{"folder sockets create|remove", "the supplicant's socket folder, with everything in it"},
          {"folder hwbinder create|remove", "the folder in which services and clients meet"}}},
        {"connect",
         connect,
         {{"connect freq=MHZ [width=20] [rssi=-50] [bssid=MAC] [ssid=NAME] [ip=ADDRESS]",
           "associates and connects"}}},
        {"disconnect",
         disconnect,
         {{"disconnect [reason=3] [by=headset|ap]", "ends the connection"}}},
        {"rssi",
         rssi,
         {{"rssi DBM", "the signal from now on"},
          {"rssi from DBM to DBM over TIME", "the signal changes evenly"}}},
        {"channel",
         channel,
         {{"channel switch freq=MHZ [width=20] [ifname=wlan0] [style=headset|mainline]",
           "the access point (or, by ifname, the group) moves; style=mainline has the words of the "
           "mainline supplicant"}}},
        {"scan", scan, {{"scan [networks=3]", "a scan, with results on every socket"}}},
        {"regdom",
         regdom,
         {{"regdom init=USER type=COUNTRY [alpha2=US] [on=wlan0]", "regulatory change"}}},
        {"assoc", assoc, {{"assoc started ifname=NAME", "an association begins"}}},
        {"p2p",
         p2p,
         {{"p2p start freq=MHZ [width=20] [ifname=NAME] [on=SOCKET] [role=GO|client] "
           "[up-after=150ms]",
           "a group starts on ifname: the P2P device if there is one, else p2p-wlan0-0, whose "
           "socket appears up-after before the group's events; on is the socket of the start "
           "event"},
          {"p2p switch freq=MHZ [width=20]",
           "the group moves: events on its own socket, and on wlan0 with its name"},
          {"p2p stop [reason=REQUESTED] [down-after=190ms]",
           "the group ends; a socket that came with it goes down-after later"},
          {"p2p peer joins|leaves [mac=MAC]", "a client of the group comes or goes"}}},
        {"interface",
         interface,
         {{"interface add|remove NAME", "an interface in the kernel's list only"}}},
        {"event", event, {{"event SOCKET TEXT", "an event with the tag <3> before it"}}},
        {"raw",
         raw,
         {{"raw SOCKET \"TEXT\"", "exactly these bytes"},
          {"raw SOCKET size=N [fill=0x41]", "N bytes of the value fill"}}},
        {"burst",
         burst,
         {{"burst SOCKET N TEXT", "N events at once; {n} in TEXT is the number, from 1"}}},
        {"reply",
         reply,
         {{"reply COMMAND ANSWER [on=SOCKET] [times=N] [after=TIME]",
           "commands that begin with COMMAND get ANSWER: ok, fail, unknown, empty, none, too-long "
           "(5000 bytes) or a quoted text"},
          {"reply COMMAND default", "removes the rules for COMMAND"}}},
        {"netlink",
         netlink,
         {{"netlink family id=28", "the family's number"},
          {"netlink family absent", "there is no nl80211"},
          {"netlink error REQUEST ERROR [\"TEXT\"] [capped] [times=N]",
           "REQUEST is refused with ERROR (EBUSY, -95), with TEXT as extended acknowledgement; "
           "capped leaves the echo of the request away"},
          {"netlink error DUMP ERROR at-end [times=N]",
           "interface-dump or station-dump ends with ERROR in its NLMSG_DONE, as Linux 6.1 does "
           "it"},
          {"netlink spoil REQUEST FAULT [times=N]",
           "FAULT: truncated, garbage, no-station-info, no-bitrate, silent, hang-up"},
          {"netlink heal [REQUEST]", "removes the rules for REQUEST, or all"},
          {"netlink listen|close|remove",
           "whether anybody listens: close leaves the path, remove takes it away"}}},
        {"stats", stats, {{"stats start|stop|crash", "the statistics service"}}},
        {"daemon",
         daemon,
         {{"daemon start|stop|kill", "the daemon given with --daemon"},
          {"daemon signal N", "sends it the signal of this number"}}},
        {"monitor",
         monitor,
         {{"monitor start|stop", "a client that registers a callback and shows what it is told"},
          {"monitor suspend|resume", "it hangs: what calls it back waits; or goes on"}}},
        {"call",
         call,
         {{"call METHOD [ARG ...]",
           "corvid-wifi call; what stands right below it waits for the answer"}},
         Verb::Effect::Changes,
         true},
        {"client",
         client,
         {{"client WORD [ARG ...]",
           "corvid-wifi with any word, such as status; waited for as well"}},
         Verb::Effect::Changes,
         true},
        {"dump", dump, {{"dump", "the daemon's dump"}}, Verb::Effect::Changes, true},
        {"expect",
         expect,
         {{"expect KIND TEXT within TIME",
           "a record of KIND (see Records) comes within TIME whose socket and text, with a blank "
           "between them, contain TEXT"},
          {"expect no KIND TEXT within TIME", "none comes"}},
         Verb::Effect::Expects},
        {"say", say, {{"say TEXT", "a heading in the timeline"}}, Verb::Effect::Tells},
        {"state",
         state,
         {{"state",
           "a record of sockets with their monitors, the link, and the daemon's process id"}},
         Verb::Effect::Tells},
        {"end", end, {{"end", "the last line; without it the play ends with the last line done"}}}};
    return kVerbs;
}

std::string verbsHelp() {
    std::string text;
    for (const Verb& verb : verbs()) {
        for (const Verb::Help& help : verb.help) {
            text.append(help.form).append("\n    ").append(help.what).append("\n");
        }
    }
    return text;
}

}  // namespace sim
