#include "sim/Options.h"

#include <corvid_wifi_version.h>

#include <algorithm>
#include <cstdlib>

#include <nlohmann/json.hpp>

#include "sim/Nearest.h"
#include "sim/Record.h"

namespace sim {

namespace {

constexpr std::string_view kUsages[] = {"corvid-sim [OPTION ...] SCENARIO",
                                        "corvid-sim [OPTION ...] --control"};
constexpr std::string_view kSummary = "plays the headset around the Wi-Fi daemon";
constexpr std::string_view kDescription =
    "Plays the headset around the Wi-Fi daemon: supplicant, kernel side of nl80211, statistics "
    "service and properties, from a file of timed lines (see sim/README.md) or from lines on "
    "standard input.";

struct Named {
    std::string_view name;
    std::string_view what;
};
constexpr Named kEnvironment[] = {
    {"CORVID_WIFI_ROOT", "the folder if --root is not given"},
    {"ANDROID_LOG_TAGS",
     "which lines of the daemon's log are shown if --log is not given; CorvidWifi:V shows all"},
    {"NO_COLOR", "no colours; TERM=dumb does the same"},
};
constexpr Named kStatuses[] = {
    {"0", "played"},
    {"1",
     "a line failed, something expected did not happen, the daemon ended, or what happens can't be "
     "written"},
    {"2", "wrong usage or a line that is not understood"},
};
constexpr double kSlowest = 0.1;
constexpr double kFastest = 10;
constexpr size_t kWhatColumn = 20;
constexpr size_t kLineWidth = 100;

void setSpeed(Options& options, const std::string& value) {
    char* stop = nullptr;
    options.speed = std::strtod(value.c_str(), &stop);
    if (stop == value.c_str() || *stop != '\0' ||
        !(options.speed >= kSlowest && options.speed <= kFastest)) {
        throw UsageError("--speed takes a number from 0.1 to 10, not '" + value + "'");
    }
}

void setLog(Options& options, const std::string& value) {
    if (value.size() != 1 || std::string_view("VDIWE").find(value) == std::string_view::npos) {
        throw UsageError("--log takes V, D, I, W or E, not '" + value + "'");
    }
    options.logTags = "*:" + value;
}

/** The option of this name, dashes included; throws UsageError if there is none. */
const OptionRow& rowOf(const std::string& name) {
    std::vector<std::string> names;
    for (const OptionRow& row : optionRows()) {
        names.push_back("--" + std::string(row.name));
        if (names.back() == name) {
            return row;
        }
    }
    throw UsageError("unknown option " + name + didYouMean(name, {names.begin(), names.end()}));
}

/** The text in lines of the help, which begin at the column `indent`. */
std::string wrapped(std::string_view text, size_t indent = kWhatColumn) {
    std::string out;
    size_t column = indent;
    while (!text.empty()) {
        const size_t blank = std::min(text.find(' '), text.size());
        if (column + 1 + blank > kLineWidth) {
            out.append("\n").append(indent, ' ');
            column = indent;
        } else if (column > indent) {
            out += ' ';
            ++column;
        }
        out.append(text.substr(0, blank));
        column += blank;
        text.remove_prefix(std::min(blank + 1, text.size()));
    }
    return out;
}

/** A line of the help, or several. */
std::string entry(std::string head, std::string_view what) {
    head = "  " + head;
    head.append(head.size() < kWhatColumn - 1 ? kWhatColumn - head.size() : 2, ' ');
    return head + wrapped(what) + "\n";
}

template <size_t kCount>
Json listOf(const Named (&entries)[kCount]) {
    Json list = Json::array();
    for (const Named& one : entries) {
        list.push_back({{"name", one.name}, {"what", one.what}});
    }
    return list;
}

}  // namespace

const std::vector<OptionRow>& optionRows() {
    static const std::vector<OptionRow> rows = {
        {"root", "DIR",
         "folder that stands for the headset's /; what another play left in it is removed "
         "(default: $CORVID_WIFI_ROOT, else a temporary folder that is removed at the end)",
         [](Options& options, const std::string& value) { options.root = value; }},
        {"daemon", "PATH", "start this daemon, show what it does, and its dump at the end",
         [](Options& options, const std::string& value) { options.daemon = value; }},
        {"control", "", "play lines from standard input at once, one JSON answer per line",
         [](Options& options, const std::string&) { options.control = true; }},
        {"check", "",
         "only read the scenario and name everything that is wrong: status 0 when all of it is "
         "understood",
         [](Options& options, const std::string&) { options.check = true; }},
        {"record", "FILE", "write everything that happens as JSON lines",
         [](Options& options, const std::string& value) { options.record = value; }},
        {"speed", "X", "play X times as fast, from 0.1 to 10; the daemon's own time passes as fast",
         setSpeed},
        {"log", "LEVEL",
         "show the daemon's log lines from this level on: V, D, I, W (default) or E", setLog},
        {"no-stats", "", "do not start the statistics service",
         [](Options& options, const std::string&) { options.stats = false; }},
        {"no-dump", "", "no dump at the end",
         [](Options& options, const std::string&) { options.dump = false; }},
        {"plain", "", "no colours (default when standard output is no terminal)",
         [](Options& options, const std::string&) { options.plain = true; }},
        {"lines", "", "show what a line of a scenario can be",
         [](Options& options, const std::string&) { options.lines = true; }},
        {"help-json", "", "show this as JSON",
         [](Options& options, const std::string&) { options.helpJson = true; }},
        {"version", "", "show the version",
         [](Options& options, const std::string&) { options.version = true; }},
        {"help", "", "show this",
         [](Options& options, const std::string&) { options.help = true; }},
    };
    return rows;
}

Options readOptions(const std::vector<std::string>& words) {
    Options options;
    std::vector<std::string> scenarios;
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string word = words[i] == "-h" ? "--help" : words[i];
        if (word.empty() || word[0] != '-') {
            scenarios.push_back(word);
            continue;
        }
        const size_t equals = word.find('=');
        const OptionRow& row = rowOf(word.substr(0, equals));
        std::string value;
        if (row.value.empty() && equals != std::string::npos) {
            throw UsageError(word.substr(0, equals) + " takes no value");
        }
        if (!row.value.empty() && equals != std::string::npos) {
            value = word.substr(equals + 1);
        } else if (!row.value.empty()) {
            if (++i == words.size()) {
                throw UsageError(word + " needs a value");
            }
            value = words[i];
        }
        row.set(options, value);
        if (options.help || options.helpJson || options.lines || options.version) {
            return options;
        }
    }
    if (options.control && !scenarios.empty()) {
        throw UsageError("--control takes no scenario");
    }
    if (!options.control && scenarios.size() != 1) {
        throw UsageError("exactly one scenario is needed");
    }
    if (!options.control) {
        options.scenario = scenarios.front();
    }
    return options;
}

std::string versionText() { return "corvid-sim " CORVID_WIFI_VERSION "\n"; }

std::string optionsHelp() {
    std::string text;
    for (const std::string_view usage : kUsages) {
        text.append(text.empty() ? "usage: " : "       ").append(usage).append("\n");
    }
    text += "\n" + wrapped(kDescription, 0) + "\n\n";
    for (const OptionRow& row : optionRows()) {
        const std::string head = "--" + std::string(row.name) + (row.value.empty() ? "" : " ");
        text += entry(head + std::string(row.value), row.what);
    }
    text += "\nEnvironment:\n";
    for (const Named& one : kEnvironment) {
        text += entry(std::string(one.name), one.what);
    }
    text += "\nExit status:\n";
    for (const Named& one : kStatuses) {
        text += entry(std::string(one.name), one.what);
    }
    return text;
}

std::string optionsJson() {
    Json options = Json::array();
    for (const OptionRow& row : optionRows()) {
        options.push_back(
            {{"name", "--" + std::string(row.name)}, {"value", row.value}, {"what", row.what}});
    }
    return lineOf({{"name", "corvid-sim"},
                   {"summary", kSummary},
                   {"version", CORVID_WIFI_VERSION},
                   {"usage", kUsages},
                   {"description", {kDescription}},
                   {"words", Json::array()},
                   {"options", options},
                   {"statuses", listOf(kStatuses)},
                   {"environment", listOf(kEnvironment)}});
}

}  // namespace sim
