#include <linux/netlink.h>
#include <net/if.h>
#include <netlink/errno.h>

#include "tests/client/nl80211/LibnlFaults.h"
#include "tests/client/nl80211/Nl80211Fixture.h"

namespace Ursa::OS::Wifi {

namespace {

using test::attribute;
using test::concat;
using test::done;
using test::dumpEntry;
using test::number16;
using test::number32;
using test::number8;

constexpr int k40 = NL80211_RATE_INFO_40_MHZ_WIDTH;
constexpr int k80 = NL80211_RATE_INFO_80_MHZ_WIDTH;
constexpr int k80Plus80 = NL80211_RATE_INFO_80P80_MHZ_WIDTH;
constexpr int k160 = NL80211_RATE_INFO_160_MHZ_WIDTH;

/** A transmit rate with these width flags. */
Bytes rate(const std::vector<int>& flags) {
    std::vector<Bytes> attributes = {attribute(NL80211_RATE_INFO_BITRATE, number16(1560)),
                                     attribute(NL80211_RATE_INFO_BITRATE32, number32(1560))};
    for (const int flag : flags) {
        attributes.push_back(attribute(static_cast<uint16_t>(flag), {}));
    }
    return concat(attributes);
}

Bytes stationInfo(const Bytes& rateInfo) {
    return concat({attribute(NL80211_STA_INFO_SIGNAL, number8(0xce)),
                   attribute(NL80211_STA_INFO_TX_BITRATE | NLA_F_NESTED, rateInfo)});
}

Bytes stationEntry(const NetlinkRequest& request, const Bytes& info) {
    return dumpEntry(request, NL80211_CMD_NEW_STATION,
                     concat({attribute(NL80211_ATTR_IFINDEX, number32(0)),
                             attribute(NL80211_ATTR_STA_INFO | NLA_F_NESTED, info)}));
}

class StationBandwidth : public Nl80211Test {
  protected:
    using Packets = std::function<std::vector<Bytes>(const NetlinkRequest&)>;

    /** The bandwidth when the interface is wlan0 and the station dump is answered like this. */
    int bandwidthOf(const Packets& stations) {
        kernel_.answer([stations](const NetlinkRequest& request) {
            return request.cmd == NL80211_CMD_GET_STATION ? stations(request)
                                                          : interfaces({"wlan0"})(request);
        });
        return client_.getStaBandwidth();
    }

    int bandwidthOfRate(const std::vector<int>& flags) {
        return bandwidthOf([&](const NetlinkRequest& request) -> std::vector<Bytes> {
            return {stationEntry(request, stationInfo(rate(flags))), done(request)};
        });
    }

    /** The bandwidth when `entry` and a good 160 MHz station share a packet, in this order. */
    int bandwidthOfEntryAndGoodOne(const std::function<Bytes(const NetlinkRequest&)>& entry) {
        return bandwidthOf([&](const NetlinkRequest& request) -> std::vector<Bytes> {
            return {concat({entry(request), stationEntry(request, stationInfo(rate({k160})))}),
                    done(request)};
        });
    }
};

TEST_F(StationBandwidth, QueryIsADumpOfTheInterfacesStations) {
    EXPECT_EQ(bandwidthOfRate({}), 1);

    ASSERT_EQ(kernel_.requests().size(), 2U);
    EXPECT_EQ(kernel_.requests()[0].cmd, 5);
    const NetlinkRequest request = kernel_.requests()[1];
    EXPECT_EQ(request.type, test::FakeNl80211::kFamily);
    EXPECT_EQ(request.flags, NLM_F_REQUEST | NLM_F_ACK | NLM_F_DUMP);
    EXPECT_EQ(request.cmd, 17);
    EXPECT_EQ(request.version, 0);
    EXPECT_EQ(request.attributes, attribute(3, number32(if_nametoindex("wlan0"))));
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(StationBandwidth, WidthFlagOfTheRateDecidesTheCode) {
    EXPECT_EQ(bandwidthOfRate({}), 1);
    EXPECT_EQ(bandwidthOfRate({k40}), 2);
    EXPECT_EQ(bandwidthOfRate({k80}), 3);
    EXPECT_EQ(bandwidthOfRate({k80Plus80}), 4);
    EXPECT_EQ(bandwidthOfRate({k160}), 5);
}

TEST_F(StationBandwidth, RateWith80And40MhzFlagsIs3) {
    EXPECT_EQ(bandwidthOfRate({k80, k40}), 3);
    EXPECT_EQ(bandwidthOfRate({k40, k80}), 3);
}

TEST_F(StationBandwidth, WidestOfSeveralFlagsWins) {
    EXPECT_EQ(bandwidthOfRate({k40, k80, k80Plus80}), 4);
    EXPECT_EQ(bandwidthOfRate({k40, k80, k80Plus80, k160}), 5);
}

TEST_F(StationBandwidth, NoStationIsZeroAndNotLogged) {
    EXPECT_EQ(bandwidthOf([](const NetlinkRequest& request) -> std::vector<Bytes> {
                  return {done(request)};
              }),
              0);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(StationBandwidth, MissingStationInterfaceIsZeroAndLogged) {
    kernel_.answer(interfaces({"p2p0"}));
    EXPECT_EQ(client_.getStaBandwidth(), 0);
    EXPECT_THAT(errors(), ElementsAre("Nl80211Client: STA interface name not available"));
    EXPECT_EQ(kernel_.requests().size(), 1U);
}

TEST_F(StationBandwidth, RefusedDumpIsZeroAndLogged) {
    EXPECT_EQ(bandwidthOf([](const NetlinkRequest& request) -> std::vector<Bytes> {
                  return {test::error(request, -ENODEV)};
              }),
              0);
    EXPECT_THAT(errors(), ElementsAre("Nl80211Client: nl80211 response has error code -19"));
}

TEST_F(StationBandwidth, DumpRefusedAtItsEndIsZeroAndLogsTheCode) {
    EXPECT_EQ(bandwidthOf([](const NetlinkRequest& request) -> std::vector<Bytes> {
                  return {done(request, -ENODEV)};
              }),
              0);
    EXPECT_THAT(errors(), ElementsAre("Nl80211Client: nl80211 dump ended with error code -19"));
}

TEST_F(StationBandwidth, LastOfSeveralStationsWins) {
    EXPECT_EQ(bandwidthOf([](const NetlinkRequest& request) -> std::vector<Bytes> {
                  return {stationEntry(request, stationInfo(rate({k160}))),
                          stationEntry(request, stationInfo(rate({k40}))), done(request)};
              }),
              2);
}

TEST_F(StationBandwidth, ShortMessageIsZeroAndDropsTheRestOfThePacket) {
    EXPECT_EQ(bandwidthOfEntryAndGoodOne([](const NetlinkRequest& request) {
                  return test::message(request, request.type, NLM_F_MULTI, {});
              }),
              0);
    EXPECT_THAT(errors(), ElementsAre("Nl80211Client: Error parsing netlink response: " +
                                      std::to_string(-NLE_MSG_TOOSHORT)));
}

TEST_F(StationBandwidth, MissingStationInfoIsZeroAndDropsTheRestOfThePacket) {
    EXPECT_EQ(bandwidthOfEntryAndGoodOne([](const NetlinkRequest& request) {
                  return dumpEntry(request, NL80211_CMD_NEW_STATION,
                                   attribute(NL80211_ATTR_IFINDEX, number32(1)));
              }),
              0);
    EXPECT_THAT(errors(), ElementsAre("Nl80211Client: No STA info in netlink response"));
}

TEST_F(StationBandwidth, BrokenStationInfoIsZeroAndDropsTheRestOfThePacket) {
    EXPECT_EQ(bandwidthOfEntryAndGoodOne([](const NetlinkRequest& request) {
                  return stationEntry(
                      request, concat({attribute(NL80211_STA_INFO_RX_BYTES, number16(1)),
                                       attribute(NL80211_STA_INFO_TX_BITRATE, rate({k80}))}));
              }),
              0);
    EXPECT_THAT(errors(),
                ElementsAre("Nl80211Client: Failed to parse STA info in netlink response"));
}

TEST_F(StationBandwidth, MissingRateIsZeroAndDropsTheRestOfThePacket) {
    EXPECT_EQ(bandwidthOfEntryAndGoodOne([](const NetlinkRequest& request) {
                  return stationEntry(request, attribute(NL80211_STA_INFO_SIGNAL, number8(0xce)));
              }),
              0);
    EXPECT_THAT(errors(), ElementsAre("Nl80211Client: No NL80211_STA_INFO_TX_BITRATE"));
}

TEST_F(StationBandwidth, RateCutShortIsZero) {
    EXPECT_EQ(bandwidthOf([](const NetlinkRequest& request) -> std::vector<Bytes> {
                  Bytes cut = attribute(NL80211_STA_INFO_TX_BITRATE, rate({k80}));
                  cut.resize(12);
                  return {stationEntry(request, cut), done(request)};
              }),
              0);
    EXPECT_THAT(errors(), ElementsAre("Nl80211Client: No NL80211_STA_INFO_TX_BITRATE"));
}

TEST_F(StationBandwidth, BrokenRateIsZero) {
    EXPECT_EQ(bandwidthOf([](const NetlinkRequest& request) -> std::vector<Bytes> {
                  return {stationEntry(request, stationInfo(attribute(NL80211_RATE_INFO_BITRATE32,
                                                                      number16(1)))),
                          done(request)};
              }),
              0);
    EXPECT_THAT(errors(),
                ElementsAre("Nl80211Client: Failed to parse bit rate info in netlink response"));
}

TEST_F(StationBandwidth, StationBehindABrokenRateIsRead) {
    EXPECT_EQ(bandwidthOfEntryAndGoodOne([](const NetlinkRequest& request) {
                  return stationEntry(
                      request, stationInfo(attribute(NL80211_RATE_INFO_BITRATE, number8(1))));
              }),
              5);
    EXPECT_THAT(errors(),
                ElementsAre("Nl80211Client: Failed to parse bit rate info in netlink response"));
}

TEST_F(StationBandwidth, BrokenStationBehindAGoodOneIsZero) {
    EXPECT_EQ(bandwidthOf([](const NetlinkRequest& request) -> std::vector<Bytes> {
                  return {stationEntry(request, stationInfo(rate({k80}))),
                          stationEntry(request, {}), done(request)};
              }),
              0);
}

TEST_F(StationBandwidth, IndexThatDoesNotFitIsZeroAndLogged) {
    kernel_.answer(interfaces({"wlan0"}));
    EXPECT_STREQ(client_.getNetInterfaceName(NetInterfaceType::STA), "wlan0");
    test::failNext(test::LibnlCall::PutU32);
    EXPECT_EQ(client_.getStaBandwidth(), 0);
    EXPECT_THAT(errors(), ElementsAre("Nl80211Client: Failed to add interface index to message"));
    EXPECT_TRUE(kernel_.waitUntilClosed());
}

}  // namespace

}  // namespace Ursa::OS::Wifi
