// The daemon with the kernel side of nl80211: what it makes of good, bad and missing answers. The
// station's bandwidth shows it: it is what the daemon asks the kernel for.

#include <chrono>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/component/Headset.h"
#include "tests/support/Program.h"

using namespace std::chrono_literals;
using component::Headset;
using component::LogLine;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr const char* kUnknownBandwidth = "{\"frequency\":5180,\"rssi\":-48,\"bandwidth\":0}";
constexpr const char* kBandwidth80 = "{\"frequency\":5180,\"rssi\":-48,\"bandwidth\":3}";

class Kernel : public testing::Test {
  protected:
    void SetUp() override {
        headset_.playAll({"stats start", "supplicant start"});
        headset_.startDaemon();
        headset_.expectConnection();
        headset_.play("connect freq=5180 width=80 rssi=-48");
        headset_.expectLog("I", "StaManager: STA event(CONNECTED)");
        headset_.settle();
    }

    std::string staInfo() { return headset_.call("getStaInfo").output; }

    /** The client's error lines until now. */
    std::vector<LogLine> errors() {
        headset_.settle();
        return headset_.log("Nl80211Client: ", "E");
    }

    /** After whatever it was, the next request is answered as ever. */
    void expectRecovery() {
        headset_.play("netlink heal");
        EXPECT_EQ(staInfo(), kBandwidth80);
    }

    Headset headset_;
};

TEST_F(Kernel, StationRateDecidesTheBandwidth) {
    const struct {
        const char* width;
        const char* code;
        const char* dump;
    } kWidths[] = {{"20", "1", "20"},
                   {"40", "2", "40"},
                   {"80", "3", "80"},
                   {"80+80", "4", "unknown"},
                   {"160", "5", "160"}};
    for (const auto& [width, code, dump] : kWidths) {
        headset_.play(std::string("channel switch freq=5500 width=") + width);
        EXPECT_EQ(staInfo(),
                  std::string("{\"frequency\":5500,\"rssi\":-48,\"bandwidth\":") + code + "}");
        EXPECT_THAT(headset_.dump(), HasSubstr(std::string("StaManager: Enabled\n"
                                                           "\tSTA frequency: 5500\n"
                                                           "\tSTA rssi: -48\n"
                                                           "\tSTA bandwidth: ") +
                                               dump + "\n"));
    }
}

TEST_F(Kernel, MissingFamilyLeavesTheBandwidthUnknown) {
    headset_.play("netlink family absent");
    EXPECT_EQ(staInfo(), kUnknownBandwidth);
    headset_.play("netlink family id=33");
    EXPECT_EQ(staInfo(), kBandwidth80);
}

TEST_F(Kernel, AbandonedSocketLeavesTheBandwidthUnknown) {
    headset_.play("netlink close");
    EXPECT_EQ(staInfo(), kUnknownBandwidth);
    headset_.expectLog("E", "Nl80211Client: Failed to connect to generic netlink.");
    headset_.play("netlink listen");
    EXPECT_EQ(staInfo(), kBandwidth80);
}

TEST_F(Kernel, ErrorReplyLeavesTheBandwidthUnknown) {
    ASSERT_EQ(staInfo(), kBandwidth80);
    headset_.forget();
    headset_.play("netlink error station-dump EBUSY");
    EXPECT_EQ(staInfo(), kUnknownBandwidth);
    headset_.expectLog("E", "Nl80211Client: nl80211 response has error code -16");
    EXPECT_THAT(headset_.log("", "W"), IsEmpty());
    expectRecovery();
}

TEST_F(Kernel, DumpRefusedAtItsEndLeavesTheBandwidthUnknownAndIsLogged) {
    ASSERT_EQ(staInfo(), kBandwidth80);
    headset_.forget();
    headset_.play("netlink error station-dump ENODEV at-end");
    EXPECT_EQ(staInfo(), kUnknownBandwidth);
    EXPECT_THAT(errors(),
                ElementsAre(LogLine{"E", "Nl80211Client: nl80211 dump ended with error code -19"}));
    expectRecovery();
}

TEST_F(Kernel, ExtendedAcknowledgementOfAnErrorIsLogged) {
    ASSERT_EQ(staInfo(), kBandwidth80);
    for (const char* capped : {"", " capped"}) {
        headset_.forget();
        headset_.play(std::string("netlink error station-dump EINVAL \"interface is down\"") +
                      capped);
        EXPECT_EQ(staInfo(), kUnknownBandwidth);
        headset_.expectLog("E", "Nl80211Client: nl80211 response has error code -22");
        EXPECT_THAT(headset_.log("", "W"),
                    ElementsAre(LogLine{"W",
                                        "Nl80211Client: nl80211: kernel reports: "
                                        "interface is down"}));
    }
    expectRecovery();
}

TEST_F(Kernel, ErrorInPlaceOfTheInterfaceListIsNoInterface) {
    headset_.play("netlink error interface-dump ENODEV times=1");
    EXPECT_EQ(staInfo(), kUnknownBandwidth);
    headset_.expectLog("E", "Nl80211Client: STA interface name not available");
    expectRecovery();
}

TEST_F(Kernel, TruncatedAndMalformedAnswersLeaveTheBandwidthUnknown) {
    ASSERT_EQ(staInfo(), kBandwidth80);
    const struct {
        const char* fault;
        const char* error;
    } kFaults[] = {{"truncated", "No STA info in netlink response"},
                   {"no-station-info", "No STA info in netlink response"},
                   {"no-bitrate", "No NL80211_STA_INFO_TX_BITRATE"},
                   {"hang-up", "nl80211 response has error code -104"}};
    for (const auto& [fault, error] : kFaults) {
        headset_.forget();
        headset_.play(std::string("netlink spoil station-dump ") + fault);
        EXPECT_EQ(staInfo(), kUnknownBandwidth) << fault;
        EXPECT_THAT(errors(), ElementsAre(LogLine{"E", std::string("Nl80211Client: ") + error}))
            << fault;
        expectRecovery();
    }
}

TEST_F(Kernel, HangUpInPlaceOfTheInterfaceListIsNoInterface) {
    headset_.play("netlink spoil interface-dump hang-up");
    EXPECT_EQ(staInfo(), kUnknownBandwidth);
    EXPECT_THAT(errors(),
                ElementsAre(LogLine{"E", "Nl80211Client: nl80211 response has error code -104"},
                            LogLine{"E", "Nl80211Client: STA interface name not available"}));
    expectRecovery();
}

TEST_F(Kernel, InterfaceListCutBehindTheNameStillTellsIt) {
    headset_.play("netlink spoil interface-dump truncated");
    EXPECT_EQ(staInfo(), kBandwidth80);
    EXPECT_THAT(errors(), IsEmpty());
    EXPECT_EQ(headset_.count("netlink", "GET_INTERFACE"), 1u);
}

TEST_F(Kernel, HangUpInPlaceOfTheFamilyIsNoFamily) {
    ASSERT_EQ(staInfo(), kBandwidth80);
    headset_.forget();
    headset_.play("netlink spoil family hang-up");
    EXPECT_EQ(staInfo(), kUnknownBandwidth);
    EXPECT_THAT(errors(),
                ElementsAre(LogLine{"E", "Nl80211Client: nl80211 response has error code -104"}));
    expectRecovery();
}

TEST_F(Kernel, FamilyReplyCutBehindTheNumberStillTellsIt) {
    headset_.play("netlink spoil family truncated");
    EXPECT_EQ(staInfo(), kBandwidth80);
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(Kernel, SilenceIsGivenUpInTimeAndLogged) {
    ASSERT_EQ(staInfo(), kBandwidth80);
    headset_.forget();
    headset_.play("netlink spoil station-dump silent");
    EXPECT_EQ(staInfo(), kUnknownBandwidth);
    EXPECT_THAT(
        errors(),
        ElementsAre(LogLine{"E", "Nl80211Client: Failed to receive netlink response: timed out"}));
    expectRecovery();
}

TEST_F(Kernel, SilenceOrGarbageIsWaitedForUntilTheHangUpWhileEventsGoOn) {
    ASSERT_EQ(staInfo(), kBandwidth80);
    for (const char* fault : {"silent", "garbage"}) {
        headset_.forget();
        headset_.play(std::string("netlink spoil station-dump ") + fault);
        test::Program client({component::clientPath(), "call", "getStaInfo"},
                             {{"CORVID_WIFI_ROOT=" + headset_.root()}, {}, {}});
        headset_.expectRecord("netlink", "GET_STATION");
        headset_.settle();
        headset_.play("netlink close");
        EXPECT_EQ(client.readLine(), kUnknownBandwidth) << fault;
        headset_.play("netlink listen");
        expectRecovery();
    }
}

}  // namespace
