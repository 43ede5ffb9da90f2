#include "service/BuildInfo.h"

#include <corvid_wifi_version.h>

#if __has_include(<corvid_build_info.h>)
#include <corvid_build_info.h>
#endif

namespace Ursa::OS::Wifi {

BuildInfo BuildInfo::ofProcess() {
    BuildInfo info = {CORVID_WIFI_VERSION, "unknown", "host"};
#ifdef CORVID_WIFI_COMMIT
    info.commit = CORVID_WIFI_COMMIT;
#endif
#ifdef __ANDROID__
    info.platform = "device";
#endif
    return info;
}

}  // namespace Ursa::OS::Wifi
