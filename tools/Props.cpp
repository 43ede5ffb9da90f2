// props and props set.

#include <fnmatch.h>
#include <strings.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

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

std::string wrongWithValue(const Json& property, const std::string& value) {
    const std::string type = property.value("type", std::string());
    int number = 0;
    unsigned unsignedNumber = 0;
    if (type == "bool") {
        // As the daemon reads it.
        for (const char* word : {"true", "false", "1", "0"}) {
            if (strcasecmp(value.c_str(), word) == 0) {
                return "";
            }
        }
        return "true or false";
    }
    if (type == "int") {
        return ::android::base::ParseInt(value, &number)
                   ? ""
                   : "a whole number from -2147483648 to 2147483647";
    }
    return ::android::base::ParseUint(value, &unsignedNumber)
               ? ""
               : "a whole number from 0 to 4294967295";
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
