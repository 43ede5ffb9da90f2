#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "tests/support/TempFolder.h"

namespace test {

/**
 * A temporary folder that stands for the device's "/" while this object lives, with the folders of
 * a running device. Construct and destroy it while no other thread runs: it changes the
 * environment.
 */
class DeviceRoot {
  public:
    DeviceRoot() {
        std::filesystem::create_directories(socketDirectory());
        std::filesystem::create_directories(folder_.file("dev/hwbinder"));
        std::filesystem::create_directories(propertyDirectory_());
        setenv("CORVID_WIFI_ROOT", path().c_str(), 1);
    }
    ~DeviceRoot() { unsetenv("CORVID_WIFI_ROOT"); }
    DeviceRoot(const DeviceRoot&) = delete;
    DeviceRoot& operator=(const DeviceRoot&) = delete;

    /** Without a slash at its end. */
    const std::string& path() const { return folder_.path(); }

    /** The supplicant's socket folder, with a slash at its end. */
    std::string socketDirectory() const { return folder_.file("data/vendor/wifi/wpa/sockets/"); }

    /** Sets a system property. `name` is the whole name. */
    void setProperty(const std::string& name, std::string_view value) const {
        const std::string draft = folder_.file("dev/property.draft");
        std::ofstream(draft, std::ios::binary) << value;
        std::filesystem::rename(draft, propertyDirectory_() + name);
    }

    void unsetProperty(const std::string& name) const {
        std::filesystem::remove(propertyDirectory_() + name);
    }

  private:
    std::string propertyDirectory_() const { return folder_.file("dev/__properties__/"); }

    TempFolder folder_;
};

}  // namespace test
