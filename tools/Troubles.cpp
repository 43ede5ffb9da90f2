#include "tools/Troubles.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <optional>

#include "tools/Nearest.h"
#include "tools/Report.h"
#include "tools/ReportWords.h"

namespace Ursa::OS::Wifi::Tools {

namespace {

/** Longer than anything that is well takes. */
constexpr int64_t kTooLongMs = 1000;
constexpr std::string_view kPrefix = "persist.vendor.wifi.";
constexpr const char* kFeatureSections[] = {"sta", "p2p", "power", "coex"};
/** Runs as long as there is a link. */
constexpr std::string_view kSampler = "StaManager.worker";

using Troubles = std::vector<std::string>;

std::string textOf(const Json& object, const char* field) {
    const auto value = object.find(field);
    return value != object.end() && value->is_string() ? value->get<std::string>() : "";
}

int64_t numberOf(const Json& object, const char* field) {
    const auto value = object.find(field);
    return value != object.end() && value->is_number() ? value->get<int64_t>() : 0;
}

const Json& partOf(const Json& object, const char* field) {
    static const Json kNothing;
    const auto value = object.find(field);
    return value != object.end() ? *value : kNothing;
}

bool isRefusal(const Json& command) {
    const std::string reply = textOf(command, "reply");
    return reply.rfind("FAIL", 0) == 0 || reply.rfind("UNKNOWN COMMAND", 0) == 0;
}

/** The last command to the supplicant on an interface, of all features; null if there is none. */
Json lastCommandOn(const Json& report, const std::string& interface) {
    Json last;
    for (const auto& [name, feature] : featuresOf(report)) {
        const Json& command = partOf(feature, "lastCommand");
        if (textOf(command, "channel") == "supplicant" &&
            textOf(command, "interface") == interface &&
            (last.is_null() || numberOf(partOf(command, "at"), "monotonicMs") >
                                   numberOf(partOf(last, "at"), "monotonicMs"))) {
            last = command;
        }
    }
    return last;
}

/** What became of a command that never reached the supplicant; empty for any other. */
std::string whyLost(const Json& command) {
    const std::string outcome = textOf(command, "outcome");
    if (outcome == "not-sent") {
        return "was not sent";
    }
    return outcome == "failed" ? "failed" : outcome == "not-connected" ? "found no connection" : "";
}

/** Of a socket that is connected: whether commands get through, and are answered. */
void addCommands(const Json& report, const Json& socket, Troubles& troubles) {
    const std::string name = nameOf(socket);
    const std::string commands = std::to_string(numberOf(socket, "commands")) + " commands ";
    const Json last = lastCommandOn(report, textOf(socket, "interface"));
    const std::string lost = whyLost(last);
    // One from before the connection says nothing about it.
    if (textOf(socket, "state") == "Connected" && !lost.empty() &&
        numberOf(socket, "failures") > 0 &&
        numberOf(partOf(last, "at"), "monotonicMs") >=
            numberOf(partOf(socket, "since"), "monotonicMs")) {
        troubles.push_back("the supplicant on " + name + " is gone: " + textOf(last, "text") + " " +
                           lost + " " + agoText(partOf(last, "at")) + ", " +
                           std::to_string(numberOf(socket, "failures")) + " of " + commands +
                           "failed (a crash?)");
    }
    if (const Json& pending = partOf(socket, "pending");
        pending.is_object() && numberOf(pending, "durationUs") > kTooLongMs * 1000) {
        troubles.push_back("the supplicant does not answer on " + name + ": " +
                           textOf(pending, "text") + " waits for " +
                           durationText(numberOf(pending, "durationUs") / 1000) +
                           " (stopped, or busy)");
    } else if (numberOf(socket, "timeouts") > 0) {
        troubles.push_back("the supplicant did not answer " +
                           std::to_string(numberOf(socket, "timeouts")) + " of " + commands +
                           "on " + name + " (stopped, or busy)");
    }
}

/** Of a socket that has a file but no connection: the attempts. True if it is one. */
bool addAttempts(const Json& socket, Troubles& troubles) {
    const std::string path = textOf(socket, "path");
    const std::string state = textOf(socket, "state");
    const std::string error = textOf(partOf(socket, "lastError"), "text");
    const std::string time = durationText(std::max<int64_t>(0, agoMs(partOf(socket, "since"))));
    if (state == "Connecting") {
        troubles.push_back("no supplicant behind " + path + ": " +
                           std::to_string(numberOf(socket, "attempts")) + " attempts in " + time +
                           (error.empty() ? "" : ", " + error) +
                           " (a socket file left by a crash?)");
        return true;
    }
    if (state == "Stopped" && !path.empty()) {
        troubles.push_back("nobody answers behind " + path + ": given up " + time + " ago" +
                           (error.empty() ? "" : ", last error: " + error));
        return true;
    }
    return false;
}

void addSockets(const Json& report, Troubles& troubles) {
    const Json& all = partOf(report, "sockets");
    bool hasSta = false;
    bool hasFile = false;
    for (const Json& socket : partOf(all, "sockets")) {
        hasSta = hasSta ||
                 (textOf(socket, "interface") == "STA" && textOf(socket, "state") == "Connected");
        addCommands(report, socket, troubles);
        hasFile = addAttempts(socket, troubles) || hasFile;
    }
    if (!hasSta && !hasFile) {
        troubles.push_back("no supplicant: there is no socket of a station interface in " +
                           textOf(all, "directory"));
    }
}

void addClients(const Json& report, Troubles& troubles) {
    for (const Json& client : partOf(report, "clients")) {
        const Json& current = partOf(client, "current");
        const std::string pid = std::to_string(numberOf(client, "pid"));
        if (current.is_object() && agoMs(partOf(current, "since")) > kTooLongMs) {
            troubles.push_back("the client with process id " + pid + " hangs: it has been in " +
                               textOf(current, "method") + " for " +
                               durationText(agoMs(partOf(current, "since"))) +
                               ", and events wait behind it");
        } else if (numberOf(client, "slowestUs") > kTooLongMs * 1000) {
            troubles.push_back("the client with process id " + pid + " is slow: it took " +
                               durationText(numberOf(client, "slowestUs") / 1000) + " in " +
                               textOf(client, "slowestMethod"));
        }
    }
}

void addFeatures(const Json& report, Troubles& troubles) {
    for (const auto& [name, feature] : featuresOf(report)) {
        const Json& state = partOf(feature, "state");
        const Json& command = partOf(feature, "lastCommand");
        if (command.is_object() && isRefusal(command)) {
            troubles.push_back("the driver refused what " + name + " sent " +
                               agoText(partOf(command, "at")) + ": " + textOf(command, "text") +
                               " -> " + textOf(command, "reply"));
        }
        if (textOf(state, "lastResult") == "no response") {
            troubles.push_back("the controllers' sensor service does not respond (" + name + ", " +
                               agoText(partOf(state, "at")) + ")");
        } else if (textOf(state, "lastResult") == "failed") {
            troubles.push_back("the controllers' sensor service refused the blocked ranges (" +
                               name + ", " + agoText(partOf(state, "at")) + ")");
        }
        if (const int64_t failed = numberOf(state, "attemptsFailed"); failed > 0) {
            troubles.push_back("the cameras' sensor service does not take the clock (" + name +
                               ", " + std::to_string(failed) +
                               (failed == 1 ? " attempt)" : " attempts)"));
        }
        const Json& running = partOf(feature, "running");
        if (running.is_object() && textOf(running, "task") != kSampler &&
            agoMs(partOf(running, "since")) > kTooLongMs) {
            troubles.push_back(textOf(running, "task") + " has been running for " +
                               durationText(agoMs(partOf(running, "since"))));
        }
    }
}

void addNetlink(const Json& report, Troubles& troubles) {
    const Json& netlink = partOf(report, "netlink");
    if (const Json& pending = partOf(netlink, "pending");
        pending.is_object() && agoMs(partOf(pending, "since")) > kTooLongMs) {
        troubles.push_back("the kernel does not answer: " + textOf(pending, "text") +
                           " waits for " + durationText(agoMs(partOf(pending, "since"))));
    }
    for (const Json& failure : partOf(netlink, "failures")) {
        troubles.push_back("the kernel refused " + std::to_string(numberOf(failure, "count")) +
                           " nl80211 requests: " + textOf(failure, "text") + ", last " +
                           agoText(partOf(failure, "last")));
    }
}

void addProperties(const Json& report, const std::map<std::string, std::string>& setProperties,
                   Troubles& troubles) {
    std::vector<std::string> names;
    for (const Json& property : partOf(report, "properties")) {
        const std::string name = textOf(property, "name");
        names.push_back(name);
        if (textOf(property, "origin").rfind("malformed", 0) == 0) {
            troubles.push_back(name + " is set to " + toLine(partOf(property, "set")) +
                               ", which is no " + textOf(property, "type") +
                               ": the daemon takes its default " +
                               toLine(partOf(property, "default")));
        } else if (const Json& value = partOf(property, "value");
                   value.is_number() && !isInRange(property, value.get<int64_t>())) {
            troubles.push_back(name + " is " + toLine(value) + ", not " + valuesOf(property) +
                               "; " + otherwiseOf(property));
        }
        const Json& inForce = partOf(property, "inForce");
        if (!inForce.is_null() && inForce != partOf(property, "value")) {
            troubles.push_back(name + " is set to " + toLine(partOf(property, "value")) + ", but " +
                               toLine(inForce) + " is in force until the daemon restarts");
        }
    }
    if (names.empty()) {
        return;  // the report is of a part only
    }
    for (const auto& [name, value] : setProperties) {
        if (name.rfind(kPrefix, 0) == 0 &&
            std::find(names.begin(), names.end(), name) == names.end()) {
            troubles.push_back("the daemon has no property " + name + ", which is set to " +
                               toLine(value) + didYouMean(name, names));
        }
    }
}

/** The feature that a method of the interface is for. */
struct MethodOf {
    const char* method;
    const char* feature;
};
constexpr MethodOf kMethods[] = {
    {"startCsa", "ChannelSwitchManager"},
    {"setP2pNoa", "NoaManager"},
    {"setMccTimeAllocation", "MccTimeManager"},
    {"setElnaBypass", "ElnaBypassManager"},
    {"setScsV4", "ScsManager"},
    {"setScsV6", "ScsManager"},
    {"clearScs", "ScsManager"},
    {"updateTxPowerConfig", "TxPowerManager"},
};

}  // namespace

std::map<std::string, Json> featuresOf(const Json& report) {
    std::map<std::string, Json> features;
    for (const char* section : kFeatureSections) {
        const Json& part = partOf(report, section);
        if (part.is_object()) {
            for (const auto& [name, feature] : part.items()) {
                features[name] = feature;
            }
        }
    }
    return features;
}

std::string nameOf(const Json& socket) {
    const std::string path = textOf(socket, "path");
    return path.empty() ? textOf(socket, "interface")
                        : std::filesystem::path(path).filename().string();
}

Troubles troublesOf(const Json& report, const std::map<std::string, std::string>& setProperties) {
    Troubles troubles;
    addSockets(report, troubles);
    addClients(report, troubles);
    addFeatures(report, troubles);
    addNetlink(report, troubles);
    addProperties(report, setProperties, troubles);
    return troubles;
}

std::string whyRefused(const Json& report, const std::string& method, int64_t calledAtMs) {
    if (method == "setP2pPairedDeviceType") {
        return "nothing is tuned for this type: only HALBERD and MIRACAST are taken";
    }
    const auto* const entry =
        std::find_if(std::begin(kMethods), std::end(kMethods),
                     [&method](const MethodOf& one) { return one.method == method; });
    if (entry == std::end(kMethods)) {
        return "";
    }
    const auto features = featuresOf(report);
    const auto feature = features.find(entry->feature);
    if (feature == features.end()) {
        return "";
    }
    const std::string name = entry->feature;
    if (!feature->second.value("enabled", true)) {
        std::vector<std::string> switches;
        for (const Json& one : partOf(feature->second, "switches")) {
            switches.push_back(one.get<std::string>());
        }
        std::string allSwitches;
        for (const std::string& one : switches) {
            allSwitches += (allSwitches.empty() ? "" : " or ") + one;
        }
        return name + " is off: set " + allSwitches + " and restart";
    }
    const Json& command = partOf(feature->second, "lastCommand");
    if (command.is_object() && numberOf(partOf(command, "at"), "monotonicMs") >= calledAtMs) {
        const std::string outcome = textOf(command, "outcome");
        const std::string reply = textOf(command, "reply");
        return name + " sent " + toLine(textOf(command, "text")) + ": " +
               (outcome == "ok" ? "the answer was " + toLine(reply) : outcome);
    }
    std::vector<std::string> connected;
    for (const Json& socket : partOf(partOf(report, "sockets"), "sockets")) {
        if (textOf(socket, "state") == "Connected") {
            connected.push_back(nameOf(socket));
        }
    }
    return name + " sent nothing to the driver; connected supplicant sockets: " +
           (connected.empty() ? "none" : joined(connected));
}

}  // namespace Ursa::OS::Wifi::Tools
