#include "tools/Words.h"

#include <corvid_wifi_version.h>

#include <algorithm>

#include "tools/BugReport.h"
#include "tools/Debug.h"
#include "tools/Json.h"
#include "tools/Methods.h"
#include "tools/Print.h"
#include "tools/ReportWords.h"
#include "tools/ServiceWords.h"

namespace Ursa::OS::Wifi::Tools {

namespace {

constexpr std::string_view kSummary =
    "asks the Wi-Fi service, tells it what to do, and shows its events";

struct Named {
    std::string_view name;
    std::string_view what;
};

constexpr Named kStatuses[] = {
    {"0", "done (a status code of 0, an id of 0 or more, any record or text)"},
    {"1", "the service answered a failure, or the output can't be written"},
    {"2", "wrong usage"},
    {"3", "the service is not available, or this user may not call it"},
    {"4", "the service died while it was monitored"},
    {"5", "the service did not answer in time"},
};

constexpr Named kEnvironment[] = {
    {"CORVID_WIFI_ROOT",
     "on a host, the folder that stands for the device's root; the service is found in the same "
     "one"},
    {"ANDROID_LOG_TAGS", "on a host, the lowest level of the client's own log that is shown"},
    {"NO_COLOR", "no colours, as where standard output is no terminal"},
    {"TERM", "dumb: no colours, and watch writes one screen below the other"},
    {"TMPDIR", "where bugreport keeps its parts until it packs them"},
};

constexpr size_t kWhatColumn = 26;
constexpr size_t kLineWidth = 100;

int runHelp(const CommandLine& line) {
    print(line.has("--json") ? helpJson() + "\n" : helpText());
    return kSuccess;
}

int runVersion(const CommandLine& line) {
    print(line.has("--json") ? toLine({{"version", CORVID_WIFI_VERSION}}) + "\n"
                             : "corvid-wifi " CORVID_WIFI_VERSION "\n");
    return kSuccess;
}

/** `head`, and `what` behind it from the column of the explanations on, in as many lines. */
std::string entry(std::string head, std::string_view what) {
    const size_t gap = 2;
    head = "  " + head;
    std::string out = head.size() + gap > kWhatColumn ? head + "\n" : head;
    size_t column = head.size() + gap > kWhatColumn ? 0 : head.size();
    while (!what.empty()) {
        const size_t length = std::min(what.find(' '), what.size());
        if (column < kWhatColumn) {
            out.append(kWhatColumn - column, ' ');
            column = kWhatColumn;
        } else if (column + 1 + length > kLineWidth) {
            out.append("\n").append(kWhatColumn, ' ');
            column = kWhatColumn;
        } else {
            out += ' ';
            ++column;
        }
        out.append(what.substr(0, length));
        column += length;
        what.remove_prefix(std::min(length + 1, what.size()));
    }
    return out + "\n";
}

std::string headOf(const Option& option) {
    return std::string(option.name) + (option.value.empty() ? "" : " ") + std::string(option.value);
}

Json jsonOf(const std::vector<Option>& options) {
    Json list = Json::array();
    for (const Option& option : options) {
        list.push_back({{"name", option.name}, {"value", option.value}, {"what", option.what}});
    }
    return list;
}

std::vector<std::string> methodNames() {
    std::vector<std::string> names;
    for (const Method& method : allMethods()) {
        names.push_back(method.name);
    }
    return names;
}

template <size_t kCount>
Json jsonOf(const Named (&entries)[kCount]) {
    Json list = Json::array();
    for (const Named& one : entries) {
        list.push_back({{"name", one.name}, {"what", one.what}});
    }
    return list;
}

}  // namespace

const std::vector<Word>& allWords() {
    constexpr size_t kAny = 100;
    static const std::vector<Word> words = {
        {"bugreport",
         "",
         "packs status, report, dump, properties, logs, supplicant's and kernel's view into a "
         "tar.gz",
         {{"-o", "FILE", "its name (corvid-wifi-DATE-TIME.tar.gz)"},
          {"--anonymize", "", "replaces addresses, SSIDs and passphrases"}},
         0,
         0,
         runBugReport},
        {"call",
         "METHOD [ARG ...]",
         "calls a method of IWifi and prints the answer as JSON",
         {{"--list", "", "lists the methods with their arguments instead"},
          {"--check", "", "only says whether that could be called"}},
         0,
         kAny,
         runCall,
         true,
         methodNames()},
        {"debug",
         "[NAME ...]",
         "prints what the service knows about itself: sta, p2p, power, coex, sockets, netlink, "
         "clients, properties, history, threads; without a name all of it",
         {},
         0,
         kReportSections.size(),
         runDebug,
         false,
         {kReportSections.begin(), kReportSections.end()}},
        {"dump", "", "prints the state of every feature, in the fixed text", {}, 0, 0, runDump},
        {"history", "", "prints the last state changes, events and commands", {}, 0, 0, runHistory},
        {"monitor",
         "",
         "prints each event as a line of JSON, until Ctrl-C",
         {{"--timestamps", "", "each line with the time of day"},
          {"--all", "", "the service's history too, as it grows"}},
         0,
         0,
         runMonitor},
        {"p2p", "", "prints the P2P group's channel", {}, 0, 0, runP2p},
        {"props",
         "[PATTERN] | set KEY VALUE",
         "prints the daemon's properties: value, default, where it came from, when a change takes "
         "effect; set changes one",
         {},
         0,
         3,
         runProps},
        {"record",
         "FILE",
         "writes a trace of the link for corvid-trace, until Ctrl-C; - is standard output. Each "
         "sample costs the daemon a SIGNAL_POLL and a netlink dump",
         {{"--interval", "TIME", "between two samples (1s; 100ms at least)"},
          {"--until", "TIME", "ends after that time: 10min"},
          {"--label", "TEXT", "what people call the walk (FILE's name without its ending)"},
          {"--force", "", "writes over FILE"}},
         1,
         1,
         runRecord},
        {"sta", "", "prints the station link's channel and signal", {}, 0, 0, runSta},
        {"status",
         "",
         "prints one screen: link, power, features, and what is wrong",
         {},
         0,
         0,
         runStatus},
        {"watch",
         "",
         "status again and again, until Ctrl-C",
         {{"--interval", "TIME", "between two looks (1s; 100ms at least)"}},
         0,
         0,
         runWatch},
        {"--help", "", "prints this", {}, 0, 0, runHelp},
        {"--version", "", "prints the version", {}, 0, 0, runVersion},
    };
    return words;
}

std::string helpText() {
    std::string text = "corvid-wifi: " + std::string(kSummary) +
                       "\n\nusage: corvid-wifi [OPTION ...] COMMAND [ARG ...]\n\nCommands:\n";
    for (const Word& word : allWords()) {
        text += entry(std::string(word.name) + (word.arguments.empty() ? "" : " ") +
                          std::string(word.arguments),
                      word.what);
        for (const Option& option : word.options) {
            text += entry("  " + headOf(option), option.what);
        }
    }
    text += "\nOptions of every command:\n";
    for (const Option& option : commonOptions()) {
        text += entry(headOf(option), option.what);
    }
    text += "\nExit status:\n";
    for (const Named& status : kStatuses) {
        text += entry(std::string(status.name), status.what);
    }
    text += "\nEnvironment:\n";
    for (const Named& variable : kEnvironment) {
        text += entry(std::string(variable.name), variable.what);
    }
    return text;
}

std::string helpJson() {
    Json words = Json::array();
    for (const Word& word : allWords()) {
        words.push_back({{"name", word.name},
                         {"arguments", word.arguments},
                         {"what", word.what},
                         {"options", jsonOf(word.options)},
                         {"choices", word.choices}});
    }
    return toLine({{"name", "corvid-wifi"},
                   {"summary", kSummary},
                   {"version", CORVID_WIFI_VERSION},
                   {"usage", {"corvid-wifi [OPTION ...] COMMAND [ARG ...]"}},
                   {"words", words},
                   {"options", jsonOf(commonOptions())},
                   {"statuses", jsonOf(kStatuses)},
                   {"environment", jsonOf(kEnvironment)}});
}

}  // namespace Ursa::OS::Wifi::Tools
