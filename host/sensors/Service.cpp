#include "Service.h"

#include <sstream>
#include <string_view>
#include <utility>

#include <android-base/parseint.h>
#include <android-base/stringprintf.h>
#include <android-base/strings.h>
#include <android/log.h>
#include <sys/system_properties.h>

#include "StateFile.h"

namespace Ursa::Sensors {

using android::base::ParseUint;
using android::base::StringPrintf;

namespace {

/** One "START END" line per range. Returns false, with `ranges` half filled, on any other line. */
bool parseRanges(const std::string& text, ControllerWirelessFreqBlocklists& ranges) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::vector<std::string> words = android::base::Split(line, " ");
        ControllerWirelessFreqBlocklist range = {};
        if (words.size() != 2 || !ParseUint(words[0], &range.start) ||
            !ParseUint(words[1], &range.end)) {
            __android_log_print(ANDROID_LOG_ERROR, "VrSensors", "not a frequency range: \"%s\"",
                                line.c_str());
            return false;
        }
        ranges.push_back(range);
    }
    return true;
}

}  // namespace

Answer answerOf(const char* property, const char* failure) {
    char buffer[PROP_VALUE_MAX];
    __system_property_get(property, buffer);
    const std::string_view value = buffer;
    if (value == "hang") {
        return Answer::Hang;
    }
    if (value.empty() || value == "ok") {
        return Answer::Success;
    }
    if (value == failure) {
        return Answer::Failure;
    }
    __android_log_print(ANDROID_LOG_ERROR, "VrSensors", "%s: unknown value %s, ok is used",
                        property, buffer);
    return Answer::Success;
}

bool readBlocklist(ControllerWirelessFreqBlocklists& blocklists) {
    std::string text;
    ControllerWirelessFreqBlocklists ranges;
    if (!StateFile("controller_blocklist").read(text) || !parseRanges(text, ranges)) {
        return false;
    }
    blocklists = std::move(ranges);
    return true;
}

bool writeBlocklist(const ControllerWirelessFreqBlocklists& blocklists) {
    std::string text;
    for (const ControllerWirelessFreqBlocklist& range : blocklists) {
        text += StringPrintf("%u %u\n", unsigned{range.start}, unsigned{range.end});
    }
    return StateFile("controller_blocklist").replace(text);
}

bool writeClock(const std::string& cameraName, int32_t clock) {
    return StateFile("camera_clock").append(StringPrintf("%s %d", cameraName.c_str(), clock));
}

void writeTransportErrorAction(TransportErrorAction action) {
    StateFile("transport_error_action").replace(StringPrintf("%d\n", static_cast<int32_t>(action)));
}

std::unique_ptr<ControllerProvider> makeControllerProvider(const sigset_t& callersMask) {
    auto provider = std::make_unique<HostControllerProvider>();
    takePendingAlarm(callersMask);
    return provider;
}

std::unique_ptr<CameraProvider> makeCameraProvider(const sigset_t& callersMask) {
    auto provider = std::make_unique<HostCameraProvider>();
    takePendingAlarm(callersMask);
    return provider;
}

}  // namespace Ursa::Sensors
