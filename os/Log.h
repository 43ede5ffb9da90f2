#pragma once

// The daemon's log lines: liblog under the one tag "CorvidWifi", each message begun with the name
// of the writing source file without its extension, for example "StaManager: STA event(CONNECTED)".

#ifdef LOG_TAG
#undef LOG_TAG
#endif
#define LOG_TAG "CorvidWifi"

#include <string_view>

#include <log/log.h>

namespace Ursa::OS {

/** "managers/StaManager.cpp" gives "StaManager". */
constexpr std::string_view sourceName(std::string_view path) {
    path.remove_prefix(path.rfind('/') + 1);  // npos + 1 is 0
    return path.substr(0, path.rfind('.'));
}

/**
 * Writes one line: `source`, ": " and the formatted text, cut to liblog's limit of 1 KiB. Does
 * nothing if the tag's level is above `priority` (an ANDROID_LOG_* value). Any thread.
 */
void logLine(int priority, std::string_view source, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

}  // namespace Ursa::OS

// WIFI_LOGx(format, ...): D for traces, I for events and settings, W for missing managers and
// signals, E for failures.
#define WIFI_LOG_(priority, ...)                                                      \
    do {                                                                              \
        constexpr std::string_view wifiLogSource_ = ::Ursa::OS::sourceName(__FILE__); \
        ::Ursa::OS::logLine(priority, wifiLogSource_, __VA_ARGS__);                   \
    } while (false)

#define WIFI_LOGD(...) WIFI_LOG_(ANDROID_LOG_DEBUG, __VA_ARGS__)
#define WIFI_LOGI(...) WIFI_LOG_(ANDROID_LOG_INFO, __VA_ARGS__)
#define WIFI_LOGW(...) WIFI_LOG_(ANDROID_LOG_WARN, __VA_ARGS__)
#define WIFI_LOGE(...) WIFI_LOG_(ANDROID_LOG_ERROR, __VA_ARGS__)
