#include <cstdlib>

#include <gtest/gtest.h>

#include "os/DevicePath.h"

namespace Ursa::OS {
namespace {

class DevicePath : public testing::Test {
  protected:
    ~DevicePath() override { unsetenv("CORVID_WIFI_ROOT"); }
};

TEST_F(DevicePath, PathWithoutARootIsItself) {
    unsetenv("CORVID_WIFI_ROOT");
    EXPECT_EQ(devicePath("/data/vendor"), "/data/vendor");
}

TEST_F(DevicePath, RootStandsForTheSlash) {
    setenv("CORVID_WIFI_ROOT", "/tmp/headset", 1);
    EXPECT_EQ(devicePath("/data/vendor/"), "/tmp/headset/data/vendor/");
}

TEST_F(DevicePath, RootWithTrailingSlashesDoesNotDoubleThem) {
    setenv("CORVID_WIFI_ROOT", "/tmp/headset//", 1);
    EXPECT_EQ(devicePath("/data"), "/tmp/headset/data");
    setenv("CORVID_WIFI_ROOT", "/", 1);
    EXPECT_EQ(devicePath("/data"), "/data");
}

TEST_F(DevicePath, EmptyRootCountsAsNone) {
    setenv("CORVID_WIFI_ROOT", "", 1);
    EXPECT_EQ(devicePath("/data"), "/data");
}

}  // namespace
}  // namespace Ursa::OS
