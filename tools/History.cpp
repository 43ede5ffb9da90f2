// history.

#include <cstdio>
#include <ctime>

#include "tools/Print.h"
#include "tools/Report.h"
#include "tools/ReportWords.h"
#include "tools/Service.h"

namespace Ursa::OS::Wifi::Tools {

namespace {

/** "13:47:18.042", of the clock as it was then. */
std::string clockText(const Json& moment) {
    const int64_t wallMs = moment.is_object() ? moment.value("wallMs", int64_t{0}) : 0;
    const time_t seconds = static_cast<time_t>(wallMs / 1000);
    struct tm local {};
    localtime_r(&seconds, &local);
    char clock[16];
    strftime(clock, sizeof(clock), "%H:%M:%S", &local);
    char text[32];
    std::snprintf(text, sizeof(text), "%s.%03d", clock, static_cast<int>(wallMs % 1000));
    return text;
}

std::string fieldText(const Json& entry, const char* field) {
    const auto value = entry.find(field);
    return value != entry.end() && value->is_string() ? value->get<std::string>() : "";
}

}  // namespace

std::string historyLine(const Json& entry) {
    char head[64];
    std::snprintf(head, sizeof(head), "%s  %-3s %-7s  ",
                  clockText(entry.value("at", Json())).c_str(),
                  printable(fieldText(entry, "interface")).c_str(),
                  printable(fieldText(entry, "kind")).c_str());
    std::string text = head + printable(fieldText(entry, "text"));
    const std::string outcome = fieldText(entry, "outcome");
    if (outcome == "ok") {
        text += " -> " + printable(fieldText(entry, "reply"));
    } else if (!outcome.empty()) {
        text += " -> (" + printable(outcome) + ")";
    }
    const auto duration = entry.find("durationUs");
    if (duration != entry.end() && duration->is_number()) {
        text += "  " + toLine(*duration) + " us";
    }
    const std::string by = fieldText(entry, "by");
    text += by.empty() ? "" : "  [" + printable(by) + "]";
    const int64_t repeats = entry.value("repeats", int64_t{1});
    return text + (repeats > 1 ? "  (" + std::to_string(repeats) + " times)" : "");
}

int runHistory(const CommandLine& line) {
    const Deadline deadline(line.timeout());
    const Json history = askReport(findService(line), {"history"}).value("history", Json::object());
    if (line.has("--json")) {
        print(toLine(history) + "\n");
        return kSuccess;
    }
    for (const Json& entry : history.value("entries", Json::array())) {
        print(historyLine(entry) + "\n");
    }
    return kSuccess;
}

}  // namespace Ursa::OS::Wifi::Tools
