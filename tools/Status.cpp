// status and watch.

#include <poll.h>
#include <unistd.h>

#include <cstdlib>
#include <iterator>
#include <thread>

#include "tools/Print.h"
#include "tools/Properties.h"
#include "tools/Report.h"
#include "tools/ReportWords.h"
#include "tools/Service.h"
#include "tools/StopSignals.h"
#include "tools/Troubles.h"
#include "tools/WakeFd.h"

namespace Ursa::OS::Wifi::Tools {

namespace {

constexpr size_t kLabelWidth = 10;

std::string row(const std::string& label, const std::string& text, bool isRed = false) {
    return label + std::string(kLabelWidth - label.size(), ' ') + (isRed ? "\033[1;31m" : "") +
           printable(text) + (isRed ? "\033[0m" : "") + "\n";
}

/** A number with its unit, or "unknown". */
std::string valueText(const Json& object, const char* field, const char* unit) {
    const auto value = object.find(field);
    return value == object.end() || value->is_null() ? "unknown" : toLine(*value) + unit;
}

Json stateOf(const std::map<std::string, Json>& features, const char* name) {
    const auto feature = features.find(name);
    if (feature == features.end()) {
        return Json::object();
    }
    const auto state = feature->second.find("state");
    return state != feature->second.end() && state->is_object() ? *state : Json::object();
}

std::string linkText(const Json& sta) {
    if (sta.value("link", Json()) != "up") {
        return "none";
    }
    const auto sampled = sta.find("sampledAt");
    return valueText(sta, "frequency", " MHz") + ", " + valueText(sta, "rssi", " dBm") +
           (sampled != sta.end() ? ", sampled " + agoText(*sampled) : "");
}

/** A power as it was set, or that it never was. */
std::string powerOf(const Json& state, const char* field) {
    const auto value = state.find(field);
    return value == state.end() || value->is_null() ? "never set" : toLine(*value);
}

std::string powerText(const Json& state) {
    if (state.empty()) {
        return "not controlled";
    }
    if (state.value("mode", Json()) == "per-chain") {
        const auto chains = state.find("perChain");
        return "station limits per chain " +
               (chains != state.end() ? toLine(chains->value("current", Json())) : "unknown") +
               ", P2P " + powerOf(state, "p2pPower");
    }
    return "station " + powerOf(state, "staPower") + ", P2P " + powerOf(state, "p2pPower");
}

std::string socketsText(const Json& report) {
    std::string text;
    for (const Json& socket : report.value("sockets", Json::object()).value("sockets", Json())) {
        text += (text.empty() ? "" : "; ") + nameOf(socket) + " " +
                socket.value("state", std::string()) + " for " +
                durationText(std::max<int64_t>(0, agoMs(socket.value("since", Json()))));
    }
    return text.empty() ? "none" : text;
}

std::string clientsText(const Json& report) {
    std::string text;
    for (const Json& client : report.value("clients", Json::array())) {
        text += (text.empty() ? "process " : ", ") + toLine(client.value("pid", Json()));
    }
    return text.empty() ? "none" : text;
}

bool wantsColour() {
    const char* none = std::getenv("NO_COLOR");
    return knowsEscapes(STDOUT_FILENO) && (none == nullptr || *none == '\0');
}

Json statusJson(const Json& report, const std::vector<std::string>& troubles) {
    const auto features = featuresOf(report);
    Json on = Json::object();
    for (const auto& [name, feature] : features) {
        on[name] = feature.value("enabled", false);
    }
    return {{"build", report.value("build", Json())},
            {"process", report.value("process", Json())},
            {"link", stateOf(features, "StaManager")},
            {"power", stateOf(features, "TxPowerManager")},
            {"group", stateOf(features, "P2pManager")},
            {"features", on},
            {"sockets", report.value("sockets", Json())},
            {"clients", report.value("clients", Json())},
            {"trouble", troubles}};
}

void show(const CommandLine& line, const Json& report, bool colour) {
    const auto troubles = troublesOf(report, daemonProperties());
    print(line.has("--json") ? toLine(statusJson(report, troubles)) + "\n"
                             : statusText(report, troubles, colour));
}

}  // namespace

std::string statusText(const Json& report, const std::vector<std::string>& troubles, bool colour) {
    const Json build = report.value("build", Json::object());
    const Json process = report.value("process", Json::object());
    const auto features = featuresOf(report);
    std::string text = row("daemon", build.value("version", std::string("?")) + " (" +
                                         build.value("commit", std::string("?")) + ", " +
                                         build.value("platform", std::string("?")) + "), process " +
                                         toLine(process.value("pid", Json())) + ", up " +
                                         durationText(process.value("uptimeMs", int64_t{0})));
    text += row("link", linkText(stateOf(features, "StaManager")));
    text += row("power", powerText(stateOf(features, "TxPowerManager")));
    const Json group = stateOf(features, "P2pManager");
    const bool hasGroup = group.contains("frequency") && !group["frequency"].is_null();
    text += row("group", hasGroup ? valueText(group, "frequency", " MHz") : "none");
    std::string on;
    std::string off;
    for (const auto& [name, feature] : features) {
        if (feature.value("switches", Json::array()).empty()) {
            continue;  // always on
        }
        std::string& list = feature.value("enabled", false) ? on : off;
        list += (list.empty() ? "" : " ") + name;
    }
    text += row("on", on.empty() ? "none" : on);
    text += row("off", off.empty() ? "none" : off);
    text += row("sockets", socketsText(report));
    text += row("clients", clientsText(report));
    if (troubles.empty()) {
        return text + row("trouble", "none");
    }
    std::string label = "trouble";
    for (const std::string& trouble : troubles) {
        text += row(label, trouble, colour);
        label.clear();
    }
    return text;
}

int runStatus(const CommandLine& line) {
    const Deadline deadline(line.timeout());
    show(line, askReport(findService(line)), wantsColour());
    return kSuccess;
}

int runWatch(const CommandLine& line) {
    constexpr std::chrono::milliseconds kDefault{1000};
    constexpr std::chrono::milliseconds kShortest{100};
    const auto interval =
        line.has("--interval") ? readTime("--interval", line.value("--interval")) : kDefault;
    if (interval < kShortest) {
        throw UsageError("--interval is " + toLine(line.value("--interval")) +
                         "; allowed is 100ms or more");
    }
    const WakeFd stop;
    const StopSignals signals(stop);
    const Deadline deadline(line.timeout());
    const auto service = findService(line);
    const bool clears = knowsEscapes(STDOUT_FILENO) && !line.has("--json");
    while (true) {
        deadline.start();
        const Json report = askReport(service);
        deadline.stop();
        print(clears ? "\033[H\033[2J" : "");
        show(line, report, wantsColour());
        print(clears || line.has("--json") ? "" : "\n");
        if (std::fflush(stdout) != 0) {
            return kFailure;
        }
        pollfd end = {stop.fd(), POLLIN, 0};
        if (poll(&end, 1, static_cast<int>(interval.count())) > 0) {
            return kSuccess;
        }
    }
}

}  // namespace Ursa::OS::Wifi::Tools
