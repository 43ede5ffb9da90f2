#include <unistd.h>

#include <chrono>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/nl80211.h>

#include "client/CorvidWifiClient.h"
#include "config/FeatureList.h"
#include "managers/P2pManager.h"
#include "managers/TxPowerSettings.h"
#include "service/CorvidWifiService.h"
#include "tests/service/FakeClient.h"
#include "tests/support/DeviceRoot.h"
#include "tests/support/FeatureSwitches.h"
#include "tests/support/LogCapture.h"
#include "tests/support/RefusedMemory.h"
#include "tests/support/ScriptedNl80211.h"
#include "tests/support/ScriptedSupplicant.h"
#include "tests/support/WaitUntil.h"

namespace vendor::corvid::hardware::wifi::V1_0::implementation {

/** The insides of a service. */
class CorvidWifiServiceTestPeer {
  public:
    static Ursa::OS::Wifi::CorvidWifiManager& managers(CorvidWifiService& service) {
        return service.manager_;
    }
};

}  // namespace vendor::corvid::hardware::wifi::V1_0::implementation

namespace Ursa::OS::Wifi {

namespace {

using ::android::sp;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::vendor::corvid::hardware::wifi::V1_0::ScsProfileV4;
using ::vendor::corvid::hardware::wifi::V1_0::ScsProfileV6;
using ::vendor::corvid::hardware::wifi::V1_0::Status;
using ::vendor::corvid::hardware::wifi::V1_0::implementation::CorvidWifiService;
using Peer = ::vendor::corvid::hardware::wifi::V1_0::implementation::CorvidWifiServiceTestPeer;
using DeviceType = ::vendor::corvid::hardware::wifi::V1_0::P2pDeviceType;
namespace wire = ::vendor::corvid::hardware::wifi::V1_0;

class ServiceTest : public testing::Test {
  protected:
    ServiceTest() { sta_.answer("SIGNAL_POLL", "RSSI=-50\nFREQUENCY=5180\n"); }

    void switchOn(const std::string& property) const {
        root_.setProperty("persist.vendor.wifi." + property, "true");
    }

    void switchEverythingOn() const {
        for (const std::string& property : test::switchesOfEveryFeature()) {
            root_.setProperty(property, "true");
        }
    }

    /** Creates the service and waits until its client is connected; forgets what was logged. */
    void start() {
        service_ =
            new CorvidWifiService(std::make_shared<CorvidWifiClient>(root_.socketDirectory()));
        ASSERT_TRUE(log_.waitFor(
            "[WPA-STA] Connected to supplicant socket: " + root_.socketDirectory() + "wlan0"));
        log_.clear();
    }

    /** The code that a method answers; `call` is given the method's callback. Once, and no text. */
    template <typename Call>
    uint32_t codeOf(Call call) {
        int answers = 0;
        uint32_t code = 99;
        const auto result = call([&](const Status& status) {
            ++answers;
            code = status.code;
            EXPECT_EQ(status.description, "");
        });
        EXPECT_TRUE(result.isOk());
        EXPECT_EQ(answers, 1);
        return code;
    }

    uint32_t isPaired(DeviceType type) {
        return codeOf(
            [&](auto callback) { return service_->isP2pPairedDeviceType(type, callback); });
    }
    uint32_t setPaired(DeviceType type) {
        return codeOf(
            [&](auto callback) { return service_->setP2pPairedDeviceType(type, callback); });
    }
    uint32_t registerClient(const sp<FakeClient>& client) {
        return codeOf([&](auto callback) {
            return service_->registerCorvidWifiManagerCallback(client, callback);
        });
    }
    uint32_t unregisterClient(const sp<FakeClient>& client) {
        return codeOf([&](auto callback) {
            return service_->unregisterCorvidWifiManagerCallback(client, callback);
        });
    }

    std::string dump() {
        std::string text;
        int answers = 0;
        EXPECT_TRUE(service_
                        ->dumpInfo([&](const ::android::hardware::hidl_string& answer) {
                            text = answer;
                            ++answers;
                        })
                        .isOk());
        EXPECT_EQ(answers, 1);
        return text;
    }

    CorvidWifiManager& managers() { return Peer::managers(*service_); }

    std::vector<std::string> warnings() const { return log_.messages(ANDROID_LOG_WARN); }

    static std::string missing(const std::string& manager) {
        return "CorvidWifiManager: " + manager + " does not exist.";
    }

    test::DeviceRoot root_;
    test::LogCapture log_;
    test::ScriptedNl80211 nl80211_{root_.path()};
    test::ScriptedSupplicant sta_{root_.socketDirectory() + "wlan0"};
    std::unique_ptr<test::ScriptedSupplicant> p2p_;
    sp<CorvidWifiService> service_;
    const sp<FakeClient> client_ = new FakeClient;
};

// First, because what is made once is made in a process's first call.
TEST_F(ServiceTest, FirstCallOfAManagerThatIsRefusedMemoryFails) {
    switchOn("txpower.enable.sta");
    start();
    bool happened = true;
    int number = 1;
    for (; happened; ++number) {
        const test::RefusedMemory refused(number);
        const uint32_t code =
            codeOf([&](auto callback) { return service_->updateTxPowerConfig(true, callback); });
        happened = refused.happened();
        EXPECT_EQ(code, happened ? 1U : 0U) << "refused allocation " << number;
    }
    EXPECT_GT(number, 2) << "nothing was refused";
}

// Dump

/** The features by their label, which is the order of the dump. */
std::map<std::string, FeatureInfo> featuresByLabel() {
    std::map<std::string, FeatureInfo> features;
    for (const FeatureInfo& feature : kFeatureTable) {
        features.emplace(feature.dumpLabel, feature);
    }
    return features;
}

TEST_F(ServiceTest, DumpWithoutPropertiesListsFourManagersAsEnabledAndTheOthersAsDisabled) {
    start();
    nl80211_.setStationBandwidth(3);
    std::map<std::string, std::string> parts = {
        {"AssocStartedManager", ": Enabled\n"},
        {"ChannelSwitchManager", ": Disabled\n"},
        {"CoexManager", ": Disabled\n"},
        {"DevParamsManager", ": Disabled\n"},
        {"ElnaManager", ": Disabled\n"},
        {"FrequencyBlockManager", ": Disabled\n"},
        {"MccTimeManager", ": Disabled\n"},
        {"MipiClockManager", ": Disabled\n"},
        {"NoaManager", ": Disabled\n"},
        {"P2pManager", ": Enabled\n\tP2P frequency: -1\n\tP2P bandwidth: -1\n"},
        {"PowerJumpDetectManager", ": Disabled\n"},
        {"RegdomManager", ": Enabled\n"},
        {"ScsManager", ": Disabled\n"},
        {"StaManager", ": Enabled\n\tSTA frequency: 5180\n\tSTA rssi: -50\n\tSTA bandwidth: 80\n"},
        {"TelemetryManager", ": Disabled\n"},
        {"TxChainManager", ": Disabled\n"},
        {"TxPowerManager", ": Disabled\n"},
    };
    for (const auto& [label, feature] : featuresByLabel()) {
        parts.emplace(label, ": Disabled\n");  // a feature that is not named above
    }
    std::string expected;
    for (const auto& [label, text] : parts) {
        expected += label + text;
    }
    const std::string text = dump();
    const std::string end = "Process and Thread ID\n";
    EXPECT_EQ(text.substr(0, text.find(end)), expected);
    EXPECT_THAT(text.substr(text.find(end)),
                HasSubstr("\n\tCorvidWifiManager: " + std::to_string(gettid()) + "\n"));
}

TEST_F(ServiceTest, DumpWarnsOfEachMissingManagerByItsClassNameInTheOrderOfTheLabels) {
    start();
    dump();
    std::vector<std::string> expected;
    for (const auto& [label, feature] : featuresByLabel()) {
        if (!test::switchesOf(feature).empty()) {
            expected.push_back(missing(std::string(feature.managerName)));
        }
    }
    EXPECT_EQ(warnings(), expected);
    EXPECT_THAT(expected, Contains(missing("ElnaBypassManager")));
}

TEST_F(ServiceTest, DumpWithEveryFeatureListsAllAsEnabledWithoutAWarning) {
    switchEverythingOn();
    start();
    std::istringstream lines(dump());
    std::vector<std::string> top;
    for (std::string line; std::getline(lines, line);) {
        if (line.front() != '\t') {
            top.push_back(line);
        }
    }
    std::vector<std::string> expected;
    for (const auto& [label, feature] : featuresByLabel()) {
        expected.push_back(label + ": Enabled");
    }
    expected.emplace_back("Process and Thread ID");
    EXPECT_EQ(top, expected);
    EXPECT_THAT(warnings(), IsEmpty());
}

TEST_F(ServiceTest, DumpEndsWithTheTasksInTheOrderOfTheirNames) {
    start();
    managers().mapTaskToPid("ZManager.last", 30);
    managers().mapTaskToPid("AManager.first", 10);
    const std::string text = dump();
    std::string expected = "Process and Thread ID\n";
    for (const auto& [task, thread] : managers().copyTaskToPidMap()) {  // a sorted map
        expected += "\t" + task + ": " + std::to_string(thread) + "\n";
    }
    EXPECT_THAT(expected, HasSubstr("ID\n\tAManager.first: 10\n\tCorvidWifiManager: "));
    EXPECT_THAT(text, EndsWith(expected));
    EXPECT_THAT(text, EndsWith("\n\tZManager.last: 30\n"));
}

// Station and P2P

TEST_F(ServiceTest, StationInfoPassesTheBandwidthCodeThrough) {
    start();
    for (uint32_t code = 0; code <= 5; ++code) {
        nl80211_.setStationBandwidth(static_cast<int>(code));
        int answers = 0;
        const auto result = service_->getStaInfo([&](const wire::StaInfo& info) {
            ++answers;
            EXPECT_EQ(info.frequency, 5180);
            EXPECT_EQ(info.rssi, -50);
            EXPECT_EQ(info.bandwidth, code);
        });
        EXPECT_TRUE(result.isOk());
        EXPECT_EQ(answers, 1);
    }
}

TEST_F(ServiceTest, StationInfoIsMinusOneAndNoBandwidthWhenTheSupplicantDoesNotAnswer) {
    start();
    sta_.fail("SIGNAL_POLL");
    int answers = 0;
    const auto result = service_->getStaInfo([&](const wire::StaInfo& info) {
        ++answers;
        EXPECT_EQ(info.frequency, -1);
        EXPECT_EQ(info.rssi, -1);
        EXPECT_EQ(info.bandwidth, 0U);
    });
    EXPECT_TRUE(result.isOk());
    EXPECT_EQ(answers, 1);
}

TEST_F(ServiceTest, P2pInfoIsTheManagersRecord) {
    start();
    std::vector<std::pair<int, int>> answers;
    const auto note = [&](const wire::P2pInfo& info) {
        answers.emplace_back(info.frequency, info.bandwidth);
    };
    EXPECT_TRUE(service_->getP2pInfo(note).isOk());
    managers().get<P2pManager>()->setP2pInfo({2437, 20});
    EXPECT_TRUE(service_->getP2pInfo(note).isOk());
    EXPECT_THAT(answers, ElementsAre(std::pair(-1, -1), std::pair(2437, 20)));
}

// Paired device

TEST_F(ServiceTest, PairedDeviceIsTheCompanionAtFirst) {
    start();
    EXPECT_EQ(isPaired(DeviceType::HALBERD), 0U);
    EXPECT_EQ(isPaired(DeviceType::NONE), 1U);
    EXPECT_EQ(isPaired(DeviceType::MIRACAST), 1U);
    EXPECT_EQ(isPaired(DeviceType::UNKNOWN), 1U);
}

TEST_F(ServiceTest, TypeAboveUnknownCountsAsUnknown) {
    start();
    EXPECT_EQ(isPaired(static_cast<DeviceType>(7)), 1U);
    ASSERT_TRUE(managers().get<P2pManager>()->setP2pPairedDeviceType(P2pDeviceType::UNKNOWN));
    EXPECT_EQ(isPaired(static_cast<DeviceType>(7)), 0U);
    EXPECT_EQ(isPaired(static_cast<DeviceType>(0xFFFFFFFF)), 0U);
    EXPECT_EQ(isPaired(DeviceType::UNKNOWN), 0U);
}

TEST_F(ServiceTest, SettingAnyTypeButCompanionAndDisplayIsRefusedAndChangesNothing) {
    start();
    ASSERT_EQ(setPaired(DeviceType::MIRACAST), 0U);
    for (const auto type : {DeviceType::NONE, DeviceType::UNKNOWN, static_cast<DeviceType>(4),
                            static_cast<DeviceType>(0xFFFFFFFF)}) {
        EXPECT_EQ(setPaired(type), 1U);
        EXPECT_EQ(isPaired(DeviceType::MIRACAST), 0U);
    }
}

TEST_F(ServiceTest, SettingThePairedTypeWithoutPowerAndChainManagersWarnsAndSucceeds) {
    start();
    EXPECT_EQ(setPaired(DeviceType::HALBERD), 0U);
    EXPECT_THAT(warnings(), ElementsAre(missing("TxPowerManager"), missing("TxChainManager")));
    EXPECT_EQ(setPaired(DeviceType::MIRACAST), 0U);
    EXPECT_EQ(isPaired(DeviceType::MIRACAST), 0U);
    EXPECT_EQ(isPaired(DeviceType::HALBERD), 1U);
    log_.clear();
    EXPECT_EQ(setPaired(DeviceType::NONE), 1U);
    EXPECT_THAT(warnings(), ElementsAre(missing("TxPowerManager"), missing("TxChainManager")));
}

TEST_F(ServiceTest, SettingADisplayTurnsPowerAndChainsOffForLaterGroups) {
    switchOn("txpower.enable.p2p");
    if (!TxPowerSettings::ofProcess().p2pEnabled()) {
        GTEST_SKIP() << "another test of this process came first: these switches are read once";
    }
    switchOn("txchain.enable.p2p");
    switchOn("txchain.qualcomm");
    nl80211_.setInterfaces({"wlan0", "p2p-wlan0-0"});
    start();
    p2p_ = std::make_unique<test::ScriptedSupplicant>(root_.socketDirectory() + "p2p-wlan0-0");
    ASSERT_TRUE(log_.waitFor(
        "[WPA-P2P] Connected to supplicant socket: " + root_.socketDirectory() + "p2p-wlan0-0"));
    // On 2.4 GHz a group's power follows the toggle; a group's end is always answered by a command.
    const auto group = [&](size_t groups) {
        p2p_->sendEvent("P2P-GROUP-STARTED p2p-wlan0-0 GO freq=2437 go_dev_addr=x");
        p2p_->sendEvent("P2P-GROUP-REMOVED p2p-wlan0-0 GO");
        ASSERT_TRUE(p2p_->waitForCommands("DRIVER SET_TXPOWER 20", groups));
    };
    const auto powers = [&] { return p2p_->commands("DRIVER SET_TXPOWER 12").size(); };
    const auto chains = [&] { return nl80211_.requests(NL80211_CMD_VENDOR).size(); };

    ASSERT_EQ(setPaired(DeviceType::MIRACAST), 0U);
    group(1);
    EXPECT_EQ(powers(), 0U);
    EXPECT_EQ(chains(), 0U);

    ASSERT_EQ(setPaired(DeviceType::HALBERD), 0U);
    group(2);
    EXPECT_EQ(powers(), 1U);
    EXPECT_EQ(chains(), 1U);

    ASSERT_EQ(setPaired(DeviceType::UNKNOWN), 1U);  // calls nobody
    group(3);
    EXPECT_EQ(powers(), 2U);
    EXPECT_EQ(chains(), 2U);
}

// Commands

TEST_F(ServiceTest, CommandOfAFeatureThatIsOffAnswersOneAndWarns) {
    start();
    EXPECT_EQ(codeOf([&](auto callback) { return service_->clearScs(0, callback); }), 1U);
    EXPECT_EQ(codeOf([&](auto callback) { return service_->setElnaBypass(1, callback); }), 1U);
    EXPECT_EQ(codeOf([&](auto callback) { return service_->setMccTimeAllocation(50, callback); }),
              1U);
    EXPECT_EQ(codeOf([&](auto callback) { return service_->setP2pNoa(1, 2, 3, callback); }), 1U);
    EXPECT_EQ(codeOf([&](auto callback) { return service_->startCsa(36, 80, callback); }), 1U);
    EXPECT_EQ(codeOf([&](auto callback) { return service_->updateTxPowerConfig(true, callback); }),
              1U);
    EXPECT_THAT(warnings(),
                ElementsAre(missing("ScsManager"), missing("ElnaBypassManager"),
                            missing("MccTimeManager"), missing("NoaManager"),
                            missing("ChannelSwitchManager"), missing("TxPowerManager")));
    EXPECT_THAT(sta_.commands(), IsEmpty());
}

TEST_F(ServiceTest, CommandsReachTheirManagersWithTheirArgumentsInOrder) {
    switchEverythingOn();
    nl80211_.setInterfaces({"wlan0", "p2p-wlan0-0"});
    start();
    sta_.answer("CORVID_P2P_CHAN_SWITCH 0 36 80", "SUCCESS\n");
    EXPECT_EQ(codeOf([&](auto callback) { return service_->setElnaBypass(7, callback); }), 0U);
    EXPECT_THAT(sta_.commands("DRIVER SET_ELNABYPASS_MODE"),
                ElementsAre("DRIVER SET_ELNABYPASS_MODE wlan0 7"));

    EXPECT_EQ(codeOf([&](auto callback) { return service_->setMccTimeAllocation(30, callback); }),
              0U);
    EXPECT_THAT(sta_.commands("DRIVER MCC_QUOTA"),
                ElementsAre(HasSubstr("DRIVER MCC_QUOTA set iface ")));

    EXPECT_EQ(codeOf([&](auto callback) { return service_->setP2pNoa(255, 20, 30, callback); }),
              0U);
    const auto requests = nl80211_.requests(NL80211_CMD_VENDOR);
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_THAT(std::string(requests[0].attributes.begin(), requests[0].attributes.end()),
                HasSubstr("P2P_SET_NOA 255 20 30"));

    for (const bool allowed : {false, true}) {
        EXPECT_EQ(
            codeOf([&](auto callback) { return service_->updateTxPowerConfig(allowed, callback); }),
            0U);
    }
    EXPECT_THAT(warnings(), IsEmpty());
    EXPECT_EQ(codeOf([&](auto callback) { return service_->clearScs(5, callback); }), 1U);
    EXPECT_THAT(warnings(), ElementsAre("ScsManager: ScsProfileId 5 not found."));
}

TEST_F(ServiceTest, CommandThatItsManagerRefusesAnswersOne) {
    switchOn("cmd.elna.bypass.mode");
    switchOn("cmd.cs.p2p.corvid");
    start();
    sta_.failAll(true);
    EXPECT_EQ(codeOf([&](auto callback) { return service_->setElnaBypass(7, callback); }), 1U);
    EXPECT_EQ(codeOf([&](auto callback) { return service_->startCsa(36, 80, callback); }), 1U);
}

TEST_F(ServiceTest, ChannelSwitchPassesChannelAndBandwidthOn) {
    switchOn("cmd.cs.p2p.ecsa");
    nl80211_.setInterfaces({"wlan0", "p2p-wlan0-0"});
    start();
    EXPECT_EQ(codeOf([&](auto callback) { return service_->startCsa(36, 80, callback); }), 0U);
    const auto requests = nl80211_.requests(NL80211_CMD_VENDOR);
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_THAT(std::string(requests[0].attributes.begin(), requests[0].attributes.end()),
                HasSubstr("P2P_ECSA 36 80"));
}

// Stream classification

TEST_F(ServiceTest, ProfileWithTheFeatureOffAnswersMinusOne) {
    start();
    EXPECT_EQ(static_cast<int32_t>(service_->setScsV4({"", 0, "10.0.0.2", 5000, 46, 17})), -1);
    EXPECT_EQ(static_cast<int32_t>(service_->setScsV6({"", 0, "::1", 5000, 0, 46, 17})), -1);
    EXPECT_THAT(warnings(), ElementsAre(missing("ScsManager"), missing("ScsManager")));
}

TEST_F(ServiceTest, IpV4ProfileReachesTheFrameFieldByField) {
    switchOn("scs.enable");
    start();
    sta_.answer("STATUS",
                "bssid=02:00:00:00:01:00\nip_address=10.0.0.7\naddress=02:00:00:00:00:01\n");
    EXPECT_EQ(static_cast<int32_t>(
                  service_->setScsV4({"10.0.0.7", 0x1234, "10.0.0.2", 0x5678, 0x2E, 0x11})),
              0);
    const auto requests = nl80211_.requests(NL80211_CMD_FRAME);
    ASSERT_EQ(requests.size(), 1U);
    // From the IP version on: remote and local address, remote and local port, DSCP, protocol.
    const std::string expected("\x04\x0a\x00\x00\x02\x0a\x00\x00\x07\x56\x78\x12\x34\x2e\x11", 15);
    EXPECT_THAT(std::string(requests[0].attributes.begin(), requests[0].attributes.end()),
                HasSubstr(expected));
    EXPECT_EQ(codeOf([&](auto callback) { return service_->clearScs(0, callback); }), 0U);
}

TEST_F(ServiceTest, IpV6ProfileIsRefusedByItsManager) {
    switchOn("scs.enable");
    start();
    EXPECT_EQ(static_cast<int32_t>(service_->setScsV6({"::1", 1, "::2", 2, 0x12345, 46, 17})), -1);
    EXPECT_THAT(nl80211_.requests(NL80211_CMD_FRAME), IsEmpty());
    EXPECT_THAT(warnings(), IsEmpty());
}

// Clients

TEST_F(ServiceTest, ClientRegistersOnceAndUnregistersOnce) {
    start();
    EXPECT_EQ(unregisterClient(client_), 1U);
    EXPECT_EQ(registerClient(client_), 0U);
    EXPECT_EQ(registerClient(client_), 1U);
    EXPECT_EQ(unregisterClient(client_), 0U);
    EXPECT_EQ(unregisterClient(client_), 1U);
}

TEST_F(ServiceTest, NullClientIsRefused) {
    start();
    EXPECT_EQ(registerClient(nullptr), 1U);
    EXPECT_EQ(unregisterClient(nullptr), 1U);
}

TEST_F(ServiceTest, RegisteredClientIsToldOfTheSupplicantsEvents) {
    start();
    ASSERT_EQ(registerClient(client_), 0U);
    sta_.sendEvent("CTRL-EVENT-REGDOM-CHANGE init=USER type=COUNTRY alpha2=US");
    EXPECT_TRUE(test::waitUntil([&] { return !client_->calls().empty(); }));
    EXPECT_THAT(client_->calls(), ElementsAre("onRegdomUpdated USER COUNTRY US"));
}

TEST_F(ServiceTest, DestructionEndsTheManagersAndTheClientPromptly) {
    switchEverythingOn();
    start();
    sta_.sendEvent("CTRL-EVENT-CONNECTED - Connection to 02:00:00:00:01:00 completed");
    ASSERT_TRUE(log_.waitFor("StaManager: STA event(CONNECTED)"));
    const auto begin = std::chrono::steady_clock::now();
    service_.clear();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
}

}  // namespace

}  // namespace Ursa::OS::Wifi
