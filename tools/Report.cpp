#include "tools/Report.h"

#include <cstdio>

#include "tools/Debug.h"

namespace Ursa::OS::Wifi::Tools {

namespace {

constexpr int kSchema = 1;
constexpr int64_t kSecond = 1000;
constexpr int64_t kMinute = 60 * kSecond;
constexpr int64_t kHour = 60 * kMinute;
constexpr int64_t kDay = 24 * kHour;

}  // namespace

Json askReport(const ::android::sp<IWifi>& service, const std::vector<std::string>& sections) {
    std::vector<std::string> options = sections;
    options.emplace_back("--json");
    Json report = Json::parse(askDebug(service, options), nullptr, false);
    if (!report.is_object() || !report.contains("schema")) {
        throw ServiceError("the service has no report on itself: it is older than this client");
    }
    if (report["schema"] != kSchema) {
        throw ServiceError("the service's report has schema " + toLine(report["schema"]) +
                           ", this client knows 1");
    }
    return report;
}

std::string durationText(int64_t milliseconds) {
    if (milliseconds < 10 * kSecond) {
        char text[32];
        std::snprintf(text, sizeof(text), "%.1f s", static_cast<double>(milliseconds) / kSecond);
        return text;
    }
    if (milliseconds < 2 * kMinute) {
        return std::to_string(milliseconds / kSecond) + " s";
    }
    if (milliseconds < 2 * kHour) {
        return std::to_string(milliseconds / kMinute) + " min";
    }
    return milliseconds < 2 * kDay ? std::to_string(milliseconds / kHour) + " h"
                                   : std::to_string(milliseconds / kDay) + " days";
}

int64_t agoMs(const Json& moment) {
    return moment.is_object() ? moment.value("agoMs", int64_t{0}) : -1;
}

std::string agoText(const Json& moment) {
    return moment.is_object() ? durationText(agoMs(moment)) + " ago" : "never";
}

}  // namespace Ursa::OS::Wifi::Tools
