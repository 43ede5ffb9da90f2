#include "service/BuildInfo.h"

#ifdef __ANDROID__
#include <android-base/properties.h>
#else
#include "corvid_build_info.h"
#endif

namespace Ursa::OS::Wifi {

BuildInfo BuildInfo::ofProcess() {
    static constexpr char kVersion[] = "1.0.0";
#ifdef __ANDROID__
    return {kVersion, android::base::GetProperty("ro.vendor.build.version.incremental", "unknown"),
            "device"};
#else
    return {kVersion, CORVID_WIFI_COMMIT, "host"};
#endif
}

}  // namespace Ursa::OS::Wifi
