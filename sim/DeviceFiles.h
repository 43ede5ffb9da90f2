#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <android-base/unique_fd.h>

#include "sim/EventLoop.h"
#include "sim/Record.h"

namespace sim {

/**
 * The headset's files below CORVID_WIFI_ROOT: makes the folders, sets properties, and records what
 * the statistics service ("atom") and the sensor library ("sensors") write.
 */
class DeviceFiles {
  public:
    /** Makes the folders, those whose absence is a state of its own included. */
    DeviceFiles(EventLoop& loop, Recorder& recorder);
    ~DeviceFiles();
    DeviceFiles(const DeviceFiles&) = delete;
    DeviceFiles& operator=(const DeviceFiles&) = delete;

    /** Those that it makes, as the device's paths. */
    static std::vector<std::string_view> folders();
    /** Folder of the supplicant's sockets, with a slash at its end. */
    static std::string socketFolder();
    static std::string nl80211Path();

    /** A change is a rename over the file. Returns why it failed, or an empty text. */
    std::string setProperty(const std::string& name, const std::optional<std::string>& value);
    enum class Folder { Sockets, Hwbinder };
    /** Makes or removes it, with everything in it. Returns why it failed, or an empty text. */
    std::string changeFolder(Folder which, bool create);

    /** Reads the followed files at once, without waiting for their notification. */
    void catchUp();

  private:
    void follow(const std::string& folder);
    void onNotified();
    void readAtoms();
    void readSensors();

    EventLoop& loop_;
    Recorder& recorder_;
    android::base::unique_fd inotify_;
    size_t atomsRead_ = 0;
    std::map<std::string, std::string> sensorFiles_;
};

}  // namespace sim
