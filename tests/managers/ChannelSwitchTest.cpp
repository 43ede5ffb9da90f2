#include <algorithm>
#include <cerrno>
#include <chrono>
#include <limits>
#include <map>
#include <optional>
#include <sstream>
#include <tuple>

#include <linux/nl80211.h>

#include "managers/ChannelSwitchCommand.h"
#include "managers/ChannelSwitchManager.h"
#include "managers/P2pManager.h"
#include "tests/managers/PrivateCommandBytes.h"
#include "tests/support/ManagerTest.h"

namespace Ursa::OS::Wifi {

/** What the manager records, and nobody asks for yet. */
class ChannelSwitchManagerTestPeer {
  public:
    static int frequency(ChannelSwitchManager& manager, NetInterfaceType interfaceType) {
        MutexLock lock(manager.eventMutex_);
        return manager.frequencies_.at(static_cast<size_t>(interfaceType));
    }
};

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

constexpr char kEcsa[] = "persist.vendor.wifi.cmd.cs.p2p.ecsa";
constexpr char kCorvid[] = "persist.vendor.wifi.cmd.cs.p2p.corvid";

/** Each 40 MHz channel as the two 20 MHz channels in it, with its centre. */
constexpr unsigned kPairs[][3] = {
    {5180, 5200, 5190}, {5220, 5240, 5230}, {5260, 5280, 5270}, {5300, 5320, 5310},
    {5340, 5360, 5350}, {5380, 5400, 5390}, {5420, 5440, 5430}, {5460, 5480, 5470},
    {5500, 5520, 5510}, {5540, 5560, 5550}, {5580, 5600, 5590}, {5620, 5640, 5630},
    {5660, 5680, 5670}, {5700, 5720, 5710}, {5745, 5765, 5755}, {5785, 5805, 5795},
    {5825, 5845, 5835}, {5865, 5885, 5875},
};

/** Each 80 MHz channel as the four 20 MHz channels in it, with its centre. */
constexpr unsigned kBlocks[][5] = {
    {5180, 5200, 5220, 5240, 5210}, {5260, 5280, 5300, 5320, 5290}, {5340, 5360, 5380, 5400, 5370},
    {5420, 5440, 5460, 5480, 5450}, {5500, 5520, 5540, 5560, 5530}, {5580, 5600, 5620, 5640, 5610},
    {5660, 5680, 5700, 5720, 5690}, {5745, 5765, 5785, 5805, 5775}, {5825, 5845, 5865, 5885, 5855},
};

template <size_t Rows, size_t Columns>
std::map<unsigned, unsigned> centres(const unsigned (&table)[Rows][Columns]) {
    std::map<unsigned, unsigned> result;
    for (const auto& row : table) {
        for (size_t i = 0; i + 1 < Columns; ++i) {
            result[row[i]] = row[Columns - 1];
        }
    }
    return result;
}

/** Primary frequency to centre, MHz. */
const std::map<unsigned, unsigned> kCentres40 = centres(kPairs);
const std::map<unsigned, unsigned> kCentres80 = centres(kBlocks);

/** The command's text, or nothing when the pair is to be refused. */
std::optional<std::string> expectedText(unsigned freq, unsigned bandwidth) {
    const std::string start = "CORVID_P2P_CHAN_SWITCH 0 " + std::to_string(freq) + " bandwidth=";
    if (bandwidth == 20) {
        return start + "20";
    }
    const auto& table = bandwidth == 40 ? kCentres40 : kCentres80;
    const auto found = table.find(freq);
    if ((bandwidth != 40 && bandwidth != 80) || found == table.end()) {
        return std::nullopt;
    }
    return start + std::to_string(bandwidth) + " center_freq1=" + std::to_string(found->second) +
           " vht_enabled=1";
}

std::string refusal(unsigned freq, unsigned bandwidth) {
    if (bandwidth != 40 && bandwidth != 80) {
        return "ChannelSwitchCommand: Unsupported bandwidth " + std::to_string(bandwidth);
    }
    return "ChannelSwitchCommand: Frequency " + std::to_string(freq) +
           " MHz is not a 5 GHz channel that supports " + std::to_string(bandwidth) + " MHz";
}

std::optional<std::string> text(unsigned freq, unsigned bandwidth) {
    ChannelSwitchCommand command;
    if (!ChannelSwitchCommand::fromFrequencyAndBandwidth(freq, bandwidth, command)) {
        return std::nullopt;
    }
    std::ostringstream stream;
    stream << command;
    return stream.str();
}

constexpr unsigned kHighest = std::numeric_limits<unsigned>::max();

// The command

TEST(ChannelSwitchCommand, TheListsOfThisTestHoldEveryChannel) {
    EXPECT_EQ(kCentres40.size(), 36U);
    EXPECT_EQ(kCentres80.size(), 36U);
    for (const auto& [primary, centre] : kCentres40) {
        EXPECT_EQ(kCentres80.count(primary), 1U) << primary;
    }
}

TEST(ChannelSwitchCommand, TakesExactlyTheChannelsOfTheTablesAt40And80MHz) {
    const test::LogCapture log;
    for (const unsigned bandwidth : {40U, 80U}) {
        size_t refused = log.messages(ANDROID_LOG_ERROR).size();
        for (unsigned freq = 0; freq <= 7200; ++freq) {
            EXPECT_EQ(text(freq, bandwidth), expectedText(freq, bandwidth));
            refused += expectedText(freq, bandwidth) ? 0 : 1;
        }
        for (const unsigned freq : {kHighest, kHighest - 1, 1U << 31}) {
            EXPECT_EQ(text(freq, bandwidth), std::nullopt);
            ++refused;
        }
        EXPECT_EQ(log.messages(ANDROID_LOG_ERROR).size(), refused);
        EXPECT_EQ(log.count(ANDROID_LOG_ERROR, refusal(5725, bandwidth)), 1U);
        EXPECT_EQ(log.count(ANDROID_LOG_ERROR, refusal(kHighest, bandwidth)), 1U);
        EXPECT_EQ(log.count(ANDROID_LOG_ERROR, refusal(5720, bandwidth)), 0U);
    }
}

TEST(ChannelSwitchCommand, TakesAnyFrequencyAt20MHzWithoutACentre) {
    const test::LogCapture log;
    for (const unsigned freq : {0U, 1U, 2437U, 5180U, 5725U, kHighest}) {
        ChannelSwitchCommand command;
        command.centerFreq1 = 1;
        command.vhtEnabled = true;
        ASSERT_TRUE(ChannelSwitchCommand::fromFrequencyAndBandwidth(freq, 20, command));
        EXPECT_EQ(command.freq, freq);
        EXPECT_EQ(command.centerFreq1, std::nullopt);
        EXPECT_EQ(command.bandwidth, 20U);
        EXPECT_FALSE(command.vhtEnabled);
    }
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(ChannelSwitchCommand, FillsEveryFieldAt40And80MHz) {
    ChannelSwitchCommand command;
    ASSERT_TRUE(ChannelSwitchCommand::fromFrequencyAndBandwidth(5720, 40, command));
    EXPECT_EQ(std::tie(command.freq, *command.centerFreq1, command.bandwidth, command.vhtEnabled),
              std::make_tuple(5720U, 5710U, 40U, true));
    ASSERT_TRUE(ChannelSwitchCommand::fromFrequencyAndBandwidth(5745, 80, command));
    EXPECT_EQ(std::tie(command.freq, *command.centerFreq1, command.bandwidth, command.vhtEnabled),
              std::make_tuple(5745U, 5775U, 80U, true));
}

TEST(ChannelSwitchCommand, RefusesEveryOtherBandwidth) {
    for (const unsigned bandwidth :
         {0U, 1U, 10U, 19U, 21U, 39U, 60U, 79U, 81U, 100U, 160U, 320U, kHighest}) {
        const test::LogCapture log;
        EXPECT_EQ(text(5180, bandwidth), std::nullopt);
        EXPECT_THAT(log.messages(ANDROID_LOG_ERROR),
                    ElementsAre("ChannelSwitchCommand: Unsupported bandwidth " +
                                std::to_string(bandwidth)));
    }
}

TEST(ChannelSwitchCommand, WritesTheTextsThatTheSupplicantReads) {
    EXPECT_EQ(text(5180, 20), "CORVID_P2P_CHAN_SWITCH 0 5180 bandwidth=20");
    EXPECT_EQ(text(5180, 40),
              "CORVID_P2P_CHAN_SWITCH 0 5180 bandwidth=40 center_freq1=5190 vht_enabled=1");
    EXPECT_EQ(text(5745, 80),
              "CORVID_P2P_CHAN_SWITCH 0 5745 bandwidth=80 center_freq1=5775 vht_enabled=1");
}

// The requests

/** Of the channel numbers of both bands; what is none becomes the highest number there is. */
unsigned frequencyOf(unsigned channel) {
    if (channel == 14) {
        return 2484;
    }
    if (channel > 14) {
        return channel < 32 || channel > 177 ? 4294967295U : 5000 + channel * 5;
    }
    return channel == 0 ? 4294967295U : 2407 + channel * 5;
}

constexpr unsigned kWidths[] = {20, 40, 80, 160, 0, 7, 4294967295};

class ChannelSwitchManagerTest : public ManagerTest {
  protected:
    std::vector<test::NetlinkRequest> vendorRequests() const {
        return nl80211_.requests(NL80211_CMD_VENDOR);
    }
    std::vector<std::string> switches() const { return sta_.commands("CORVID_P2P_CHAN_SWITCH"); }

    ChannelSwitchManager manager_{client_};
};

TEST_F(ChannelSwitchManagerTest, WithoutEitherPropertyNothingIsSent) {
    EXPECT_FALSE(manager_.startCsa(36, 80));
    EXPECT_THAT(errors(), ElementsAre("ChannelSwitchManager: no match channel switch command."));
    EXPECT_THAT(nl80211_.kernel().requests(), IsEmpty());
    EXPECT_THAT(sta_.commands(), IsEmpty());
}

TEST_F(ChannelSwitchManagerTest, TheVendorCommandGoesFirstWhenBothPropertiesAreSet) {
    nl80211_.setInterfaces({"wlan0", "p2p0"});
    root_.setProperty(kEcsa, "true");
    root_.setProperty(kCorvid, "true");
    EXPECT_TRUE(manager_.startCsa(149, 80));
    EXPECT_THAT(vendorRequests(), SizeIs(1));
    EXPECT_THAT(sta_.commands(), IsEmpty());
}

TEST_F(ChannelSwitchManagerTest, ReadsThePropertiesAtEachRequest) {
    nl80211_.setInterfaces({"wlan0", "p2p0"});
    sta_.answer("CORVID_P2P_CHAN_SWITCH 0 5180 bandwidth=20", "SUCCESS");
    EXPECT_FALSE(manager_.startCsa(36, 20));
    root_.setProperty(kCorvid, "true");
    EXPECT_TRUE(manager_.startCsa(36, 20));
    root_.setProperty(kEcsa, "true");
    EXPECT_TRUE(manager_.startCsa(36, 20));
    EXPECT_THAT(switches(), SizeIs(1));
    EXPECT_THAT(vendorRequests(), SizeIs(1));
    root_.unsetProperty(kEcsa);
    root_.unsetProperty(kCorvid);
    EXPECT_FALSE(manager_.startCsa(36, 20));
}

TEST_F(ChannelSwitchManagerTest, TheVendorCommandIsSentOnTheGroupsInterface) {
    nl80211_.setInterfaces({"wlan0", "p2p-wlan0-0"});
    root_.setProperty(kEcsa, "true");
    EXPECT_TRUE(manager_.startCsa(149, 80));
    ASSERT_THAT(vendorRequests(), SizeIs(1));
    EXPECT_EQ(vendorRequests()[0].attributes,
              test::privateCommandBytes("p2p-wlan0-0", "ifname=p2p-wlan0-0 P2P_ECSA 149 80"));
    EXPECT_EQ(debugs(), (std::vector<std::string>{
                            "ChannelSwitchManager: startCsa [BRCM] (149, 80)",
                            "CorvidWifiClient: NL80211: ifname=p2p-wlan0-0 cmd=[P2P_ECSA 149 80] "
                            "oui=0x001018"}));
}

TEST_F(ChannelSwitchManagerTest, ShortVendorTextsArePaddedTo25Characters) {
    nl80211_.setInterfaces({"wlan0", "p2p0"});
    root_.setProperty(kEcsa, "true");
    EXPECT_TRUE(manager_.startCsa(1, 0));
    EXPECT_TRUE(manager_.startCsa(1, 20));
    ASSERT_THAT(vendorRequests(), SizeIs(2));
    EXPECT_EQ(vendorRequests()[0].attributes,
              test::privateCommandBytes("p2p0", "ifname=p2p0 P2P_ECSA 1 0 "));
    EXPECT_EQ(vendorRequests()[1].attributes,
              test::privateCommandBytes("p2p0", "ifname=p2p0 P2P_ECSA 1 20"));
}

TEST_F(ChannelSwitchManagerTest, TheVendorCommandTakesAnyChannelAndWidth) {
    nl80211_.setInterfaces({"wlan0", "p2p-wlan0-0"});
    root_.setProperty(kEcsa, "true");
    std::vector<test::Bytes> expected;
    for (unsigned channel = 0; channel <= 200; ++channel) {
        for (const unsigned width : kWidths) {
            ASSERT_TRUE(manager_.startCsa(channel, width));
            expected.push_back(test::privateCommandBytes(
                "p2p-wlan0-0", "ifname=p2p-wlan0-0 P2P_ECSA " + std::to_string(channel) + " " +
                                   std::to_string(width)));
        }
    }
    std::vector<test::Bytes> sent;
    for (const auto& request : vendorRequests()) {
        sent.push_back(request.attributes);
    }
    EXPECT_TRUE(sent == expected);
    EXPECT_THAT(errors(), IsEmpty());
    EXPECT_THAT(sta_.commands(), IsEmpty());
}

TEST_F(ChannelSwitchManagerTest, AVendorCommandThatTheDriverRefusesFails) {
    nl80211_.setInterfaces({"wlan0", "p2p-wlan0-0"});
    nl80211_.refuse(NL80211_CMD_VENDOR, -EOPNOTSUPP);
    root_.setProperty(kEcsa, "true");
    EXPECT_FALSE(manager_.startCsa(149, 80));
    EXPECT_THAT(vendorRequests(), SizeIs(1));
    EXPECT_THAT(errors(),
                ElementsAre("Nl80211Client: nl80211 response has error code -95",
                            "CorvidWifiClient: Failed to send vendor command to driver."));
}

TEST_F(ChannelSwitchManagerTest, WithoutAGroupTheVendorCommandIsNotSent) {
    root_.setProperty(kEcsa, "true");
    EXPECT_FALSE(manager_.startCsa(149, 80));
    EXPECT_THAT(vendorRequests(), IsEmpty());
    EXPECT_THAT(errors(), ElementsAre("CorvidWifiClient: P2P interface not found. Ignoring NlCmd "
                                      "[P2P_ECSA 149 80]."));
}

TEST_F(ChannelSwitchManagerTest, TheSupplicantIsSentExactlyTheSwitchesOfTheTables) {
    root_.setProperty(kCorvid, "true");
    std::vector<std::string> expected;
    for (unsigned channel = 0; channel <= 200; ++channel) {
        for (const unsigned width : kWidths) {
            const unsigned freq = frequencyOf(channel);
            const auto command = expectedText(freq, width);
            log_.clear();
            if (command) {
                expected.push_back(*command);
                sta_.answer(*command, "SUCCESS\n");
                EXPECT_TRUE(manager_.startCsa(channel, width)) << *command;
                EXPECT_THAT(errors(), IsEmpty());
            } else {
                EXPECT_FALSE(manager_.startCsa(channel, width)) << channel << " " << width;
                EXPECT_THAT(errors(), ElementsAre(refusal(freq, width)));
            }
        }
    }
    EXPECT_EQ(switches(), expected);
    EXPECT_EQ(sta_.commands(), expected);
    EXPECT_THAT(nl80211_.kernel().requests(), IsEmpty());
}

TEST_F(ChannelSwitchManagerTest, ChannelsOfEitherBandAndOfNoneAreSentAtTheirFrequency) {
    root_.setProperty(kCorvid, "true");
    manager_.startCsa(6, 20);
    manager_.startCsa(14, 20);
    manager_.startCsa(15, 20);
    manager_.startCsa(36, 40);
    EXPECT_THAT(
        switches(),
        ElementsAre("CORVID_P2P_CHAN_SWITCH 0 2437 bandwidth=20",
                    "CORVID_P2P_CHAN_SWITCH 0 2484 bandwidth=20",
                    "CORVID_P2P_CHAN_SWITCH 0 4294967295 bandwidth=20",
                    "CORVID_P2P_CHAN_SWITCH 0 5180 bandwidth=40 center_freq1=5190 vht_enabled=1"));
}

TEST_F(ChannelSwitchManagerTest, AnyReplyThatBeginsWithSuccessIsOne) {
    root_.setProperty(kCorvid, "true");
    for (const char* reply : {"SUCCESS", "SUCCESS\n", "SUCCESSFUL", "SUCCESS but later"}) {
        sta_.answer("CORVID_P2P_CHAN_SWITCH 0 5180 bandwidth=20", reply);
        log_.clear();
        EXPECT_TRUE(manager_.startCsa(36, 20)) << reply;
        EXPECT_THAT(errors(), IsEmpty());
        EXPECT_THAT(debugs(), ElementsAre("ChannelSwitchManager: startCsa [QC] (36, 20)",
                                          "ChannelSwitchManager: startCsa success"));
    }
}

TEST_F(ChannelSwitchManagerTest, AnyOtherReplyIsAFailureAndIsNotRetried) {
    root_.setProperty(kCorvid, "true");
    const std::vector<std::string> replies = {"",         "\n",     "OK\n",    "FAIL\n",
                                              " SUCCESS", "SUCCES", "success", "UNKNOWN COMMAND\n",
                                              "XSUCCESS", "-95\n"};
    for (const std::string& reply : replies) {
        sta_.answer("CORVID_P2P_CHAN_SWITCH 0 5180 bandwidth=20", reply);
        log_.clear();
        EXPECT_FALSE(manager_.startCsa(36, 20)) << reply;
        EXPECT_THAT(errors(), ElementsAre("ChannelSwitchManager: startCsa failed")) << reply;
    }
    EXPECT_THAT(switches(), SizeIs(replies.size()));
}

TEST_F(ChannelSwitchManagerTest, ACommandThatCannotBeSentIsAFailure) {
    root_.setProperty(kCorvid, "true");
    sta_.fail("CORVID_P2P_CHAN_SWITCH 0 5180 bandwidth=20");
    EXPECT_FALSE(manager_.startCsa(36, 20));
    EXPECT_THAT(errors(), Contains("ChannelSwitchManager: startCsa failed"));
    EXPECT_THAT(debugs(), Not(Contains("ChannelSwitchManager: startCsa success")));
}

TEST_F(ChannelSwitchManagerTest, ASupplicantThatDoesNotAnswerIsGivenUpAfterTenSeconds) {
    root_.setProperty(kCorvid, "true");
    sta_.socket().resetOnCommands([](const std::string&) { return false; });
    sta_.socket().answerCommands(
        [](const std::string&) -> std::optional<std::string> { return std::nullopt; });
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(manager_.startCsa(36, 20));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(9900));
    EXPECT_THAT(errors(), Contains("ChannelSwitchManager: startCsa failed"));
}

// The events

/** What a listener was told. */
class Heard {
  public:
    explicit Heard(ChannelSwitchManager& manager) {
        linked_ = manager.linkChannelSwitchCallback(f_);
    }

    bool linked() const { return linked_; }
    /** Each as "5745 80 wlan0 0". Written on the listener thread, read after the delivery. */
    std::vector<std::string> texts() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return texts_;
    }

  private:
    mutable std::mutex mutex_;
    std::vector<std::string> texts_;
    ChannelSwitchManager::Listener f_ = [this](const ChannelSwitchResult& result) {
        const std::lock_guard<std::mutex> lock(mutex_);
        texts_.push_back(std::to_string(result.frequency) + " " + std::to_string(result.width) +
                         " " + result.ifname + " " +
                         std::to_string(static_cast<int>(result.interfaceType)));
    };
    bool linked_ = false;
};

class ChannelSwitchEventTest : public ChannelSwitchManagerTest {
  protected:
    ChannelSwitchEventTest() { composition_->p2p = std::make_shared<P2pManager>(client_); }

    void deliverSwitch(const std::string& text) {
        deliver(NetInterfaceType::STA, "CTRL-EVENT-CHANNEL-SWITCH " + text);
    }
    P2pInfo group() const {
        P2pInfo info;
        composition_->p2p->getP2pInfo(info);
        return info;
    }
    int recorded(NetInterfaceType interfaceType) {
        return ChannelSwitchManagerTestPeer::frequency(manager_, interfaceType);
    }
};

TEST_F(ChannelSwitchEventTest, OfTheStationIsToldToTheListenerAndLeavesTheGroupAlone) {
    const Heard heard(manager_);
    deliverSwitch("freq=5745 ifname=wlan0 width=80");
    EXPECT_THAT(heard.texts(), ElementsAre("5745 80 wlan0 0"));
    EXPECT_EQ(recorded(NetInterfaceType::STA), 5745);
    EXPECT_EQ(recorded(NetInterfaceType::P2P), 0);
    EXPECT_EQ(group().frequency, -1);
    EXPECT_EQ(debugs(),
              (std::vector<std::string>{"ChannelSwitchManager: channelSwitchEventHandler_("
                                        "freq=5745 ifname=wlan0 width=80)",
                                        "ChannelSwitchManager: [STA] freq:5745 width:80",
                                        "ChannelSwitchManager: notifying listeners"}));
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(ChannelSwitchEventTest, OfTheGroupIsRecordedWithItsFrequencyAndUnknownWidth) {
    composition_->p2p->setP2pInfo({2437, 20});
    const Heard heard(manager_);
    deliverSwitch("freq=5180 ifname=p2p-wlan0-0 width=40");
    EXPECT_THAT(heard.texts(), ElementsAre("5180 40 p2p-wlan0-0 1"));
    EXPECT_EQ(recorded(NetInterfaceType::STA), 0);
    EXPECT_EQ(recorded(NetInterfaceType::P2P), 5180);
    EXPECT_EQ(group().frequency, 5180);
    EXPECT_EQ(group().bandwidth, -1);
    EXPECT_EQ(debugs(),
              (std::vector<std::string>{"ChannelSwitchManager: channelSwitchEventHandler_("
                                        "freq=5180 ifname=p2p-wlan0-0 width=40)",
                                        "ChannelSwitchManager: [P2P] freq:5180 width:40",
                                        "ChannelSwitchManager: updating P2P info",
                                        "ChannelSwitchManager: notifying listeners"}));
}

TEST_F(ChannelSwitchEventTest, WithANegativeFrequencyStoresZeroAndForwardsItUnchanged) {
    const Heard heard(manager_);
    deliverSwitch("freq=5180 ifname=wlan0 width=20");
    deliverSwitch("freq=-5 ifname=wlan0 width=-7");
    EXPECT_EQ(recorded(NetInterfaceType::STA), 0);
    deliverSwitch("freq=-6 ifname=p2p0 width=20");
    EXPECT_EQ(recorded(NetInterfaceType::P2P), 0);
    EXPECT_EQ(group().frequency, -6) << "as it came";
    EXPECT_THAT(heard.texts(), ElementsAre("5180 20 wlan0 0", "-5 -7 wlan0 0", "-6 20 p2p0 1"));
    EXPECT_THAT(debugs(), Contains("ChannelSwitchManager: [STA] freq:-5 width:-7"));
}

TEST_F(ChannelSwitchEventTest, WithoutAListenerIsOnlyRecorded) {
    deliverSwitch("freq=5180 ifname=p2p0 width=20");
    EXPECT_EQ(group().frequency, 5180);
    EXPECT_THAT(debugs(), Not(Contains("ChannelSwitchManager: notifying listeners")));
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(ChannelSwitchEventTest, OfTheGroupIsToldWithoutAP2pManagerToo) {
    composition_->p2p.reset();
    const Heard heard(manager_);
    deliverSwitch("freq=5180 ifname=p2p0 width=20");
    EXPECT_THAT(heard.texts(), ElementsAre("5180 20 p2p0 1"));
}

TEST_F(ChannelSwitchEventTest, OfAnUnknownInterfaceIsDropped) {
    const Heard heard(manager_);
    deliverSwitch("freq=5180 ifname=eth0 width=20");
    EXPECT_THAT(heard.texts(), IsEmpty());
    EXPECT_THAT(errors(), ElementsAre("ChannelSwitchManager: unknown interface"));
    EXPECT_EQ(recorded(NetInterfaceType::STA), 0);
    EXPECT_EQ(group().frequency, -1);
}

TEST_F(ChannelSwitchEventTest, ThatDoesNotParseIsDropped) {
    const Heard heard(manager_);
    const char* const texts[] = {"",
                                 "freq=5180",
                                 "freq=5180 ifname=wlan0",
                                 "freq= ifname=wlan0 width=1",
                                 "freq=5180 ht_enabled=1 ch_width=80 MHz",
                                 "width=20 freq=5180"};
    for (const char* text : texts) {
        log_.clear();
        deliverSwitch(text);
        EXPECT_THAT(errors(), ElementsAre("ChannelSwitchManager: invalid channel switch event"))
            << text;
        EXPECT_THAT(debugs(), ElementsAre("ChannelSwitchManager: channelSwitchEventHandler_(" +
                                          std::string(text) + ")"));
    }
    EXPECT_THAT(heard.texts(), IsEmpty());
}

TEST_F(ChannelSwitchEventTest, NotesTheThreadOfItsHandler) {
    deliverSwitch("freq=5180 ifname=wlan0 width=20");
    EXPECT_TRUE(composition_->ran("ChannelSwitchManager.onChannelSwitch"));
}

TEST_F(ChannelSwitchEventTest, IsHandledWhileARequestWaitsForItsAnswer) {
    root_.setProperty(kCorvid, "true");
    const Heard heard(manager_);
    sta_.socket().resetOnCommands([](const std::string&) { return false; });
    bool handled = false;
    // On the supplicant's thread, while the request waits.
    sta_.socket().answerCommands([&](const std::string&) -> std::optional<std::string> {
        sta_.sendEvent("CTRL-EVENT-CHANNEL-SWITCH freq=5745 ifname=p2p0 width=80");
        handled = test::waitUntil([&] { return !heard.texts().empty(); });
        return "SUCCESS\n";
    });
    EXPECT_TRUE(manager_.startCsa(149, 80));
    EXPECT_TRUE(handled);
}

TEST_F(ChannelSwitchEventTest, IsToldToTheFirstListenerOnly) {
    const Heard first(manager_);
    const Heard second(manager_);
    EXPECT_TRUE(first.linked());
    EXPECT_FALSE(second.linked());
    EXPECT_THAT(errors(),
                ElementsAre("ChannelSwitchManager: callback exists => cannot link new one"));
    deliverSwitch("freq=5180 ifname=wlan0 width=20");
    EXPECT_THAT(first.texts(), SizeIs(1));
    EXPECT_THAT(second.texts(), IsEmpty());
}

TEST_F(ChannelSwitchEventTest, IsToldToNobodyAfterUnlinkingUntilAnotherIsLinked) {
    const Heard first(manager_);
    manager_.unlinkChannelSwitchCallback();
    deliverSwitch("freq=5180 ifname=wlan0 width=20");
    const Heard second(manager_);
    EXPECT_TRUE(second.linked());
    deliverSwitch("freq=5200 ifname=wlan0 width=20");
    EXPECT_THAT(first.texts(), IsEmpty());
    EXPECT_THAT(second.texts(), ElementsAre("5200 20 wlan0 0"));
}

TEST_F(ChannelSwitchManagerTest, HasNothingToDump) {
    std::string text = "before";
    EXPECT_FALSE(manager_.dumpInfo(text));
    EXPECT_EQ(text, "before");
}

}  // namespace

}  // namespace Ursa::OS::Wifi
