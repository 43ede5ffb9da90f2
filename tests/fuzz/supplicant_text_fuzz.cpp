// The readers of the supplicant's replies and event payloads: any text, all of them.

#include <cstdint>
#include <cstring>
#include <string>

#include "client/BssEventFilter.h"
#include "client/SupplicantParser.h"
#include "tests/fuzz/Check.h"

using namespace Ursa::OS::Wifi;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);

    for (const size_t pos : {size_t{0}, size / 2, size, size + 1}) {
        for (const char* key : {"freq=", "="}) {
            int value = 0;
            const bool found = parsed([&] { return getInt32ValueByKey(text, key, pos, value); });
            FUZZ_CHECK(!found || text.find(key, pos) != std::string::npos);
        }
    }

    int rssi = 0;
    int frequency = 0;
    const bool both = parsed([&] { return getRssiAndFreq(text, rssi, frequency); });
    FUZZ_CHECK(!both || (rssi != -1 && frequency != -1));

    std::string value = "untouched";
    if (getValueFromWpaCmdStatusReply(text, "bssid", value)) {
        FUZZ_CHECK(text.find("bssid=" + value) != std::string::npos);
        FUZZ_CHECK(value.find('\n') == std::string::npos);
    } else {
        FUZZ_CHECK(value == "untouched");
    }

    RegdomUpdatedResult regdom;
    if (getRegdomUpdatedResult(text, regdom)) {
        FUZZ_CHECK(!regdom.init.empty() && !regdom.type.empty());
        FUZZ_CHECK(regdom.alpha2.empty() || regdom.alpha2.size() == 2);
    }

    ChannelSwitchResult channelSwitch = {};
    if (getChannelSwitchResult(text.c_str(), channelSwitch)) {
        const size_t length = strnlen(channelSwitch.ifname, sizeof(channelSwitch.ifname));
        FUZZ_CHECK(length > 0 && length < sizeof(channelSwitch.ifname));
        FUZZ_CHECK(static_cast<int>(channelSwitch.interfaceType) >= 0 &&
                   static_cast<int>(channelSwitch.interfaceType) <= 2);
    }

    isBssEvent(text);
    return 0;
}
