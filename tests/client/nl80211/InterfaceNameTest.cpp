#include <atomic>
#include <thread>

#include <linux/netlink.h>

#include "tests/client/nl80211/Nl80211Fixture.h"

namespace Ursa::OS::Wifi {

namespace {

using test::attribute;
using test::concat;
using test::done;
using test::dumpEntry;
using test::text;

class InterfaceName : public Nl80211Test {
  protected:
    const char* sta() { return client_.getNetInterfaceName(NetInterfaceType::STA); }
    const char* p2p() { return client_.getNetInterfaceName(NetInterfaceType::P2P); }
};

TEST_F(InterfaceName, QueryIsADumpWithoutAttributes) {
    kernel_.answer(interfaces({"wlan0"}));
    EXPECT_STREQ(sta(), "wlan0");

    ASSERT_EQ(kernel_.requests().size(), 1U);
    const NetlinkRequest request = kernel_.requests()[0];
    EXPECT_EQ(request.type, test::FakeNl80211::kFamily);
    EXPECT_EQ(request.flags, NLM_F_REQUEST | NLM_F_ACK | NLM_F_DUMP);
    EXPECT_EQ(request.cmd, 5);
    EXPECT_EQ(request.version, 0);
    EXPECT_THAT(request.attributes, IsEmpty());
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(InterfaceName, Wlan1MatchesTheStation) {
    kernel_.answer(interfaces({"eth0", "p2p0", "wlan1"}));
    EXPECT_STREQ(sta(), "wlan1");
}

TEST_F(InterfaceName, P2pWlan0Minus3MatchesP2p) {
    kernel_.answer(interfaces({"wlan0", "p2p-wlan0-3"}));
    EXPECT_STREQ(p2p(), "p2p-wlan0-3");
}

TEST_F(InterfaceName, P2p0MatchesP2p) {
    kernel_.answer(interfaces({"wlan0", "p2p0"}));
    EXPECT_STREQ(p2p(), "p2p0");
}

TEST_F(InterfaceName, NameOf20CharactersIsCutTo15) {
    kernel_.answer(interfaces({"wlan0123456789abcdef"}));
    EXPECT_STREQ(sta(), "wlan0123456789a");
}

TEST_F(InterfaceName, LastMatchOfTheDumpWins) {
    kernel_.answer([](const NetlinkRequest& request) -> std::vector<Bytes> {
        return {concat({interfaceEntry(request, "wlan0"), interfaceEntry(request, "wlan2")}),
                concat({interfaceEntry(request, "wlan1"), interfaceEntry(request, "p2p0")}),
                done(request)};
    });
    EXPECT_STREQ(sta(), "wlan1");
}

TEST_F(InterfaceName, StationNameOnceFoundIsNotQueriedAgain) {
    kernel_.answer(interfaces({"wlan0"}));
    const char* first = sta();
    kernel_.answer(interfaces({"wlan1"}));
    EXPECT_EQ(sta(), first);
    EXPECT_STREQ(first, "wlan0");
    EXPECT_EQ(kernel_.connections(), 1);
}

TEST_F(InterfaceName, StationNameIsQueriedUntilItIsFound) {
    kernel_.answer(interfaces({}));
    EXPECT_EQ(sta(), nullptr);
    kernel_.answer(interfaces({"wlan0"}));
    EXPECT_STREQ(sta(), "wlan0");
}

TEST_F(InterfaceName, P2pNameIsQueriedAtEachCall) {
    kernel_.answer(interfaces({"p2p-wlan0-0"}));
    const char* first = p2p();
    EXPECT_STREQ(first, "p2p-wlan0-0");
    kernel_.answer(interfaces({"p2p-wlan0-10"}));
    EXPECT_STREQ(p2p(), "p2p-wlan0-10");
    kernel_.answer(interfaces({"p2p0"}));
    EXPECT_STREQ(p2p(), "p2p0");
    EXPECT_STREQ(first, "p2p-wlan0-0") << "a text that was given out does not change";
    EXPECT_EQ(kernel_.requests().size(), 3U);
}

TEST_F(InterfaceName, P2pNameOfAGoneInterfaceIsStillReturned) {
    kernel_.answer(interfaces({"wlan0", "p2p-wlan0-0"}));
    EXPECT_STREQ(p2p(), "p2p-wlan0-0");
    kernel_.answer(interfaces({"wlan0"}));
    EXPECT_STREQ(p2p(), "p2p-wlan0-0");
}

TEST_F(InterfaceName, NameBeyondTheCapacityIsStillReturned) {
    std::atomic<size_t> next{0};
    kernel_.answer([&](const NetlinkRequest& request) {
        return interfaces({"wlan0", "p2p" + std::to_string(next)})(request);
    });
    const char* first = p2p();
    for (; next < InterfaceNames::kCapacity; ++next) {
        ASSERT_NE(p2p(), nullptr);
    }
    const char* beyond = p2p();
    EXPECT_STREQ(beyond, "p2p10000");
    const char* station = sta();
    std::thread([&] {
        ++next;
        EXPECT_STREQ(p2p(), "p2p10001");
    }).join();
    EXPECT_STREQ(beyond, "p2p10000") << "another thread's query leaves this one's text alone";
    kernel_.answer(interfaces({}));
    EXPECT_STREQ(p2p(), "p2p10001") << "of the interface that has gone";
    EXPECT_STREQ(station, "wlan0") << "the station's is kept all the same";
    EXPECT_EQ(sta(), station);
    kernel_.answer(interfaces({"p2p0"}));
    EXPECT_EQ(p2p(), first) << "a name that is kept";
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(InterfaceName, NoMatchSoFarIsNullAndNotLogged) {
    kernel_.answer(interfaces({"eth0", "wla", "p2"}));
    EXPECT_EQ(sta(), nullptr);
    EXPECT_EQ(p2p(), nullptr);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(InterfaceName, RefusedDumpIsNullThoughAnEarlierOneFoundAName) {
    kernel_.answer(interfaces({"p2p0"}));
    EXPECT_STREQ(p2p(), "p2p0");
    kernel_.answer([](const NetlinkRequest& request) -> std::vector<Bytes> {
        return {test::error(request, -EBUSY)};
    });
    EXPECT_EQ(p2p(), nullptr);
    EXPECT_THAT(errors(), ElementsAre("Nl80211Client: nl80211 response has error code -16"));
}

TEST_F(InterfaceName, DumpRefusedAtItsEndKeepsTheResultAndLogsTheCode) {
    kernel_.answer([](const NetlinkRequest& request) -> std::vector<Bytes> {
        return {done(request, -ENODEV)};
    });
    EXPECT_EQ(p2p(), nullptr);
    EXPECT_THAT(errors(), ElementsAre("Nl80211Client: nl80211 dump ended with error code -19"));

    log_.clear();
    kernel_.answer([](const NetlinkRequest& request) -> std::vector<Bytes> {
        return {interfaceEntry(request, "p2p0"), done(request, -EINTR)};
    });
    EXPECT_STREQ(p2p(), "p2p0") << "what came before the end counts";
    EXPECT_THAT(log_.messages(ANDROID_LOG_ERROR),
                ElementsAre("Nl80211Client: nl80211 dump ended with error code -4"));
}

TEST_F(InterfaceName, DumpThatEndsWithoutACodeIsNoError) {
    kernel_.answer([](const NetlinkRequest& request) -> std::vector<Bytes> {
        return {interfaceEntry(request, "p2p0"),
                test::message(request, NLMSG_DONE, NLM_F_MULTI, {})};
    });
    EXPECT_STREQ(p2p(), "p2p0");
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(InterfaceName, UnknownInterfaceTypeIsNullAndNotQueried) {
    EXPECT_EQ(client_.getNetInterfaceName(static_cast<NetInterfaceType>(2)), nullptr);
    EXPECT_EQ(client_.getNetInterfaceName(static_cast<NetInterfaceType>(-1)), nullptr);
    EXPECT_EQ(kernel_.connections(), 0);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

/** The answer of a dump with one entry that has the attributes `attributes`. */
auto entry(const Bytes& attributes) {
    return [attributes](const NetlinkRequest& request) -> std::vector<Bytes> {
        return {dumpEntry(request, NL80211_CMD_NEW_INTERFACE, attributes), done(request)};
    };
}

TEST_F(InterfaceName, UnterminatedNameEndsWithItsAttribute) {
    // Eight characters leave no padding that could end the text.
    kernel_.answer(entry(concat({attribute(NL80211_ATTR_IFNAME, text("wlan0123")),
                                 attribute(NL80211_ATTR_MAC, text("wwwwww"))})));
    EXPECT_STREQ(sta(), "wlan0123");
}

TEST_F(InterfaceName, NameWithANulInsideEndsThere) {
    kernel_.answer(entry(attribute(NL80211_ATTR_IFNAME, {'w', 'l', 'a', 'n', '7', 0, 'x', 'y'})));
    EXPECT_STREQ(sta(), "wlan7");
}

TEST_F(InterfaceName, NameThatEqualsThePrefixMatches) {
    kernel_.answer(entry(attribute(NL80211_ATTR_IFNAME, text("wlan"))));
    EXPECT_STREQ(sta(), "wlan");
}

TEST_F(InterfaceName, NameShorterThanThePrefixDoesNotMatch) {
    // The bytes that would complete the prefix belong to the next attribute's padding.
    kernel_.answer(entry(concat({attribute(NL80211_ATTR_IFNAME, text("wla")),
                                 attribute(NL80211_ATTR_MAC, text("nnnnnn"))})));
    EXPECT_EQ(sta(), nullptr);
}

TEST_F(InterfaceName, EmptyNameDoesNotMatch) {
    kernel_.answer(entry(attribute(NL80211_ATTR_IFNAME, {})));
    EXPECT_EQ(sta(), nullptr);
}

TEST_F(InterfaceName, AttributeLongerThanTheMessageIsNotRead) {
    Bytes cut = attribute(NL80211_ATTR_IFNAME, text("wlan0abc"));
    cut[0] = 200;  // its length
    kernel_.answer(entry(cut));
    EXPECT_EQ(sta(), nullptr);
}

TEST_F(InterfaceName, NameBehindUnknownAttributesIsRead) {
    kernel_.answer(entry(
        concat({attribute(302, text("wlan9")), attribute(0x3fff, {}),
                attribute(NL80211_ATTR_IFNAME, text("wlan0")), attribute(0, text("wlan8"))})));
    EXPECT_STREQ(sta(), "wlan0");
}

TEST_F(InterfaceName, EntriesWithoutANameOrHeaderAreSkipped) {
    kernel_.answer([](const NetlinkRequest& request) -> std::vector<Bytes> {
        return {concat({interfaceEntry(request, "wlan0"),
                        test::message(request, request.type, NLM_F_MULTI, {}),
                        dumpEntry(request, NL80211_CMD_NEW_INTERFACE, {})}),
                done(request)};
    });
    EXPECT_STREQ(sta(), "wlan0");
}

TEST_F(InterfaceName, NameAtTheEndOfTheLargestPacketIsFound) {
    kernel_.answer([](const NetlinkRequest& request) -> std::vector<Bytes> {
        std::vector<Bytes> entries(1023, interfaceEntry(request, "eth0"));
        entries.push_back(interfaceEntry(request, "wlan0"));
        const Bytes packet = concat(entries);
        EXPECT_EQ(packet.size(), 32768U);
        return {packet, done(request)};
    });
    EXPECT_STREQ(sta(), "wlan0");
}

TEST_F(InterfaceName, QueriesOfManyThreadsRunOneAtATime) {
    std::atomic<int> exchanges = 0;
    kernel_.answer([&](const NetlinkRequest& request) -> std::vector<Bytes> {
        // Were two exchanges under way, two families would have been asked for by now.
        EXPECT_EQ(kernel_.familyRequests(), ++exchanges);
        return {concat({interfaceEntry(request, "wlan0"), interfaceEntry(request, "p2p0")}),
                done(request)};
    });
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([this] {
            for (int call = 0; call < 25; ++call) {
                EXPECT_STREQ(p2p(), "p2p0");
                EXPECT_STREQ(sta(), "wlan0");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(exchanges, 101) << "100 for P2P, one for STA";
    EXPECT_TRUE(kernel_.waitUntilClosed());
}

}  // namespace

}  // namespace Ursa::OS::Wifi
