#include <cstdlib>

#include <gtest/gtest.h>

#include "os/DevicePath.h"

namespace Ursa::OS {
namespace {

TEST(DevicePathOnDevice, PathIsItselfWhateverTheEnvironmentSays) {
    setenv("CORVID_WIFI_ROOT", "/tmp/headset", 1);
    EXPECT_EQ(devicePath("/data/vendor/"), "/data/vendor/");
    unsetenv("CORVID_WIFI_ROOT");
    EXPECT_EQ(devicePath("/data/vendor/"), "/data/vendor/");
}

}  // namespace
}  // namespace Ursa::OS
