#include "sim/PropertyCheck.h"

#include <strings.h>

#include <algorithm>
#include <iterator>
#include <vector>

#include <android-base/parseint.h>

#include "sim/Nearest.h"

namespace sim {

namespace {

struct Property {
    std::string_view name;
    std::string_view type;
};

/** The daemon's properties; CMake reads them in config/CorvidWifiProperties.h. */
constexpr Property kProperties[] = {
#include "sim/PropertyTable.inc"
};

constexpr std::string_view kPrefix = "persist.vendor.wifi.";

bool isBool(const std::string& value) {
    constexpr const char* kWords[] = {"1", "true", "0", "false"};
    return std::any_of(std::begin(kWords), std::end(kWords),
                       [&value](const char* word) { return strcasecmp(value.c_str(), word) == 0; });
}

/** What a value of this type must be; empty if `value` is one. */
std::string wanted(std::string_view type, const std::string& value) {
    int number = 0;
    unsigned unsignedNumber = 0;
    if (type == "bool") {
        return isBool(value) ? "" : "true, false, 1 or 0";
    }
    if (type == "int") {
        return android::base::ParseInt(value, &number) ? "" : "a whole number";
    }
    return android::base::ParseUint(value, &unsignedNumber) ? "" : "a whole number from 0 on";
}

}  // namespace

std::string propertyWarning(std::string_view name, const std::string& value) {
    const auto* const property =
        std::find_if(std::begin(kProperties), std::end(kProperties),
                     [name](const Property& known) { return known.name == name; });
    if (property != std::end(kProperties)) {
        const std::string allowed = wanted(property->type, value);
        return allowed.empty() ? ""
                               : "the daemon takes its default: '" + value + "' is not " + allowed;
    }
    std::vector<std::string_view> names;
    for (const Property& known : kProperties) {
        names.push_back(known.name);
    }
    const std::string meant = didYouMean(name, names);
    const bool ours = name.substr(0, kPrefix.size()) == kPrefix;
    return ours || !meant.empty() ? "the daemon has no property '" + std::string(name) + "'" + meant
                                  : "";
}

}  // namespace sim
