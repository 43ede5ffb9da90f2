// What the commands look like on the wire.

#include <unistd.h>

#include <linux/netlink.h>
#include <net/if.h>

#include "tests/client/nl80211/Nl80211Fixture.h"

namespace Ursa::OS::Wifi {

namespace {

using test::attribute;
using test::concat;
using test::number16;
using test::number32;
using test::number8;
using test::terminatedText;

constexpr uint16_t kVendorData = NL80211_ATTR_VENDOR_DATA | NLA_F_NESTED;

Nl80211VendorCmdInfo privateCommand(const std::string& command, const char* ifname = "wlan0") {
    Nl80211VendorCmdInfo info;
    info.vendorId = 0x001018;
    info.subcmd = 2;
    info.command = command;
    info.ifname = ifname;
    return info;
}

/** The vendor data nest that carries `text` as it stands. */
Bytes privateCommandNest(const std::string& text) {
    return attribute(kVendorData, attribute(0, terminatedText(text)));
}

/** The attributes in front of the vendor data. */
Bytes vendorHeader(const char* ifname, uint32_t vendorId, uint32_t subcmd) {
    return concat({attribute(NL80211_ATTR_IFINDEX, number32(if_nametoindex(ifname))),
                   attribute(NL80211_ATTR_VENDOR_ID, number32(vendorId)),
                   attribute(NL80211_ATTR_VENDOR_SUBCMD, number32(subcmd))});
}

class GenericCommand : public Nl80211Test {};
class VendorCommand : public Nl80211Test {};

TEST_F(GenericCommand, PlainCommandAsksTheResolvedFamilyForAnAcknowledgement) {
    EXPECT_EQ(client_.sendGenericCommand(someCommand()), 0);

    ASSERT_EQ(kernel_.requests().size(), 1U);
    const NetlinkRequest request = kernel_.requests()[0];
    EXPECT_EQ(request.type, test::FakeNl80211::kFamily);
    EXPECT_EQ(request.flags, NLM_F_REQUEST | NLM_F_ACK);
    EXPECT_NE(request.port, 0U);
    EXPECT_EQ(request.cmd, 59);
    EXPECT_EQ(request.version, 0);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(GenericCommand, CommandForAnInterfaceCarriesItsIndex) {
    EXPECT_EQ(client_.sendGenericCommand(someCommand()), 0);

    ASSERT_NE(if_nametoindex("lo"), 0U);
    EXPECT_EQ(kernel_.requests()[0].attributes, attribute(3, number32(if_nametoindex("lo"))));
}

TEST_F(GenericCommand, CommandForAMissingInterfaceCarriesIndexZero) {
    Nl80211GenericCmdInfo info = someCommand();
    info.ifname = "none-such";
    EXPECT_EQ(client_.sendGenericCommand(info), 0);

    EXPECT_EQ(kernel_.requests()[0].attributes, attribute(3, number32(0)));
}

TEST_F(GenericCommand, FlagsArePassedOnUnchanged) {
    Nl80211GenericCmdInfo info = someCommand();
    info.flags = NLM_F_EXCL | NLM_F_CREATE;
    EXPECT_EQ(client_.sendGenericCommand(info), 0);

    EXPECT_EQ(kernel_.requests()[0].flags, NLM_F_REQUEST | NLM_F_ACK | NLM_F_EXCL | NLM_F_CREATE);
}

TEST_F(GenericCommand, AttributesKeepTheirSizesAndOrder) {
    const std::vector<uint8_t> frame(55, 0xD0);
    Nl80211GenericCmdInfo info = someCommand();
    info.attributes = {{41, uint8_t{13}},
                       {51, gsl::span<const uint8_t>(frame)},
                       {7, uint16_t{0x1234}},
                       {6, uint32_t{0x12345678}},
                       {5, uint64_t{0x123456789abcdef0}},
                       {8, gsl::span<const uint8_t>()}};
    EXPECT_EQ(client_.sendGenericCommand(info), 0);

    const Bytes number64 = {0xf0, 0xde, 0xbc, 0x9a, 0x78, 0x56, 0x34, 0x12};
    EXPECT_EQ(
        kernel_.requests()[0].attributes,
        concat({attribute(3, number32(if_nametoindex("lo"))), attribute(41, number8(13)),
                attribute(51, frame), attribute(7, number16(0x1234)),
                attribute(6, number32(0x12345678)), attribute(5, number64), attribute(8, {})}));
}

TEST_F(GenericCommand, AttributeThatDoesNotFitFailsTheCommandUnsent) {
    const std::vector<uint8_t> page(static_cast<size_t>(getpagesize()));
    const std::vector<uint8_t> beyondSixteenBits(0x10000 + 8);
    for (const auto& bytes : {page, beyondSixteenBits}) {
        Nl80211GenericCmdInfo info = someCommand();
        info.attributes = {{51, gsl::span<const uint8_t>(bytes)}};
        log_.clear();
        EXPECT_EQ(client_.sendGenericCommand(info), -1);
        EXPECT_THAT(errors(), ElementsAre("Nl80211Client: Failed to add attribute 51 to message"));
    }
    EXPECT_THAT(kernel_.requests(), IsEmpty());
    EXPECT_TRUE(kernel_.waitUntilClosed());
}

TEST_F(GenericCommand, SpanOver4GibFailsTheCommandUnsent) {
    if (sizeof(size_t) == sizeof(uint32_t)) {
        GTEST_SKIP() << "no span is that long here";
    }
    // Its length is a small number in 32 bits.
    const auto length = static_cast<size_t>((uint64_t{1} << 32) + 1);
    const uint8_t byte = 0;
    Nl80211GenericCmdInfo info = someCommand();
    info.attributes = {{51, gsl::span<const uint8_t>(&byte, length)}};
    EXPECT_EQ(client_.sendGenericCommand(info), -1);
    EXPECT_THAT(kernel_.requests(), IsEmpty());
}

TEST_F(VendorCommand, NumbersAreSentInOrder) {
    Nl80211VendorCmdInfo info;
    info.vendorId = 0x001374;
    info.subcmd = 74;
    info.ifname = "lo";
    EXPECT_EQ(client_.sendVendorCommand(info), 0);

    ASSERT_EQ(kernel_.requests().size(), 1U);
    const NetlinkRequest request = kernel_.requests()[0];
    EXPECT_EQ(request.type, test::FakeNl80211::kFamily);
    EXPECT_EQ(request.flags, NLM_F_REQUEST | NLM_F_ACK);
    EXPECT_EQ(request.cmd, 103);
    EXPECT_EQ(request.version, 0);
    EXPECT_EQ(request.attributes,
              concat({attribute(3, number32(if_nametoindex("lo"))),
                      attribute(195, number32(0x001374)), attribute(196, number32(74))}));
}

TEST_F(VendorCommand, OtherOuiWithoutAttributesCarriesNoVendorData) {
    Nl80211VendorCmdInfo info = privateCommand("X");
    info.vendorId = 0x001374;
    EXPECT_EQ(client_.sendVendorCommand(info), 0);

    EXPECT_EQ(kernel_.requests()[0].attributes, vendorHeader("wlan0", 0x001374, 2));
}

TEST_F(VendorCommand, OtherOuiWithAttributesNestsTheseOnly) {
    Nl80211VendorCmdInfo info;
    info.vendorId = 0x001374;
    info.subcmd = 74;
    info.ifname = "p2p0";
    info.attributes = {{73, uint8_t{1}}, {74, uint8_t{1}}, {70, uint8_t{1}}};
    EXPECT_EQ(client_.sendVendorCommand(info), 0);

    const Bytes nested =
        concat({attribute(73, number8(1)), attribute(74, number8(1)), attribute(70, number8(1))});
    EXPECT_EQ(kernel_.requests()[0].attributes,
              concat({vendorHeader("p2p0", 0x001374, 74), attribute(kVendorData, nested)}));
}

TEST_F(VendorCommand, ShortPrivateCommandIsPaddedTo25CharactersAndTerminated) {
    EXPECT_EQ(client_.sendVendorCommand(privateCommand("X")), 0);

    const std::string padded = "ifname=wlan0 X" + std::string(11, ' ');
    ASSERT_EQ(padded.size(), 25U);
    EXPECT_EQ(kernel_.requests()[0].attributes,
              concat({vendorHeader("wlan0", 0x001018, 2), privateCommandNest(padded)}));
}

TEST_F(VendorCommand, PrivateCommandOf24CharactersIsPaddedWithOneBlank) {
    EXPECT_EQ(client_.sendVendorCommand(privateCommand("P2P_SET_NOA")), 0);

    EXPECT_EQ(kernel_.requests()[0].attributes,
              concat({vendorHeader("wlan0", 0x001018, 2),
                      privateCommandNest("ifname=wlan0 P2P_SET_NOA ")}));
}

TEST_F(VendorCommand, PrivateCommandOf25CharactersIsSentUnpadded) {
    EXPECT_EQ(client_.sendVendorCommand(privateCommand("P2P_ECSA 149")), 0);

    EXPECT_EQ(kernel_.requests()[0].attributes,
              concat({vendorHeader("wlan0", 0x001018, 2),
                      privateCommandNest("ifname=wlan0 P2P_ECSA 149")}));
}

TEST_F(VendorCommand, PrivateCommandOf30CharactersIsSentUnpadded) {
    const std::string text = "ifname=wlan0 P2P_SET_NOA 255 0";
    ASSERT_EQ(text.size(), 30U);
    EXPECT_EQ(client_.sendVendorCommand(privateCommand("P2P_SET_NOA 255 0")), 0);

    EXPECT_EQ(kernel_.requests()[0].attributes,
              concat({vendorHeader("wlan0", 0x001018, 2), privateCommandNest(text)}));
}

TEST_F(VendorCommand, PrivateCommandWithANulIsSentUpToIt) {
    using namespace std::string_literals;
    EXPECT_EQ(client_.sendVendorCommand(privateCommand("P2P_SET_NOA 255 0\0hidden"s)), 0);

    EXPECT_EQ(kernel_.requests()[0].attributes,
              concat({vendorHeader("wlan0", 0x001018, 2),
                      privateCommandNest("ifname=wlan0 P2P_SET_NOA 255 0")}));
}

TEST_F(VendorCommand, PrivateCommandWithAttributesCarriesTwoNestsTheTextFirst) {
    Nl80211VendorCmdInfo info = privateCommand("P2P_SET_NOA 255 0");
    info.attributes = {{1, uint8_t{7}}, {2, uint32_t{8}}};
    EXPECT_EQ(client_.sendVendorCommand(info), 0);

    EXPECT_EQ(kernel_.requests()[0].attributes,
              concat({vendorHeader("wlan0", 0x001018, 2),
                      privateCommandNest("ifname=wlan0 P2P_SET_NOA 255 0"),
                      attribute(kVendorData,
                                concat({attribute(1, number8(7)), attribute(2, number32(8))}))}));
}

/** A private command that leaves `left` bytes free in the one page that a message has. */
Nl80211VendorCmdInfo fillingCommand(size_t left) {
    const size_t headers = 20 + 3 * 8 + 2 * 4;  // message, three numbers, nest and text
    const size_t text = static_cast<size_t>(getpagesize()) - headers - left;
    return privateCommand(std::string(text - strlen("ifname=wlan0 ") - 1, 'x'));
}

TEST_F(VendorCommand, PrivateCommandThatFillsTheMessageIsSent) {
    EXPECT_EQ(client_.sendVendorCommand(fillingCommand(0)), 0);
    EXPECT_EQ(kernel_.requests()[0].bytes.size(), static_cast<size_t>(getpagesize()));
}

TEST_F(VendorCommand, SecondNestWithoutRoomFailsTheCommandUnsent) {
    Nl80211VendorCmdInfo info = fillingCommand(0);
    info.attributes = {{1, uint8_t{7}}};
    EXPECT_EQ(client_.sendVendorCommand(info), -1);

    EXPECT_THAT(errors(), ElementsAre("Nl80211Client: Failed to start nested netlink attribute."));
    EXPECT_THAT(kernel_.requests(), IsEmpty());
    EXPECT_TRUE(kernel_.waitUntilClosed());
}

TEST_F(VendorCommand, NestedAttributeWithoutRoomFailsTheCommandUnsent) {
    Nl80211VendorCmdInfo info = fillingCommand(4);
    info.attributes = {{1, uint8_t{7}}};
    EXPECT_EQ(client_.sendVendorCommand(info), -1);

    EXPECT_THAT(errors(), ElementsAre("Nl80211Client: Failed to add attribute 1 to message"));
    EXPECT_THAT(kernel_.requests(), IsEmpty());
}

TEST_F(VendorCommand, TextThatDoesNotFitFailsTheCommandUnsent) {
    for (const size_t length : {size_t{5000}, size_t{0x10000}, size_t{0x20008}}) {
        log_.clear();
        EXPECT_EQ(client_.sendVendorCommand(privateCommand(std::string(length, 'x'))), -1);
        EXPECT_THAT(errors(), ElementsAre("Nl80211Client: Failed to add attribute 197 to message"));
    }
    EXPECT_THAT(kernel_.requests(), IsEmpty());
}

}  // namespace

}  // namespace Ursa::OS::Wifi
