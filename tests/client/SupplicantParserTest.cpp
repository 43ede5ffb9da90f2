#include <stdexcept>
#include <string>
#include <typeinfo>

#include <gtest/gtest.h>

#include "client/SupplicantParser.h"

namespace Ursa::OS::Wifi {
namespace {

constexpr unsigned kNoFrequency = 0xFFFFFFFF;
constexpr const char* kSignalPoll =
    "RSSI=-27\nLINKSPEED=13\nNOISE=-92\nFREQUENCY=5180\nWIDTH=80 MHz\nCENTER_FRQ1=5210\n"
    "AVG_RSSI=-28\nAVG_BEACON_RSSI=-29\n";
constexpr const char* kStatus =
    "bssid=02:00:00:00:01:00\nfreq=5180\nssid=a=b\nid=0\nmode=station\nwpa_state=COMPLETED\n"
    "ip_address=10.0.0.2\np2p_device_address=42:00:00:00:00:00\naddress=02:00:00:00:00:00\n";

TEST(GetInt32ValueByKey, ANumberThatABlankEndsIsRead) {
    int value = 0;
    EXPECT_TRUE(getInt32ValueByKey("P2P-GROUP-STARTED p2p0 GO freq=2437 more", "freq=", 0, value));
    EXPECT_EQ(value, 2437);
    EXPECT_TRUE(getInt32ValueByKey("level=-71 ", "level=", 0, value));
    EXPECT_EQ(value, -71);
}

TEST(GetInt32ValueByKey, ANumberAtTheVeryEndOfTheTextIsNotRead) {
    int value = 7;
    EXPECT_FALSE(getInt32ValueByKey("p2p0 GO freq=2437", "freq=", 0, value));
    EXPECT_EQ(value, 7);
}

TEST(GetInt32ValueByKey, TheSearchBeginsAtThePosition) {
    const std::string text = "freq=1 freq=2 ";
    int value = 0;
    EXPECT_TRUE(getInt32ValueByKey(text, "freq=", 1, value));
    EXPECT_EQ(value, 2);
    EXPECT_FALSE(getInt32ValueByKey(text, "freq=", 8, value));
    EXPECT_FALSE(getInt32ValueByKey(text, "freq=", text.size(), value));
    EXPECT_FALSE(getInt32ValueByKey(text, "freq=", text.size() + 100, value));
}

TEST(GetInt32ValueByKey, AKeyIsFoundInsideAnotherWord) {
    int value = 0;
    EXPECT_TRUE(getInt32ValueByKey("op_freq=5180 ", "freq=", 0, value));
    EXPECT_EQ(value, 5180);
}

TEST(GetInt32ValueByKey, AMissingKeyAndAnEmptyTextGiveFalse) {
    int value = 7;
    EXPECT_FALSE(getInt32ValueByKey("ssid=\"DIRECT\" ", "freq=", 0, value));
    EXPECT_FALSE(getInt32ValueByKey("", "freq=", 0, value));
    EXPECT_EQ(value, 7);
}

TEST(GetInt32ValueByKey, DigitsInFrontOfOtherCharactersAreTheNumber) {
    int value = 0;
    EXPECT_TRUE(getInt32ValueByKey("freq=2437MHz ", "freq=", 0, value));
    EXPECT_EQ(value, 2437);
}

TEST(GetInt32ValueByKey, AValueThatIsNoNumberThrows) {
    int value = 7;
    EXPECT_THROW(getInt32ValueByKey("freq=high ", "freq=", 0, value), std::invalid_argument);
    EXPECT_THROW(getInt32ValueByKey("freq= 2437 ", "freq=", 0, value), std::invalid_argument);
    EXPECT_THROW(getInt32ValueByKey("freq=2147483648 ", "freq=", 0, value), std::out_of_range);
    EXPECT_THROW(getInt32ValueByKey("freq=99999999999999999999 ", "freq=", 0, value),
                 std::out_of_range);
    EXPECT_EQ(value, 7);
}

TEST(GetRssiAndFreq, AReplyOfTheTwoLinesGivesBoth) {
    int rssi = 0;
    int frequency = 0;
    EXPECT_TRUE(getRssiAndFreq("RSSI=-55\nFREQUENCY=5180", rssi, frequency));
    EXPECT_EQ(rssi, -55);
    EXPECT_EQ(frequency, 5180);
}

TEST(GetRssiAndFreq, AWholeReplyGivesItsOwnRssiNotAnAverage) {
    int rssi = 0;
    int frequency = 0;
    EXPECT_TRUE(getRssiAndFreq(kSignalPoll, rssi, frequency));
    EXPECT_EQ(rssi, -27);
    EXPECT_EQ(frequency, 5180);
}

TEST(GetRssiAndFreq, AReplyWithoutAFrequencyLineGivesFalseAndKeepsTheRssi) {
    int rssi = 0;
    int frequency = 0;
    EXPECT_FALSE(getRssiAndFreq("RSSI=-55\nLINKSPEED=13\n", rssi, frequency));
    EXPECT_EQ(rssi, -55);
    EXPECT_EQ(frequency, -1);
}

TEST(GetRssiAndFreq, AReplyWithoutAnRssiLineGivesFalseAndKeepsTheFrequency) {
    int rssi = 0;
    int frequency = 0;
    EXPECT_FALSE(getRssiAndFreq("FREQUENCY=5180\n", rssi, frequency));
    EXPECT_EQ(rssi, -1);
    EXPECT_EQ(frequency, 5180);
}

TEST(GetRssiAndFreq, ANameThatOnlyBeginsLikeRssiDoesNotMatch) {
    int rssi = 0;
    int frequency = 0;
    EXPECT_FALSE(getRssiAndFreq("RSSI_EXTRA=3\nFREQUENCY=5180\n", rssi, frequency));
    EXPECT_EQ(rssi, -1);
}

TEST(GetRssiAndFreq, ARefusedCommandGivesFalse) {
    int rssi = 0;
    int frequency = 0;
    for (const char* reply : {"FAIL\n", "", "\n\n", "UNKNOWN COMMAND\n"}) {
        EXPECT_FALSE(getRssiAndFreq(reply, rssi, frequency)) << reply;
        EXPECT_EQ(rssi, -1);
        EXPECT_EQ(frequency, -1);
    }
}

TEST(GetRssiAndFreq, TheFirstOfTwoLinesCountsAndNothingIsReadBehindTheSecondValue) {
    int rssi = 0;
    int frequency = 0;
    EXPECT_TRUE(getRssiAndFreq("RSSI=-1\nRSSI=-40\nRSSI=-50\nFREQUENCY=2437\nRSSI=high\n", rssi,
                               frequency));
    EXPECT_EQ(rssi, -40);  // -1 reads as not found yet
    EXPECT_EQ(frequency, 2437);
}

TEST(GetRssiAndFreq, AValueThatIsNoNumberThrowsAndKeepsWhatWasFound) {
    int rssi = 0;
    int frequency = 0;
    EXPECT_THROW(getRssiAndFreq("RSSI=-55\nFREQUENCY=\n", rssi, frequency), std::invalid_argument);
    EXPECT_EQ(rssi, -55);
    EXPECT_THROW(getRssiAndFreq("RSSI=-99999999999\n", rssi, frequency), std::out_of_range);
}

TEST(GetRssiAndFreq, AValueIsReadAsStoiReadsIt) {
    for (const char* value : {"5180",
                              "-5180",
                              "+5180",
                              " 5180",
                              "\t-7",
                              "5180 MHz",
                              "51.80",
                              "007",
                              "-0",
                              "0x10",
                              "2 3",
                              "2147483647",
                              "-2147483648",
                              "2147483648",
                              "-2147483649",
                              "99999999999999999999",
                              "+-5",
                              "-+5",
                              "--5",
                              "- 5",
                              "-",
                              "+",
                              "",
                              " ",
                              "x",
                              "\xff",
                              "\v\f\r 8"}) {
        const auto outcome = [](auto&& read) -> std::string {
            try {
                return std::to_string(read());
            } catch (const std::logic_error& error) {
                return typeid(error).name();
            }
        };
        EXPECT_EQ(outcome([&] {
                      int rssi = 0;
                      int frequency = 0;
                      getRssiAndFreq(std::string("RSSI=") + value + "\n", rssi, frequency);
                      return rssi;
                  }),
                  outcome([&] { return std::stoi(value); }))
            << '"' << value << '"';
    }
}

TEST(GetValueFromWpaCmdStatusReply, TheRestOfTheLineIsTheValue) {
    std::string value;
    EXPECT_TRUE(getValueFromWpaCmdStatusReply(kStatus, "bssid", value));
    EXPECT_EQ(value, "02:00:00:00:01:00");
    EXPECT_TRUE(getValueFromWpaCmdStatusReply(kStatus, "ip_address", value));
    EXPECT_EQ(value, "10.0.0.2");
    EXPECT_TRUE(getValueFromWpaCmdStatusReply(kStatus, "ssid", value));
    EXPECT_EQ(value, "a=b");
}

TEST(GetValueFromWpaCmdStatusReply, OnlyTheWholeNameMatches) {
    std::string value;
    EXPECT_TRUE(getValueFromWpaCmdStatusReply(kStatus, "address", value));
    EXPECT_EQ(value, "02:00:00:00:00:00");
    EXPECT_FALSE(getValueFromWpaCmdStatusReply(kStatus, "addres", value));
}

TEST(GetValueFromWpaCmdStatusReply, AMissingNameLeavesTheValueAlone) {
    std::string value = "before";
    EXPECT_FALSE(getValueFromWpaCmdStatusReply("FAIL\n", "bssid", value));
    EXPECT_FALSE(getValueFromWpaCmdStatusReply("", "bssid", value));
    EXPECT_FALSE(getValueFromWpaCmdStatusReply("bssid\n", "bssid", value));
    EXPECT_EQ(value, "before");
}

TEST(GetValueFromWpaCmdStatusReply, TheFirstLineCountsAndMayBeEmpty) {
    std::string value = "before";
    EXPECT_TRUE(getValueFromWpaCmdStatusReply("bssid=\nbssid=x\n", "bssid", value));
    EXPECT_EQ(value, "");
}

TEST(GetRegdomUpdatedResult, AllThreeFieldsAreRead) {
    RegdomUpdatedResult result;
    EXPECT_TRUE(getRegdomUpdatedResult("init=USER type=COUNTRY alpha2=US", result));
    EXPECT_EQ(result.init, "USER");
    EXPECT_EQ(result.type, "COUNTRY");
    EXPECT_EQ(result.alpha2, "US");
}

TEST(GetRegdomUpdatedResult, ATextWithoutACountryCodeSucceedsWithAnEmptyOne) {
    RegdomUpdatedResult result;
    result.alpha2 = "DE";
    EXPECT_TRUE(getRegdomUpdatedResult("init=CORE type=WORLD", result));
    EXPECT_EQ(result.alpha2, "");
}

TEST(GetRegdomUpdatedResult, ACountryCodeOfAnotherLengthFails) {
    RegdomUpdatedResult result;
    EXPECT_FALSE(getRegdomUpdatedResult("init=USER type=COUNTRY alpha2=USA", result));
    EXPECT_FALSE(getRegdomUpdatedResult("init=USER type=COUNTRY alpha2=U", result));
    EXPECT_TRUE(getRegdomUpdatedResult("init=USER type=COUNTRY alpha2=", result));
}

TEST(GetRegdomUpdatedResult, WithoutInitOrTypeItFails) {
    RegdomUpdatedResult result;
    EXPECT_FALSE(getRegdomUpdatedResult("type=COUNTRY alpha2=US", result));
    EXPECT_FALSE(getRegdomUpdatedResult("init=USER alpha2=US", result));
    EXPECT_FALSE(getRegdomUpdatedResult("init= type=COUNTRY", result));
    EXPECT_FALSE(getRegdomUpdatedResult("", result));
    EXPECT_EQ(result.init, "");
}

TEST(GetRegdomUpdatedResult, ALaterTokenOverwritesAndOthersAreIgnored) {
    RegdomUpdatedResult result;
    EXPECT_TRUE(getRegdomUpdatedResult(
        "x init=USER  note=1 type=COUNTRY alpha2=US init=DRIVER=2 alpha2=DE", result));
    EXPECT_EQ(result.init, "DRIVER=2");
    EXPECT_EQ(result.type, "COUNTRY");
    EXPECT_EQ(result.alpha2, "DE");
}

TEST(GetChannelSwitchResult, FrequencyNameAndWidthAreRead) {
    ChannelSwitchResult result = {};
    EXPECT_TRUE(getChannelSwitchResult("freq=5200 ifname=wlan0 width=80", result));
    EXPECT_EQ(result.frequency, 5200);
    EXPECT_STREQ(result.ifname, "wlan0");
    EXPECT_EQ(result.width, 80);
    EXPECT_EQ(result.interfaceType, NetInterfaceType::STA);
}

TEST(GetChannelSwitchResult, TheKindComesFromTheName) {
    ChannelSwitchResult result = {};
    EXPECT_TRUE(getChannelSwitchResult("freq=1 ifname=p2p-wlan0-3 width=20", result));
    EXPECT_EQ(result.interfaceType, NetInterfaceType::P2P);
    EXPECT_TRUE(getChannelSwitchResult("freq=1 ifname=p2p0 width=20", result));
    EXPECT_EQ(result.interfaceType, NetInterfaceType::P2P);
    EXPECT_TRUE(getChannelSwitchResult("freq=1 ifname=wlan1 width=20", result));
    EXPECT_EQ(result.interfaceType, NetInterfaceType::STA);
    EXPECT_TRUE(getChannelSwitchResult("freq=1 ifname=eth0 width=20", result));
    EXPECT_EQ(static_cast<int>(result.interfaceType), 2);
    EXPECT_TRUE(getChannelSwitchResult("freq=1 ifname=P2P0 width=20", result));
    EXPECT_EQ(static_cast<int>(result.interfaceType), 2);
}

TEST(GetChannelSwitchResult, AnIncompleteOrReorderedTextFails) {
    ChannelSwitchResult result = {};
    EXPECT_FALSE(getChannelSwitchResult("", result));
    EXPECT_FALSE(getChannelSwitchResult("freq=5200", result));
    EXPECT_FALSE(getChannelSwitchResult("freq=5200 ifname=wlan0", result));
    EXPECT_FALSE(getChannelSwitchResult("freq=5200 ifname=wlan0 width=", result));
    EXPECT_FALSE(getChannelSwitchResult("ifname=wlan0 freq=5200 width=80", result));
    EXPECT_FALSE(getChannelSwitchResult("freq=x ifname=wlan0 width=80", result));
    EXPECT_FALSE(getChannelSwitchResult(
        "freq=5200 ht_enabled=1 ch_offset=-1 ch_width=80 MHz cf1=5210 cf2=0", result));
}

TEST(GetChannelSwitchResult, ALongNameIsCutAtFifteenCharactersAndFails) {
    ChannelSwitchResult result = {};
    EXPECT_TRUE(getChannelSwitchResult("freq=1 ifname=p2p-wlan0-12345 width=20", result));
    EXPECT_STREQ(result.ifname, "p2p-wlan0-12345");
    // The rest of a longer name stands where the width should.
    EXPECT_FALSE(getChannelSwitchResult("freq=1 ifname=p2p-wlan0-123456 width=20", result));
    EXPECT_STREQ(result.ifname, "p2p-wlan0-12345");
    EXPECT_FALSE(
        getChannelSwitchResult(("freq=1 ifname=" + std::string(5000, 'w')).c_str(), result));
}

TEST(GetFrequencyFromChannel, BothBandsAndNothingElse) {
    EXPECT_EQ(getFrequencyFromChannel(0), kNoFrequency);
    EXPECT_EQ(getFrequencyFromChannel(1), 2412u);
    EXPECT_EQ(getFrequencyFromChannel(13), 2472u);
    EXPECT_EQ(getFrequencyFromChannel(14), 2484u);
    EXPECT_EQ(getFrequencyFromChannel(15), kNoFrequency);
    EXPECT_EQ(getFrequencyFromChannel(31), kNoFrequency);
    EXPECT_EQ(getFrequencyFromChannel(32), 5160u);
    EXPECT_EQ(getFrequencyFromChannel(36), 5180u);
    EXPECT_EQ(getFrequencyFromChannel(177), 5885u);
    EXPECT_EQ(getFrequencyFromChannel(178), kNoFrequency);
    EXPECT_EQ(getFrequencyFromChannel(0xFFFFFFFF), kNoFrequency);
}

TEST(Parsed, ANumberThatIsNoneCountsAsATextThatDidNotParse) {
    int rssi = 0;
    int frequency = 0;
    const auto poll = [&](const char* reply) {
        return parsed([&] { return getRssiAndFreq(reply, rssi, frequency); });
    };
    EXPECT_TRUE(poll(kSignalPoll));
    EXPECT_FALSE(poll("FAIL\n"));
    EXPECT_FALSE(poll("RSSI=-55\nFREQUENCY=none\n"));
    EXPECT_EQ(rssi, -55);
    EXPECT_FALSE(poll("RSSI=99999999999\n"));
}

TEST(Parsed, OtherExceptionsPass) {
    EXPECT_THROW(parsed([]() -> bool { throw std::runtime_error("other"); }), std::runtime_error);
}

}  // namespace
}  // namespace Ursa::OS::Wifi
