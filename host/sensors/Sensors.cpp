#include <sstream>

#include <android-base/parseint.h>
#include <android-base/stringprintf.h>
#include <android-base/strings.h>
#include <android/log.h>
#include <vrsensors/Sensors.h>

#include "StateFile.h"
#include "Steering.h"

namespace Ursa::Sensors {
namespace {

using android::base::ParseUint;
using android::base::StringPrintf;

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

/** Plays the hand controllers, whose blocked ranges are a file. */
class HostControllerProvider : public ControllerProvider {
  public:
    bool getWirelessFreqBlocklists(ControllerWirelessFreqBlocklists& blocklists) override {
        std::string text;
        ControllerWirelessFreqBlocklists ranges;
        if (!goesOn("debug.sensors.controller.get", "fail") ||
            !StateFile("controller_blocklist").read(text) || !parseRanges(text, ranges)) {
            return false;
        }
        blocklists = std::move(ranges);
        return true;
    }

    bool setWirelessFreqBlocklists(const ControllerWirelessFreqBlocklists& blocklists) override {
        if (!goesOn("debug.sensors.controller.set", "fail")) {
            return false;
        }
        std::string text;
        for (const ControllerWirelessFreqBlocklist& range : blocklists) {
            text += StringPrintf("%u %u\n", unsigned{range.start}, unsigned{range.end});
        }
        return StateFile("controller_blocklist").replace(text);
    }

    bool clearWirelessFreqBlocklists() override {
        return goesOn("debug.sensors.controller.clear", "fail") &&
               StateFile("controller_blocklist").replace("");
    }
};

/** Plays the cameras, which write down the clocks they were told. */
class HostCameraProvider : public CameraProvider {
  public:
    bool notifyMipiClock(const std::string& cameraName, int32_t clock) override {
        return goesOn("debug.sensors.camera.notify") &&
               StateFile("camera_clock").append(StringPrintf("%s %d", cameraName.c_str(), clock));
    }
};

}  // namespace

void setTransportErrorAction(TransportErrorAction action) {
    StateFile("transport_error_action").replace(StringPrintf("%d\n", static_cast<int32_t>(action)));
}

std::unique_ptr<ControllerProvider> createControllerProvider() {
    return goesOn("debug.sensors.controller.create", "null")
               ? std::make_unique<HostControllerProvider>()
               : nullptr;
}

std::unique_ptr<CameraProvider> createCameraProvider() {
    return goesOn("debug.sensors.camera.create", "null") ? std::make_unique<HostCameraProvider>()
                                                         : nullptr;
}

}  // namespace Ursa::Sensors
