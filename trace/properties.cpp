// corvid-properties: prints, as one JSON object, every system property of the daemon with all that
// its list tells, and the power settings that are in force below $CORVID_WIFI_ROOT, as the daemon
// reads them there.

#include <cstdio>
#include <exception>

#include <nlohmann/json.hpp>

#include "config/CorvidWifiProperties.h"
#include "managers/TxPowerSettings.h"

namespace {

using Json = nlohmann::ordered_json;
using Ursa::OS::Wifi::PropertyEffect;
using Ursa::OS::Wifi::TxPowerSettings;
namespace PropertyRanges = Ursa::OS::Wifi::PropertyRanges;

const char* effectName(PropertyEffect effect) {
    switch (effect) {
        case PropertyEffect::Restart:
            return "restart";
        case PropertyEffect::FirstUse:
            return "first use";
        case PropertyEffect::AtOnce:
            return "at once";
        case PropertyEffect::Both:
            return "both";
    }
    return "";
}

Json allProperties() {
    Json list = Json::array();
#define CORVID_WIFI_LIST_(type, accessor, property, fallback, range, effect, meaning) \
    list.push_back(Json{{"name", "persist.vendor.wifi." property},                    \
                        {"type", #type},                                              \
                        {"default", #fallback},                                       \
                        {"lowest", PropertyRanges::k##range.lowest},                  \
                        {"highest", PropertyRanges::k##range.highest},                \
                        {"effect", effectName(PropertyEffect::effect)},               \
                        {"meaning", meaning}});
    CORVID_WIFI_PROPERTIES(CORVID_WIFI_LIST_, CORVID_WIFI_LIST_)
#undef CORVID_WIFI_LIST_
    return list;
}

/** Powers as they are sent to the driver, dBm. */
Json thresholds(const TxPowerSettings& settings) {
    const unsigned shift = settings.unitIsHalfDbm() ? 1 : 0;
    return {{"rssi_upper", settings.rssiUpper()},
            {"rssi_middle_upper", settings.rssiMiddleUpper()},
            {"rssi_middle_lower", settings.rssiMiddleLower()},
            {"rssi_lower", settings.rssiLower()},
            {"dbm_upper", settings.upper() >> shift},
            {"dbm_middle", settings.middle() >> shift},
            {"dbm_lower", settings.lower() >> shift},
            {"dbm_p2p", settings.p2p() >> shift},
            {"per_chain", settings.perChain()},
            {"low_rssi_lower", settings.perChainLowRssiLower()},
            {"low_rssi_upper", settings.perChainLowRssiUpper()},
            {"limit_default_dbm0", settings.perChainDefaultDbm0()},
            {"limit_default_dbm1", settings.perChainDefaultDbm1()},
            {"limit_low_dbm0", settings.perChainLowDbm0()},
            {"limit_low_dbm1", settings.perChainLowDbm1()}};
}

}  // namespace

int main() {
    try {
        const TxPowerSettings settings{};
        const Json all = {{"properties", allProperties()},
                          {"station_power", settings.staEnabled()},
                          {"thresholds", thresholds(settings)}};
        std::puts(all.dump().c_str());
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "corvid-properties: %s\n", error.what());
        return 1;
    }
}
