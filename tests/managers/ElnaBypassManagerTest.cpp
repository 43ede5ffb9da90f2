#include <string>

#include "managers/ElnaBypassManager.h"
#include "tests/support/ManagerTest.h"

namespace Ursa::OS::Wifi {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ElnaBypassManagerTest : public ManagerTest {
  protected:
    void allow(const std::string& value) const {
        root_.setProperty("persist.vendor.wifi.cmd.elna.bypass.mode", value);
    }

    ElnaBypassManager manager_{client_};
};

}  // namespace

TEST_F(ElnaBypassManagerTest, SendsTheModeAsItIsGiven) {
    allow("true");
    EXPECT_TRUE(manager_.setElnaBypass(1));
    EXPECT_TRUE(manager_.setElnaBypass(0));
    EXPECT_TRUE(manager_.setElnaBypass(4294967295));
    EXPECT_THAT(
        sta_.commands("DRIVER "),
        ElementsAre("DRIVER SET_ELNABYPASS_MODE wlan0 1", "DRIVER SET_ELNABYPASS_MODE wlan0 0",
                    "DRIVER SET_ELNABYPASS_MODE wlan0 4294967295"));
}

TEST_F(ElnaBypassManagerTest, LogsTheCommandAndItsReply) {
    allow("true");
    manager_.setElnaBypass(1);
    EXPECT_THAT(
        infos(),
        ElementsAre("ElnaBypassManager: ELNA Bypass command SET_ELNABYPASS_MODE.",
                    "ElnaBypassManager: cmd:DRIVER SET_ELNABYPASS_MODE wlan0 1 reply:OK\n"));
}

TEST_F(ElnaBypassManagerTest, ThePropertyIsReadAtEachCall) {
    for (const char* value : {"false", "true", "0", "TRUE", "yes"}) {
        allow(value);
        const bool allowed = std::string(value) == "true" || std::string(value) == "TRUE";
        EXPECT_EQ(manager_.setElnaBypass(1), allowed) << value;
    }
    EXPECT_EQ(sta_.commands("DRIVER ").size(), 2U);
}

TEST_F(ElnaBypassManagerTest, WithoutThePropertyNothingIsSent) {
    EXPECT_FALSE(manager_.setElnaBypass(1));
    EXPECT_THAT(sta_.commands("DRIVER "), IsEmpty());
    EXPECT_THAT(errors(), ElementsAre("ElnaBypassManager: no match ELNA Bypass command."));
    EXPECT_THAT(infos(), IsEmpty());
}

TEST_F(ElnaBypassManagerTest, WithoutAStationInterfaceNothingIsSent) {
    allow("true");
    nl80211_.setInterfaces({});
    EXPECT_FALSE(manager_.setElnaBypass(1));
    EXPECT_THAT(sta_.commands("DRIVER "), IsEmpty());
    EXPECT_THAT(errors(), ElementsAre("ElnaBypassManager: cannot find STA interface"));
}

TEST_F(ElnaBypassManagerTest, ReturnsWhetherTheCommandCouldBeSentWhateverTheReply) {
    allow("true");
    for (const std::string reply : {"FAIL\n", "UNKNOWN COMMAND\n", ""}) {
        sta_.answer("DRIVER SET_ELNABYPASS_MODE wlan0 1", reply);
        EXPECT_TRUE(manager_.setElnaBypass(1)) << reply;
    }
    sta_.failAll(true);
    EXPECT_FALSE(manager_.setElnaBypass(1));
    EXPECT_EQ(infos().back(),
              "ElnaBypassManager: cmd:DRIVER SET_ELNABYPASS_MODE wlan0 1 reply:ERROR: SEND-RECV");
}

TEST_F(ElnaBypassManagerTest, WritesNothingIntoTheDump) {
    std::string text;
    EXPECT_FALSE(manager_.dumpInfo(text));
    EXPECT_EQ(text, "");
}

}  // namespace Ursa::OS::Wifi
