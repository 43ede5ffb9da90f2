// What the daemon sends while the signal, the P2P group and the settings change: every command, in
// its order. The daemon samples the signal every 5 seconds, so these tests mostly wait.

#include <chrono>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/component/Headset.h"

using namespace std::chrono_literals;
using component::Headset;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::Ge;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr const char* kDetectionOn = "wlan0 SET_POWER_SURGE_CONFIG 1 ADC_SATURATION 1 RSSI_DELTA 1";
constexpr const char* kDetectionOff =
    "wlan0 SET_POWER_SURGE_CONFIG 1 ADC_SATURATION 0 RSSI_DELTA 0";

/** A line of a reply, "NAME=VALUE". */
std::string valueOf(const std::string& reply, const std::string& name) {
    const size_t begin = reply.find(name + "=") + name.size() + 1;
    return reply.substr(begin, reply.find('\n', begin) - begin);
}

class LinkPower : public testing::Test {
  protected:
    /** Properties are named without "persist.vendor.wifi.". */
    void set(const std::string& property, const std::string& value) {
        headset_.play("property persist.vendor.wifi." + property + " " + value);
    }

    /** Starts everything with these switches on. */
    void start(const std::vector<std::string>& switches) {
        for (const std::string& name : switches) {
            set(name, "true");
        }
        headset_.play("supplicant start");
        startDaemon();
    }

    void startDaemon() {
        headset_.startDaemon();
        headset_.expectConnection();
        headset_.settle();
    }

    /** Connects and waits until the handlers have dealt with it. */
    void connect(int freq, int rssi) {
        headset_.play("connect freq=" + std::to_string(freq) + " rssi=" + std::to_string(rssi));
        headset_.expectLog("I", "StaManager: STA event(CONNECTED)");
        headset_.settle();
    }

    void disconnect() {
        headset_.play("disconnect");
        headset_.settle();
    }

    /** The next sample finds this signal. */
    void sample(int rssi) {
        const size_t before = headset_.count("command", "wlan0 SIGNAL_POLL");
        headset_.play("rssi " + std::to_string(rssi));
        headset_.expectRecords(before + 1, "command", "wlan0 SIGNAL_POLL");
    }

    /**
     * What the supplicant was asked so far: samples as "-45 dBm 5180 MHz", driver commands with
     * their socket and without the word DRIVER.
     */
    std::vector<std::string> trace() {
        const std::string driver = "DRIVER ";
        std::vector<std::string> lines;
        for (const auto& record : headset_.sim().records("command")) {
            const std::string text = record.text();
            if (text == "SIGNAL_POLL") {
                const std::string reply = record["reply"];
                lines.push_back(valueOf(reply, "RSSI") + " dBm " + valueOf(reply, "FREQUENCY") +
                                " MHz");
            } else if (text.rfind(driver, 0) == 0) {
                lines.push_back(record.socket() + " " + text.substr(driver.size()));
            }
        }
        return lines;
    }

    /** The group's part of it. */
    std::vector<std::string> groupTrace() {
        std::vector<std::string> lines;
        for (const std::string& line : trace()) {
            if (line.rfind("p2p", 0) == 0) {
                lines.push_back(line);
            }
        }
        return lines;
    }

    /** The whole of it, and forgets it. */
    std::vector<std::string> takeTrace() {
        std::vector<std::string> lines = trace();
        headset_.forget();
        return lines;
    }

    /** Waits for a driver command. */
    void expectCommand(const std::string& command) { headset_.expectRecord("command", command); }

    /** A group comes up and the daemon follows it. */
    void startGroup(int freq) {
        headset_.play("p2p start freq=" + std::to_string(freq));
        headset_.expectLog("I", "TxPowerManager: P2P event(CONNECTED)");
    }

    Headset headset_;
};

/** Its steps, from the first sample to the last: one every 5 seconds. */
TEST_F(LinkPower, AWalkOn5GhzAwayAndBackTakesEveryStepWithHysteresis) {
    start({"txpower.enable.sta", "powerjump.detect.enable", "devparams.enable"});
    connect(5180, -45);
    for (const int rssi : {-45, -45, -57, -61, -71, -66, -57, -54}) {
        sample(rssi);
    }
    expectCommand("wlan0 DRIVER SET_TXPOWER 5");
    headset_.play("rssi -50");
    disconnect();
    const std::vector<std::string> lines = trace();
    // The handlers of one event run in the order of the managers' slots.
    EXPECT_THAT(lines,
                ElementsAre("-45 dBm 5180 MHz",      // the handler's own look
                            "wlan0 SET_TXPOWER 20",  // the old link is over
                            kDetectionOff,           //
                            "wlan0 SET_AC_CONFIG 0 1 64 65535  0 4 65535 7 5484 wlan0",
                            "wlan0 SET_AC_CONFIG 1 1 64 65535  0 4 65535 7 5484 wlan0",
                            "wlan0 SET_AC_CONFIG 2 1 64 65535  0 4 65535 7 5484 wlan0",
                            "wlan0 SET_AC_CONFIG 3 1 64 65535  0 4 65535 7 5484 wlan0",
                            "wlan0 SET_UL_MU_CONFIG 0",                  //
                            "-45 dBm 5180 MHz", "wlan0 SET_TXPOWER 20",  // always, at first
                            kDetectionOn,                                //
                            "-45 dBm 5180 MHz", "wlan0 SET_TXPOWER 5",   //
                            "-57 dBm 5180 MHz",                          // 5 on the way out
                            "-61 dBm 5180 MHz", "wlan0 SET_TXPOWER 9",   //
                            "-71 dBm 5180 MHz", "wlan0 SET_TXPOWER 20",  //
                            "-66 dBm 5180 MHz",                          // 20 on the way back
                            "-57 dBm 5180 MHz", "wlan0 SET_TXPOWER 9",   //
                            "-54 dBm 5180 MHz", "wlan0 SET_TXPOWER 5",   //
                            "wlan0 SET_TXPOWER 20", kDetectionOff));
    EXPECT_THAT(headset_.dump(), HasSubstr("TxPowerManager: Enabled\n\tSTA TX Power: 20 dbm\n"
                                           "\tP2P TX Power: 0 dbm\n\tPer Chain Control: 0\n"));
}

TEST_F(LinkPower, AWalkOn2GhzKeepsTheUpperStepAndSwitchesThePowerJumpDetection) {
    start({"txpower.enable.sta", "powerjump.detect.enable"});
    connect(2437, -40);
    for (const int rssi : {-40, -55, -56, -90, -54}) {
        sample(rssi);
    }
    headset_.expectRecords(2, "command", "ADC_SATURATION 1");
    disconnect();
    EXPECT_THAT(trace(), ElementsAre("-40 dBm 2437 MHz", "wlan0 SET_TXPOWER 20", kDetectionOff,
                                     "-40 dBm 2437 MHz", "wlan0 SET_TXPOWER 20", kDetectionOn,
                                     "-55 dBm 2437 MHz",                 //
                                     "-56 dBm 2437 MHz", kDetectionOff,  //
                                     "-90 dBm 2437 MHz",                 //
                                     "-54 dBm 2437 MHz", kDetectionOn,   //
                                     "wlan0 SET_TXPOWER 20", kDetectionOff));
}

TEST_F(LinkPower, ThePowerJumpDetectionAloneSendsNothingElse) {
    start({"powerjump.detect.enable"});
    connect(5180, -70);
    sample(-70);
    expectCommand("ADC_SATURATION 1");
    EXPECT_THAT(trace(), ElementsAre("-70 dBm 5180 MHz", kDetectionOff,  //
                                     "-70 dBm 5180 MHz", kDetectionOn));
    EXPECT_THAT(headset_.dump(), HasSubstr("PowerJumpDetectManager: Enabled\nRegdomManager"));
}

TEST_F(LinkPower, InPerChainModeTheCommandsCarryThePreviousLimit) {
    start({"txpower.enable.sta", "txpower.enable.sta.per_chain"});
    connect(2437, -60);
    for (const int rssi : {-60, -80, -84, -60, -76}) {
        sample(rssi);
    }
    headset_.expectRecords(3, "command", "SET_PER_CHAIN_TX_PWR_LIMIT");
    EXPECT_THAT(headset_.dump(), HasSubstr("TxPowerManager: Enabled\n"
                                           "\tPerChainTxPower: enabled\n"
                                           "\t  kLowRssiBoundLower: -85\n"
                                           "\t  kLowRssiBoundUpper: -75\n"
                                           "\t  kPowerLimitDefaultDbmArray: 20, 20\n"
                                           "\t  kPowerLimitLowRssiDbmArray: 13, 20\n"
                                           "\t  currentDbmArray: 13, 20\n"));
    disconnect();
    const std::vector<std::string> lines = trace();
    const std::string chain0 = "wlan0 SET_PER_CHAIN_TX_PWR_LIMIT band 0 chain 0 power ";
    EXPECT_EQ(lines.back(), chain0 + "13") << "the end of the link restores the default";
    EXPECT_THAT(std::vector<std::string>(lines.begin(), lines.begin() + 9),
                ElementsAre("-60 dBm 2437 MHz",                 // the handler's own look
                            "-60 dBm 2437 MHz",                 //
                            "-80 dBm 2437 MHz", chain0 + "20",  // now 13
                            "-84 dBm 2437 MHz",                 //
                            "-60 dBm 2437 MHz", chain0 + "13",  // now 20
                            "-76 dBm 2437 MHz", chain0 + "20"));
}

TEST_F(LinkPower, HalfDbUnitsAndConfiguredStepsReachTheDriver) {
    set("txpower.unit.half.dbm", "true");
    set("txpower.dbm.upper", "41");
    set("txpower.dbm.lower", "0x0B");
    set("txpower.rssi.upper", "-50");
    start({"txpower.enable.sta", "txpower.enable.p2p"});
    startGroup(2437);
    expectCommand("p2p-wlan0-0 DRIVER SET_TXPOWER 6");
    connect(5180, -49);
    sample(-49);
    sample(-49);
    expectCommand("wlan0 DRIVER SET_TXPOWER 5");
    EXPECT_THAT(trace(), ElementsAre("p2p-wlan0-0 SET_TXPOWER 6",                 // 12
                                     "-49 dBm 5180 MHz", "wlan0 SET_TXPOWER 20",  // 41
                                     "-49 dBm 5180 MHz", "wlan0 SET_TXPOWER 20", "-49 dBm 5180 MHz",
                                     "wlan0 SET_TXPOWER 5"));
    EXPECT_THAT(headset_.dump(), HasSubstr("\tSTA TX Power: 5 dbm\n\tP2P TX Power: 6 dbm\n"));
}

TEST_F(LinkPower, ServiceCallsAndPropertiesInBetweenTakeEffectAtTheNextSample) {
    start({"txpower.enable.sta"});
    connect(5180, -45);
    sample(-45);
    sample(-45);
    expectCommand("wlan0 DRIVER SET_TXPOWER 5");
    EXPECT_EQ(headset_.call("updateTxPowerConfig false").status, 0);
    sample(-61);
    expectCommand("wlan0 DRIVER SET_TXPOWER 9");  // hand tracking is off: the signal is followed
    set("txpower.enable.handtracking", "true");
    set("txpower.dbm.lower", "7");  // in use already: too late
    set("txpower.enable.sta", "false");
    headset_.forget();
    sample(-61);
    expectCommand("wlan0 DRIVER SET_TXPOWER 20");
    EXPECT_EQ(headset_.call("setP2pPairedDeviceType MIRACAST").status, 0);
    EXPECT_EQ(headset_.call("updateTxPowerConfig true").status, 0);
    sample(-45);
    expectCommand("wlan0 DRIVER SET_TXPOWER 5");
    EXPECT_THAT(trace(), ElementsAre("-61 dBm 5180 MHz", "wlan0 SET_TXPOWER 20",  //
                                     "-45 dBm 5180 MHz", "wlan0 SET_TXPOWER 5"));
}

TEST_F(LinkPower, TheStepOutlivesADisconnect) {
    start({"txpower.enable.sta"});
    connect(5180, -45);
    sample(-45);
    sample(-45);
    expectCommand("wlan0 DRIVER SET_TXPOWER 5");
    disconnect();
    takeTrace();
    connect(5180, -45);
    sample(-45);
    sample(-61);
    expectCommand("wlan0 DRIVER SET_TXPOWER 9");
    EXPECT_THAT(trace(), ElementsAre("-45 dBm 5180 MHz",      //
                                     "wlan0 SET_TXPOWER 20",  // the old link
                                     "-45 dBm 5180 MHz",      // 5, it thinks
                                     "-61 dBm 5180 MHz", "wlan0 SET_TXPOWER 9"));
}

TEST_F(LinkPower, WhileTheSupplicantIsAwayEveryNoticeOfItTriesTheUpperStepInVain) {
    start({"txpower.enable.sta", "powerjump.detect.enable"});
    connect(5180, -45);
    sample(-45);
    expectCommand("ADC_SATURATION 1");
    headset_.forget();
    // It goes and comes back, but lets nobody in: the daemon tries twenty times a second.
    headset_.playAll({"reply ATTACH fail", "supplicant terminate"});
    // Not before the daemon has let go of the old one: the new one would take its last commands.
    headset_.expectLog("I", "[WPA-STA] Reset wpa socket file path");
    headset_.play("supplicant start");
    headset_.expectRecords(5, "log",
                           "TxPowerManager: STA cmd:DRIVER SET_TXPOWER 20 reply:ERROR: "
                           "NOT-CONNECTED");
    headset_.expectRecords(5, "log", "RSSI_DELTA 0 reply:ERROR: NOT-CONNECTED");
    headset_.forget();
    headset_.play("reply ATTACH default");
    headset_.expectConnection();
    takeTrace();
    connect(5180, -45);
    sample(-45);
    expectCommand("ADC_SATURATION 1");
    const std::vector<std::string> lines = trace();
    EXPECT_THAT(lines, testing::IsSupersetOf({"wlan0 SET_TXPOWER 20", "wlan0 SET_TXPOWER 5"}));
    EXPECT_EQ(lines.back(), kDetectionOn);
}

TEST_F(LinkPower, AnswersThatAreNoneChangeNothingElse) {
    start({"txpower.enable.sta"});
    connect(5180, -45);
    sample(-45);
    headset_.playAll({"reply \"DRIVER SET_TXPOWER 5\" unknown times=1"});
    sample(-45);
    headset_.expectLog("I", "TxPowerManager: STA cmd:DRIVER SET_TXPOWER 5 reply:UNKNOWN COMMAND");
    headset_.play("reply \"DRIVER SET_TXPOWER 9\" none times=1");
    headset_.forget();
    sample(-61);
    // No answer is a failure, after 10 s: the next sample tries again.
    headset_.expectLog("I", "TxPowerManager: STA cmd:DRIVER SET_TXPOWER 9 reply:ERROR: TIMEOUT");
    headset_.expectLog("I", "TxPowerManager: STA cmd:DRIVER SET_TXPOWER 9 reply:OK");
    headset_.play("reply \"DRIVER SET_TXPOWER 20\" fail times=1");
    sample(-71);
    headset_.expectLog("I", "TxPowerManager: STA cmd:DRIVER SET_TXPOWER 20 reply:FAIL");
    EXPECT_THAT(trace(), ElementsAre("-61 dBm 5180 MHz", "wlan0 SET_TXPOWER 9",  //
                                     "-61 dBm 5180 MHz", "wlan0 SET_TXPOWER 9",  //
                                     "-71 dBm 5180 MHz", "wlan0 SET_TXPOWER 20"));
}

TEST_F(LinkPower, AGroupAloneIsFollowedByBandAndPairedDevice) {
    start({"txpower.enable.p2p"});
    connect(5180, -45);
    startGroup(2437);
    expectCommand("p2p-wlan0-0 DRIVER SET_TXPOWER 12");
    EXPECT_THAT(headset_.call("getP2pInfo").output, HasSubstr("\"frequency\":2437"));
    headset_.play("p2p switch freq=5180");
    expectCommand("p2p-wlan0-0 DRIVER SET_TXPOWER 20");
    EXPECT_EQ(headset_.call("setP2pPairedDeviceType MIRACAST").status, 0);
    headset_.forget();
    headset_.play("p2p switch freq=2462");
    headset_.expectLog("I", "TxPowerManager: P2P event(CONNECTED)");
    headset_.play("p2p switch freq=5745");
    expectCommand("p2p-wlan0-0 DRIVER SET_TXPOWER 20");
    EXPECT_EQ(headset_.call("setP2pPairedDeviceType HALBERD").status, 0);
    headset_.play("p2p switch freq=2462");
    expectCommand("p2p-wlan0-0 DRIVER SET_TXPOWER 12");
    headset_.play("p2p stop");
    headset_.expectLog("I", "TxPowerManager: P2P event(DISCONNECTED-");
    headset_.expectRecords(2, "command", "p2p-wlan0-0 DRIVER SET_TXPOWER 20");
    EXPECT_THAT(groupTrace(), ElementsAre("p2p-wlan0-0 SET_TXPOWER 20",  // 5745; none at 2462
                                          "p2p-wlan0-0 SET_TXPOWER 12",  //
                                          "p2p-wlan0-0 SET_TXPOWER 20"));
    EXPECT_THAT(headset_.call("getP2pInfo").output, HasSubstr("\"frequency\":-1"));
}

TEST_F(LinkPower, TheTxChainCommandHasTheseBytes) {
    set("txchain.qualcomm", "true");
    start({"txchain.enable.p2p"});
    headset_.play("p2p start freq=5180");
    headset_.expectLog("I", "TxChainManager: setTxChain nTx=1 success");
    const auto record = headset_.expectRecord("netlink", "VENDOR");
    // Behind the netlink and the generic header: the interface, whose index is the host's, then
    // vendor 0x001374, subcommand 74, and one chain in each of the attributes 73, 74 and 70.
    EXPECT_THAT(record["hex"], EndsWith("0800c30074130000"
                                        "0800c4004a000000"
                                        "1c00c580"
                                        "0500490001000000"
                                        "05004a0001000000"
                                        "0500460001000000"));
    EXPECT_EQ(record["hex"].size(), 2 * (16U + 4U + 8U + 8U + 8U + 28U));

    // The switch of the driver's kind is read at each group, the paired device gates it.
    set("txchain.qualcomm", "false");
    headset_.play("p2p stop");
    headset_.expectRecord("socket", "p2p-wlan0-0 deleted");
    headset_.forget();
    headset_.play("p2p start freq=5180");
    headset_.expectLog("I", "TxChainManager: P2P event(CONNECTED)");
    headset_.play("p2p stop");
    headset_.expectRecord("socket", "p2p-wlan0-0 deleted");
    set("txchain.qualcomm", "true");
    EXPECT_EQ(headset_.call("setP2pPairedDeviceType MIRACAST").status, 0);
    headset_.play("p2p start freq=5180");
    headset_.expectRecords(2, "log", "TxChainManager: P2P event(CONNECTED)");
    EXPECT_EQ(headset_.count("netlink", "VENDOR"), 0U);
    EXPECT_THAT(trace(), IsEmpty());
}

TEST_F(LinkPower, TheElnaBypassIsACommandOfItsOwn) {
    start({"cmd.elna.bypass.mode"});
    EXPECT_EQ(headset_.call("setElnaBypass 1").status, 0);
    set("cmd.elna.bypass.mode", "false");
    EXPECT_EQ(headset_.call("setElnaBypass 0").status, 1);
    headset_.expectLog("E", "ElnaBypassManager: no match ELNA Bypass command.");
    set("cmd.elna.bypass.mode", "true");
    headset_.play("reply \"DRIVER SET_ELNABYPASS_MODE\" fail");
    EXPECT_EQ(headset_.call("setElnaBypass 2").status, 0) << "the reply is not looked at";
    connect(5180, -45);
    EXPECT_THAT(trace(), ElementsAre("wlan0 SET_ELNABYPASS_MODE wlan0 1",
                                     "wlan0 SET_ELNABYPASS_MODE wlan0 2",  //
                                     "-45 dBm 5180 MHz"));
}

TEST_F(LinkPower, TheDriversParametersAreReadWhenTheDaemonStarts) {
    set("devparams.ul_mu_config", "1");
    start({"devparams.enable"});
    set("devparams.tx_retry_limit", "15");
    connect(5180, -45);
    EXPECT_THAT(
        takeTrace(),
        ElementsAre("-45 dBm 5180 MHz", "wlan0 SET_AC_CONFIG 0 1 64 65535  0 4 65535 7 5484 wlan0",
                    "wlan0 SET_AC_CONFIG 1 1 64 65535  0 4 65535 7 5484 wlan0",
                    "wlan0 SET_AC_CONFIG 2 1 64 65535  0 4 65535 7 5484 wlan0",
                    "wlan0 SET_AC_CONFIG 3 1 64 65535  0 4 65535 7 5484 wlan0"));
    headset_.expectDaemonToEnd();
    headset_.play("daemon kill");
    set("devparams.ul_mu_config", "0");
    set("devparams.default_config", "1");
    startDaemon();
    connect(5180, -45);
    EXPECT_THAT(trace(), ElementsAre("-45 dBm 5180 MHz", "wlan0 SET_UL_MU_CONFIG 0"));
}

TEST_F(LinkPower, WithEverySwitchOffNothingIsSentAndTheCallsAreRefused) {
    start({});
    connect(5180, -45);
    headset_.play("p2p start freq=2437");
    headset_.expectLog(
        "I", "Connected to supplicant socket: " + headset_.socketFolder() + "/p2p-wlan0-0");
    EXPECT_EQ(headset_.call("updateTxPowerConfig true").status, 1);
    EXPECT_EQ(headset_.call("setElnaBypass 1").status, 1);
    EXPECT_EQ(headset_.call("setP2pPairedDeviceType HALBERD").status, 0);
    sample(-45);
    disconnect();
    // Two samples, and on a busy machine those of the time that passes.
    EXPECT_THAT(trace(), AllOf(SizeIs(Ge(2U)), Each("-45 dBm 5180 MHz")));
    const std::string dump = headset_.dump();
    for (const char* label : {"DevParamsManager", "ElnaManager", "PowerJumpDetectManager",
                              "TxChainManager", "TxPowerManager"}) {
        EXPECT_THAT(dump, HasSubstr(std::string(label) + ": Disabled\n"));
    }
}

}  // namespace
