// props and props set.

#include <fnmatch.h>
#include <strings.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <optional>

#include <android-base/parseint.h>
#include <sys/system_properties.h>

#include "tools/Nearest.h"
#include "tools/Print.h"
#include "tools/Report.h"
#include "tools/ReportWords.h"
#include "tools/Service.h"

namespace Ursa::OS::Wifi::Tools {

namespace {

constexpr std::string_view kPrefix = "persist.vendor.wifi.";

std::string fieldText(const Json& property, const char* field) {
    const auto value = property.find(field);
    if (value == property.end() || value->is_null()) {
        return "-";
    }
    return value->is_string() ? value->get<std::string>() : toLine(*value);
}

struct Range {
    int64_t lowest;
    int64_t highest;
};

/** What makes sense; what the type holds, if the daemon is too old to tell. */
Range rangeOf(const Json& property) {
    const std::string type = property.value("type", std::string());
    if (type == "bool") {
        return {0, 1};
    }
    const bool isSigned = type == "int";
    return {property.value("lowest", isSigned ? int64_t{INT32_MIN} : 0),
            property.value("highest", isSigned ? int64_t{INT32_MAX} : int64_t{UINT32_MAX})};
}

/** As the daemon reads a value of the type. */
std::optional<int64_t> parse(const std::string& type, const std::string& value) {
    if (type == "bool") {
        for (const char* word : {"true", "false", "1", "0"}) {
            if (strcasecmp(value.c_str(), word) == 0) {
                return word[0] == 't' || word[0] == '1' ? 1 : 0;
            }
        }
        return std::nullopt;
    }
    if (type == "int") {
        int number = 0;
        return ::android::base::ParseInt(value, &number) ? std::optional<int64_t>(number)
                                                         : std::nullopt;
    }
    unsigned number = 0;
    return ::android::base::ParseUint(value, &number) ? std::optional<int64_t>(number)
                                                      : std::nullopt;
}

/** The property of that name, with or without what all names begin with. Throws UsageError. */
Json propertyNamed(const Json& report, const std::string& name) {
    std::vector<std::string> names;
    for (const Json& property : report.value("properties", Json::array())) {
        const std::string known = fieldText(property, "name");
        if (known == name || known == std::string(kPrefix) + name) {
            return property;
        }
        names.push_back(known);
    }
    const bool isShort = name.rfind(kPrefix, 0) != 0;
    throw UsageError("the daemon has no property " + toLine(name) +
                     didYouMean(isShort ? std::string(kPrefix) + name : name, names) +
                     "; props lists them");
}

int set(const CommandLine& line) {
    const Deadline deadline(line.timeout());
    const Json property =
        propertyNamed(askReport(findService(line), {"properties"}), line.arguments[1]);
    const std::string name = fieldText(property, "name");
    const std::string& value = line.arguments[2];
    if (const std::string wrong = wrongWithValue(property, value); !wrong.empty()) {
        throw UsageError(name + " is " + toLine(value) + "; allowed is " + wrong);
    }
    if (__system_property_set(name.c_str(), value.c_str()) != 0) {
        throw std::runtime_error(name + " can't be set: " + std::strerror(errno));
    }
    if (line.has("--json")) {
        print(toLine({{"name", name},
                      {"set", value},
                      {"before", property.value("set", Json())},
                      {"takesEffect", property.value("takesEffect", Json())}}) +
              "\n");
    } else {
        print(name + " is " + value + " now; it takes effect " +
              fieldText(property, "takesEffect") + "\n");
    }
    return kSuccess;
}

}  // namespace

std::string valuesOf(const Json& property) {
    if (property.value("type", std::string()) == "bool") {
        return "true or false";
    }
    const Range range = rangeOf(property);
    return range.lowest == range.highest ? std::to_string(range.lowest) + " alone"
                                         : "a whole number from " + std::to_string(range.lowest) +
                                               " to " + std::to_string(range.highest);
}

std::string otherwiseOf(const Json& property) {
    return "the daemon checks only the type: " +
           property.value("otherwise", std::string("it takes it as it is"));
}

bool isInRange(const Json& property, int64_t value) {
    const Range range = rangeOf(property);
    return range.lowest <= value && value <= range.highest;
}

std::string wrongWithValue(const Json& property, const std::string& value) {
    const std::optional<int64_t> parsed = parse(property.value("type", std::string()), value);
    if (!parsed) {
        return valuesOf(property) + " (the daemon takes its default " +
               fieldText(property, "default") + " for anything else)";
    }
    return isInRange(property, *parsed) ? ""
                                        : valuesOf(property) + " (" + otherwiseOf(property) + ")";
}

std::vector<Json> propertiesLike(const Json& report, const std::string& pattern) {
    const std::string everywhere = "*" + pattern + "*";
    std::vector<Json> found;
    for (const Json& property : report.value("properties", Json::array())) {
        if (fnmatch(everywhere.c_str(), fieldText(property, "name").c_str(), 0) == 0) {
            found.push_back(property);
        }
    }
    return found;
}

std::string propertyTable(const std::vector<Json>& properties) {
    using Row = std::array<std::string, 5>;
    std::vector<Row> rows = {{"NAME", "VALUE", "DEFAULT", "FROM", "TAKES EFFECT"}};
    for (const Json& property : properties) {
        const auto inForce = property.find("inForce");
        const bool differs = inForce != property.end() && !inForce->is_null() &&
                             *inForce != property.value("value", Json());
        rows.push_back({fieldText(property, "name"),
                        fieldText(property, "value") +
                            (differs ? " (in force: " + toLine(*inForce) + ")" : ""),
                        fieldText(property, "default"), fieldText(property, "origin"),
                        fieldText(property, "takesEffect")});
    }
    std::array<size_t, 5> widths{};
    for (const Row& row : rows) {
        for (size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], row[i].size());
        }
    }
    std::string text;
    for (const Row& row : rows) {
        std::string line;
        for (size_t i = 0; i < row.size(); ++i) {
            line += row[i] + std::string(widths[i] - row[i].size() + 2, ' ');
        }
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    }
    return text;
}

int runProps(const CommandLine& line) {
    if (!line.arguments.empty() && line.arguments.front() == "set") {
        if (line.arguments.size() != 3) {
            throw UsageError("props set takes 2 arguments, not " +
                             std::to_string(line.arguments.size() - 1) + ": props set KEY VALUE");
        }
        return set(line);
    }
    if (line.arguments.size() > 1) {
        throw UsageError("props takes one pattern, or: props set KEY VALUE");
    }
    const Deadline deadline(line.timeout());
    const Json report = askReport(findService(line), {"properties"});
    const auto found = propertiesLike(report, line.arguments.empty() ? "" : line.arguments.front());
    if (line.has("--json")) {
        print(toLine(Json(found)) + "\n");
    } else if (!found.empty()) {
        print(propertyTable(found));
    }
    if (found.empty()) {
        std::fprintf(stderr, "corvid-wifi: no property has \"%s\" in its name\n",
                     line.arguments.front().c_str());
        return kFailure;
    }
    return kSuccess;
}

}  // namespace Ursa::OS::Wifi::Tools
