#include "sim/Timeline.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <utility>

#include <android/log.h>
#include <nlohmann/json.hpp>

namespace sim {

namespace {

/** Longer texts are cut: a line is for reading at a glance. */
constexpr size_t kLongestText = 160;
constexpr std::string_view kPowerCommand = "DRIVER SET_TXPOWER ";
/** Of these kinds, lines that are the same are counted. */
constexpr std::string_view kRepeating[] = {"atom",    "attach",  "burst",   "command",
                                           "detach",  "log",     "netlink", "output",
                                           "program", "sensors", "socket"};
constexpr int kWrittenOnes = 4;
constexpr size_t kWhoWidth = 22;
constexpr double kLongestWindow = 16;

/** What can't be printed becomes \xHH. */
std::string printable(std::string_view text) {
    std::string out;
    for (const char c : text.substr(0, kLongestText)) {
        if (c >= ' ' && c <= '~') {
            out += c;
        } else if (c == '\n') {
            out += ' ';
        } else {
            char escaped[8];
            std::snprintf(escaped, sizeof(escaped), "\\x%02x", static_cast<unsigned char>(c));
            out += escaped;
        }
    }
    while (!out.empty() && out.back() == ' ') {
        out.pop_back();
    }
    return text.size() > kLongestText ? out + "... (" + std::to_string(text.size()) + " bytes)"
                                      : out;
}

/** "RSSI=-48 ... FREQUENCY=5180 ..." of a longer reply gives the two lines that matter. */
std::string shortReply(std::string_view command, std::string_view reply) {
    if (command != "SIGNAL_POLL" && command != "STATUS") {
        return printable(reply);
    }
    std::string out;
    for (size_t begin = 0; begin < reply.size();) {
        const size_t end = std::min(reply.find('\n', begin), reply.size());
        const std::string_view entry = reply.substr(begin, end - begin);
        const std::string_view name = entry.substr(0, entry.find('='));
        if (name == "RSSI" || name == "FREQUENCY" || name == "bssid" || name == "address" ||
            name == "ip_address") {
            out.append(out.empty() ? "" : " ").append(entry);
        }
        begin = end + 1;
    }
    return out.empty() ? printable(reply) : out;
}

/** An android_LogPriority. */
int priorityOf(char level) {
    constexpr std::string_view kLevels = "VDIWEF";
    return ANDROID_LOG_VERBOSE + static_cast<int>(std::min(kLevels.find(level), kLevels.size()));
}

/** An event's text without its priority tag. */
std::string_view eventText(std::string_view text) {
    return text.size() > 3 && text[0] == '<' && text[2] == '>' ? text.substr(3) : text;
}

}  // namespace

void Timeline::line(const Record& record, Style style, std::string_view who,
                    std::string_view text) {
    const bool repeats = std::find(std::begin(kRepeating), std::end(kRepeating), record.kind) !=
                         std::end(kRepeating);
    if (!repeats || !leaveOut(record.t, style, who, text)) {
        write(record.t, style, who, text);
    }
}

void Timeline::write(double t, Style style, std::string_view who, std::string_view text) {
    static constexpr const char* kCodes[] = {"",         "\033[2m",  "\033[1m",
                                             "\033[36m", "\033[33m", "\033[1;33m",
                                             "\033[32m", "\033[35m", "\033[1;31m"};
    const bool colour = look_.colour && style != Style::Plain;
    char head[64];
    std::snprintf(head, sizeof(head), "%8.3f  ", t);
    std::string whole = colour ? kCodes[static_cast<int>(style)] : "";
    whole.append(head).append(who);
    whole.append(who.size() < kWhoWidth ? kWhoWidth - who.size() : 0, ' ');
    whole.append(" ").append(text).append(colour ? "\033[0m\n" : "\n");
    output_.write(whole);
}

bool Timeline::leaveOut(double t, Style style, std::string_view who, std::string_view text) {
    Repeats& repeats = repeats_[std::string(who) + ' ' + std::string(text)];
    repeats.last = t;
    if (repeats.written == kWrittenOnes) {
        ++repeats.leftOut;
        return true;
    }
    if (repeats.written++ == 0) {
        repeats.who = who;
        repeats.text = text;
        repeats.style = style;
        repeats.since = t;
    }
    return false;
}

void Timeline::count(double t) {
    if (finished_) {
        return;  // how everything is taken down
    }
    now_ = t;
    for (auto next = repeats_.begin(); next != repeats_.end();) {
        const auto current = next++;
        Repeats& repeats = current->second;
        if (t >= repeats.since && t - repeats.since < repeats.window) {
            continue;
        }
        writeCount(t, repeats);
        if (t < repeats.last || t - repeats.last >= 1) {
            repeats_.erase(current);
        } else if (repeats.written < kWrittenOnes) {
            repeats.written = 0;
        } else {
            // It goes on: counted from now on, and told less and less often.
            repeats.since = t;
            repeats.window = std::min(repeats.window * 2, kLongestWindow);
        }
    }
}

void Timeline::writeCount(double t, Repeats& repeats) {
    if (const int leftOut = std::exchange(repeats.leftOut, 0); leftOut > 0) {
        write(t, repeats.style, repeats.who,
              repeats.text + "   (" + std::to_string(leftOut) +
                  (leftOut == 1 ? " more time)" : " more times)"));
    }
}

void Timeline::finish() {
    for (auto& [key, repeats] : repeats_) {
        writeCount(now_, repeats);
    }
    repeats_.clear();
}

void Timeline::print(const Record& record) {
    count(record.t);
    if (finished_) {
        return;
    }
    if (record.kind == "say") {
        line(record, Style::Bold, "==", record.text);
    } else if (record.kind == "line") {
        if (record.text.rfind("say ", 0) != 0) {
            line(record, Style::Bold, "scenario", record.text);
        }
    } else if (record.kind == "event") {
        line(record, record.field("monitors") == "0" ? Style::Faint : Style::Event,
             record.socket + " > daemon", printable(eventText(record.text)));
    } else if (record.kind == "burst") {
        line(record, Style::Event, record.socket + " > daemon",
             record.field("count") + " times: " + printable(eventText(record.text)));
    } else if (record.kind == "command") {
        command(record);
    } else if (record.kind == "netlink") {
        netlink(record);
    } else if (record.kind == "attach" || record.kind == "detach") {
        const std::string why = record.field("why");
        line(record, why == "dropped" ? Style::Warning : Style::Good, "daemon > " + record.socket,
             record.kind == "attach"
                 ? "attached as monitor"
                 : "no monitor any more" + (why.empty() ? "" : " (" + why + ")"));
    } else if (record.kind == "socket") {
        line(record, Style::Faint, "supplicant", "socket " + record.socket + " " + record.text);
    } else if (record.kind == "atom") {
        atom(record);
    } else if (record.kind == "sensors") {
        line(record, Style::Command, "daemon > sensors", record.text);
    } else if (record.kind == "callback") {
        line(record, Style::Good, "daemon > client", record.text);
    } else if (record.kind == "call") {
        call(record);
    } else if (record.kind == "log") {
        log(record);
    } else if (record.kind == "output") {
        line(record, Style::Warning, record.field("program"), printable(record.text));
    } else if (record.kind == "error") {
        line(record, Style::Bad, "failed", record.text);
    } else if (record.kind == "warning") {
        line(record, Style::Warning, "warning", record.text);
    } else if (record.kind == "result") {
        finish();
        output_.write("\n" + record.text + "\n");
        finished_ = true;
    } else if (record.kind == "program" || record.kind == "state") {
        line(record, Style::Faint, "simulator", record.text);
    }
}

void Timeline::command(const Record& record) {
    const std::string reply = record.field("reply");
    const std::string answer = reply == "null" ? "(no answer)" : shortReply(record.text, reply);
    std::string text = printable(record.text) + "  ->  " + (answer.empty() ? "(empty)" : answer);
    Style style = Style::Command;
    if (record.text.rfind(kPowerCommand, 0) == 0) {
        style = Style::Power;
        const std::string power = record.text.substr(kPowerCommand.size());
        std::string& before = power_[record.socket];
        if (reply == "OK\n") {
            text += before.empty() ? "   [power " + power + "]"
                                   : "   [power " + before + " -> " + power + "]";
            before = power;
        }
    }
    line(record, style, "daemon > " + record.socket, text);
}

void Timeline::netlink(const Record& record) {
    // Requests for the family and the interfaces only precede those of interest.
    const bool question = record.text.rfind("GET", 0) == 0;
    const bool fine = record.field("answer") == "ok";
    line(record,
         question && fine ? Style::Faint
         : fine           ? Style::Command
                          : Style::Warning,
         "daemon > nl80211", printable(record.text) + "  ->  " + record.field("answer"));
}

void Timeline::log(const Record& record) {
    const std::string level = record.field("level");
    const char letter = level.empty() ? 'V' : level[0];
    if (!look_.log.shows(priorityOf(letter), record.field("tag"))) {
        return;
    }
    line(record,
         letter == 'E' || letter == 'F' ? Style::Bad
         : letter == 'W'                ? Style::Warning
                                        : Style::Faint,
         std::string("log ") + letter, printable(record.text));
}

void Timeline::call(const Record& record) {
    const std::string output = record.field("output");
    const std::string errors = record.field("errors");
    if (output.find('\n') != std::string::npos) {
        output_.write("\n" + output + "\n");
        return;
    }
    line(record, record.field("status") == "0" ? Style::Good : Style::Warning, "client > daemon",
         record.field("arguments") + " -> " + (output.empty() ? errors : output));
    if (!output.empty() && !errors.empty()) {
        line(record, Style::Faint, "client > daemon", errors);
    }
}

void Timeline::atom(const Record& record) {
    // The values behind the first, which is the time.
    const Json atom = record.fields ? record.fields->value("atom", Json::object()) : Json::object();
    const Json values = atom.value("values", Json::array());
    std::string out;
    for (size_t i = 1; i < values.size(); ++i) {
        // {"string":"WIFI_STA_CONNECTED"} or {"int":5180}
        for (const Json& value : values[i]) {
            out += (out.empty() ? "" : " ") + bytesOf(value);
        }
    }
    line(record, Style::Good, "daemon > statistics", printable(out.empty() ? record.text : out));
}

}  // namespace sim
