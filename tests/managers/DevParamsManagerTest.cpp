#include <string>
#include <utility>
#include <vector>

#include "managers/DevParamsManager.h"
#include "tests/support/ManagerTest.h"

namespace Ursa::OS::Wifi {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Type = DevParamsManager::ParamConfigType;

constexpr char kConnected[] = "CTRL-EVENT-CONNECTED - Connection to 02:00:00:00:00:01 completed";

class DevParamsManagerTest : public ManagerTest {
  protected:
    void set(const std::string& property, const std::string& value) const {
        root_.setProperty("persist.vendor.wifi.devparams." + property, value);
    }

    std::vector<std::string> commands() const { return sta_.commands("DRIVER "); }

    /** The four commands for the access categories, with the defaults, then `rest`. */
    static std::vector<std::string> defaultsThen(const std::vector<std::string>& rest) {
        std::vector<std::string> all = {"DRIVER SET_AC_CONFIG 0 1 64 65535  0 4 65535 7 5484 wlan0",
                                        "DRIVER SET_AC_CONFIG 1 1 64 65535  0 4 65535 7 5484 wlan0",
                                        "DRIVER SET_AC_CONFIG 2 1 64 65535  0 4 65535 7 5484 wlan0",
                                        "DRIVER SET_AC_CONFIG 3 1 64 65535  0 4 65535 7 5484 "
                                        "wlan0"};
        all.insert(all.end(), rest.begin(), rest.end());
        return all;
    }
};

}  // namespace

TEST_F(DevParamsManagerTest, EachConnectionSendsEveryAccessCategoryThenUlMu) {
    const DevParamsManager manager(client_);
    EXPECT_THAT(commands(), IsEmpty());
    deliver(NetInterfaceType::STA, kConnected);
    EXPECT_EQ(commands(), defaultsThen({"DRIVER SET_UL_MU_CONFIG 0"}));
    deliver(NetInterfaceType::STA, kConnected);
    EXPECT_EQ(commands().size(), 10U);
    EXPECT_THAT(debugs(), testing::IsSupersetOf({"DevParamsManager: STA event(CONNECTED)",
                                                 "DevParamsManager: setDevParams paramConfig:0"}));
    EXPECT_THAT(infos(), IsEmpty()) << "what is sent is not logged";
    EXPECT_TRUE(composition_->ran("DevParamsManager.onStaConnected"));
}

TEST_F(DevParamsManagerTest, TheAccessCategoryCommandHasTwoBlanksBeforeTheZero) {
    DevParamsManager manager(client_);
    EXPECT_TRUE(manager.sendCommandSetAcConfig("wlan7", 2, 1, 2, 3, 4294967295));
    EXPECT_THAT(commands(),
                ElementsAre("DRIVER SET_AC_CONFIG 2 1 1 65535  0 2 65535 3 4294967295 wlan7"));
}

TEST_F(DevParamsManagerTest, ParametersAreReadAtConstructionOnly) {
    set("tx_ampdu_limit", "32");
    set("tx_amsdu_limit", "2");
    set("tx_retry_limit", "15");
    set("ppdu_dur_us", "2000");
    set("sifs_burst_dur_us", "1");  // these three are in no command
    set("rts_enable", "0");
    set("ppdu_dur_offset_us", "3");
    DevParamsManager manager(client_);
    for (const char* property : {"default_config", "tx_ampdu_limit", "tx_amsdu_limit",
                                 "tx_retry_limit", "ppdu_dur_us", "ul_mu_config"}) {
        set(property, "1");
    }
    deliver(NetInterfaceType::STA, kConnected);
    EXPECT_THAT(commands(),
                ElementsAre("DRIVER SET_AC_CONFIG 0 1 32 65535  0 2 65535 15 2000 wlan0",
                            "DRIVER SET_AC_CONFIG 1 1 32 65535  0 2 65535 15 2000 wlan0",
                            "DRIVER SET_AC_CONFIG 2 1 32 65535  0 2 65535 15 2000 wlan0",
                            "DRIVER SET_AC_CONFIG 3 1 32 65535  0 2 65535 15 2000 wlan0",
                            "DRIVER SET_UL_MU_CONFIG 0"));
}

TEST_F(DevParamsManagerTest, ANegativeParameterIsSentAsTheUnsignedNumberItBecomes) {
    set("tx_retry_limit", "-1");
    DevParamsManager manager(client_);
    EXPECT_TRUE(manager.setDevParams(Type::AC_AND_UL_MU));
    EXPECT_EQ(commands().front(),
              "DRIVER SET_AC_CONFIG 0 1 64 65535  0 4 65535 4294967295 5484 wlan0");
}

TEST_F(DevParamsManagerTest, ConfigurationOneSendsUlMuOnly) {
    set("default_config", "1");
    DevParamsManager manager(client_);
    deliver(NetInterfaceType::STA, kConnected);
    EXPECT_THAT(commands(), ElementsAre("DRIVER SET_UL_MU_CONFIG 0"));
    EXPECT_TRUE(manager.setDevParams(Type::UL_MU));
    sta_.failAll(true);
    EXPECT_FALSE(manager.setDevParams(Type::UL_MU));
}

TEST_F(DevParamsManagerTest, UlMuIsSentForZeroOnly) {
    set("ul_mu_config", "1");
    DevParamsManager manager(client_);
    deliver(NetInterfaceType::STA, kConnected);
    EXPECT_EQ(commands(), defaultsThen({}));
    EXPECT_TRUE(manager.setDevParams(Type::AC_AND_UL_MU)) << "its failure does not count there";
    EXPECT_FALSE(manager.setDevParams(Type::UL_MU));
    for (const unsigned value : {1U, 2U, 255U, 4294967295U}) {
        EXPECT_FALSE(manager.sendCommandSetUlMuConfig(value)) << value;
    }
    EXPECT_THAT(sta_.commands("DRIVER SET_UL_MU"), IsEmpty());
    EXPECT_TRUE(manager.sendCommandSetUlMuConfig(0));
    EXPECT_THAT(sta_.commands("DRIVER SET_UL_MU"), ElementsAre("DRIVER SET_UL_MU_CONFIG 0"));
}

TEST_F(DevParamsManagerTest, AFailedCategoryIsLoggedAndTheOthersAreStillSent) {
    DevParamsManager manager(client_);
    sta_.fail(defaultsThen({})[0]);
    sta_.fail(defaultsThen({})[3]);
    EXPECT_TRUE(manager.setDevParams(Type::AC_AND_UL_MU));
    EXPECT_EQ(commands(), defaultsThen({"DRIVER SET_UL_MU_CONFIG 0"}));
    EXPECT_THAT(errors(), ElementsAre("DevParamsManager: SET_AC_CONFIG failure (AC_BE)",
                                      "DevParamsManager: SET_AC_CONFIG failure (AC_VO)"));
}

TEST_F(DevParamsManagerTest, EveryCategoryHasItsName) {
    DevParamsManager manager(client_);
    sta_.failAll(true);
    EXPECT_TRUE(manager.setDevParams(Type::AC_AND_UL_MU));
    EXPECT_THAT(errors(), ElementsAre("DevParamsManager: SET_AC_CONFIG failure (AC_BE)",
                                      "DevParamsManager: SET_AC_CONFIG failure (AC_BK)",
                                      "DevParamsManager: SET_AC_CONFIG failure (AC_VI)",
                                      "DevParamsManager: SET_AC_CONFIG failure (AC_VO)"));
}

TEST_F(DevParamsManagerTest, TheTextOfAReplyChangesNothing) {
    DevParamsManager manager(client_);
    sta_.answer(defaultsThen({})[0], "FAIL\n");
    sta_.answer(defaultsThen({})[1], "UNKNOWN COMMAND\n");
    sta_.answer("DRIVER SET_UL_MU_CONFIG 0", "");
    EXPECT_TRUE(manager.setDevParams(Type::AC_AND_UL_MU));
    EXPECT_TRUE(manager.setDevParams(Type::UL_MU));
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(DevParamsManagerTest, AnUnknownConfigurationIsRefused) {
    set("default_config", "2");
    DevParamsManager manager(client_);
    deliver(NetInterfaceType::STA, kConnected);
    EXPECT_FALSE(manager.setDevParams(static_cast<Type>(-1)));
    EXPECT_THAT(commands(), IsEmpty());
    EXPECT_THAT(errors(), ElementsAre("DevParamsManager: Unsupported parameter config type 2.",
                                      "DevParamsManager: Unsupported parameter config type -1."));
}

TEST_F(DevParamsManagerTest, WithoutAStationInterfaceNothingIsSent) {
    nl80211_.setInterfaces({"p2p0"});
    DevParamsManager manager(client_);
    EXPECT_FALSE(manager.setDevParams(Type::AC_AND_UL_MU));
    EXPECT_FALSE(manager.setDevParams(Type::UL_MU));
    EXPECT_THAT(commands(), IsEmpty());
    EXPECT_THAT(errors(), ElementsAre("DevParamsManager: cannot find STA interface",
                                      "DevParamsManager: cannot find STA interface"));
}

TEST_F(DevParamsManagerTest, WritesNothingIntoTheDump) {
    DevParamsManager manager(client_);
    std::string text;
    EXPECT_FALSE(manager.dumpInfo(text));
    EXPECT_EQ(text, "");
}

}  // namespace Ursa::OS::Wifi
