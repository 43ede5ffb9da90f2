#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <limits>
#include <thread>
#include <utility>

#include <linux/netlink.h>
#include <linux/nl80211.h>
#include <net/if.h>

#include "managers/ScsManager.h"
#include "tests/support/ManagerTest.h"

namespace Ursa::OS::Wifi {

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

using testing::SizeIs;

constexpr char kStatus[] =
    "bssid=02:00:00:00:01:0a\nfreq=5180\nssid=net\nid=0\nwpa_state=COMPLETED\n"
    "ip_address=192.168.49.23\naddress=0a:1b:2c:3d:4e:5f\n";

ScsProfile makeProfile() {
    ScsProfile profile;
    profile.localIp = "10.9.8.7";
    profile.localPort = 0x1234;
    profile.remoteIp = "192.168.49.1";
    profile.remotePort = 50000;  // 0xC350
    profile.dscp = 46;
    profile.protocol = 17;
    return profile;
}

// The frames of makeProfile() and kStatus, written down from the standard's layouts.

/** Up to the SCSID; the descriptor's length is 26 to add, 2 to remove. */
test::Bytes start(uint8_t descriptorLength) {
    return {0xD0, 0x00,  // action frame
            0x00, 0x00,  // duration
            0x02, 0x00,
            0x00, 0x00,
            0x01, 0x0a,  // to: the access point
            0x0a, 0x1b,
            0x2c, 0x3d,
            0x4e, 0x5f,  // from: the station
            0x02, 0x00,
            0x00, 0x00,
            0x01, 0x0a,  // BSSID
            0x00, 0x00,  // sequence control
            0x13, 0x00,
            0xFB,                    // Robust AV Streaming, SCS Request, dialog token
            0xB9, descriptorLength,  // SCS Descriptor
            0x0A};                   // SCSID
}

const test::Bytes kAddEnd = {
    0x00,                    // add
    0xB8, 0x01, 0x04,        // Intra-Access Category Priority: user priority 4
    0x0E, 0x13,              // TCLAS, 19 bytes
    0x04, 0x04, 0x5F,        // user priority, classifier type, mask
    0x04,                    // IPv4
    0xC0, 0xA8, 0x31, 0x01,  // source 192.168.49.1
    0xC0, 0xA8, 0x31, 0x17,  // destination 192.168.49.23
    0xC3, 0x50,              // source port 50000
    0x12, 0x34,              // destination port 4660
    0x2E, 0x11, 0x00,        // DSCP 46, UDP, reserved
};

test::Bytes addFrame() { return test::concat({start(26), kAddEnd}); }
test::Bytes removeFrame() { return test::concat({start(2), {0x01}}); }

/** The add frame with other bytes from `offset` on. */
test::Bytes addFrameWith(size_t offset, const test::Bytes& bytes) {
    test::Bytes frame = addFrame();
    for (const uint8_t byte : bytes) {
        frame.at(offset++) = byte;
    }
    return frame;
}

class ScsManagerTest : public ManagerTest {
  protected:
    ScsManagerTest() { sta_.answer("STATUS", kStatus); }

    std::vector<test::NetlinkRequest> requests() const {
        return nl80211_.requests(NL80211_CMD_FRAME);
    }
    /** Every frame so far. */
    std::vector<test::Bytes> frames() const {
        std::vector<test::Bytes> found;
        for (const auto& request : requests()) {
            const auto attributes = test::parseAttributes(request.attributes);
            found.push_back(attributes.size() == 3 ? attributes[2].payload : test::Bytes());
        }
        return found;
    }
    int set() {
        ScsProfile profile = makeProfile();
        return manager_.set(profile);
    }
    void disconnect() {
        deliver(NetInterfaceType::STA, "CTRL-EVENT-DISCONNECTED bssid=02:00:00:00:01:0a reason=3");
    }

    /** set() with this reply to STATUS fails with these lines and keeps nothing. */
    void expectUnsent(const std::string& status, const std::string& warning) {
        sta_.answer("STATUS", status);
        log_.clear();
        EXPECT_EQ(set(), -2) << status;
        EXPECT_THAT(warnings(), ElementsAre(warning)) << status;
        EXPECT_THAT(errors(), ElementsAre("ScsManager: Failed to construct request frame.",
                                          "ScsManager: Failed to construct and send request "
                                          "frame."));
        EXPECT_FALSE(manager_.clear(0));
        EXPECT_THAT(warnings(), Contains("ScsManager: ScsProfileId 0 not found."));
        EXPECT_THAT(requests(), IsEmpty());
    }

    ScsManager manager_{client_};
};

// Frames

TEST_F(ScsManagerTest, AProfileIsRequestedWithAFrameOf55Bytes) {
    ASSERT_EQ(addFrame().size(), 55U);
    EXPECT_EQ(set(), 0);
    EXPECT_THAT(frames(), ElementsAre(addFrame()));
    EXPECT_THAT(sta_.commands(), ElementsAre("STATUS"));
    EXPECT_THAT(debugs(), ElementsAre("ScsManager: set IP 192.168.49.23"));
    EXPECT_THAT(errors(), IsEmpty());
    EXPECT_THAT(warnings(), IsEmpty());
}

TEST_F(ScsManagerTest, AProfileIsClearedWithAFrameOf31Bytes) {
    ASSERT_EQ(removeFrame().size(), 31U);
    ASSERT_EQ(set(), 0);
    log_.clear();
    EXPECT_TRUE(manager_.clear(0));
    EXPECT_THAT(frames(), ElementsAre(addFrame(), removeFrame()));
    EXPECT_THAT(sta_.commands(), ElementsAre("STATUS", "STATUS"));
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ScsManagerTest, TheKernelIsHandedSubtypeAndFrameInThisOrderAndNothingElse) {
    EXPECT_EQ(set(), 0);
    ASSERT_THAT(requests(), SizeIs(1));
    EXPECT_EQ(requests()[0].cmd, 59);
    EXPECT_EQ(requests()[0].flags, NLM_F_REQUEST | NLM_F_ACK);
    EXPECT_EQ(
        requests()[0].attributes,
        test::concat({test::attribute(3, test::number32(if_nametoindex("wlan0"))),
                      test::attribute(41, test::number8(13)), test::attribute(51, addFrame())}));
}

TEST_F(ScsManagerTest, TheStationsOwnAddressReplacesTheProfilesInTheCallersRecord) {
    ScsProfile profile = makeProfile();
    EXPECT_EQ(manager_.set(profile), 0);
    EXPECT_EQ(profile.localIp, "192.168.49.23");
}

TEST_F(ScsManagerTest, WithoutAnIpAddressInTheStatusTheProfilesOwnIsUsed) {
    sta_.answer("STATUS", "bssid=02:00:00:00:01:0a\naddress=0a:1b:2c:3d:4e:5f\n");
    ScsProfile profile = makeProfile();
    EXPECT_EQ(manager_.set(profile), 0);
    EXPECT_EQ(profile.localIp, "10.9.8.7");
    EXPECT_THAT(frames(), ElementsAre(addFrameWith(44, {10, 9, 8, 7})));
    EXPECT_THAT(warnings(), ElementsAre("ScsManager: Cannot parse ip_address from wpa_supplicant "
                                        "STATUS reply."));
    EXPECT_THAT(debugs(), ElementsAre("ScsManager: set IP 10.9.8.7"));
}

TEST_F(ScsManagerTest, AnEmptyIpAddressInTheStatusIsTakenAsItIs) {
    sta_.answer("STATUS", "bssid=02:00:00:00:01:0a\naddress=0a:1b:2c:3d:4e:5f\nip_address=\n");
    ScsProfile profile = makeProfile();
    EXPECT_EQ(manager_.set(profile), 0);
    EXPECT_EQ(profile.localIp, "");
    EXPECT_THAT(frames(), ElementsAre(addFrameWith(44, {0, 0, 0, 0})));
    EXPECT_THAT(debugs(), ElementsAre("ScsManager: set IP 0.0.0.0"));
}

TEST_F(ScsManagerTest, AddressesThatDoNotParseAreSentAsZeros) {
    for (const char* address : {"", "headset", "192.168.49", "192.168.49.256", "192.168.49.1 ",
                                "fe80::1", "1.2.3.4.5", "0x1.2.3.4"}) {
        ScsProfile profile = makeProfile();
        profile.remoteIp = address;
        EXPECT_GE(manager_.set(profile), 0);
        EXPECT_EQ(frames().back(), addFrameWith(40, {0, 0, 0, 0})) << address;
    }
}

TEST_F(ScsManagerTest, PortsOf65536AndMoreAreSentAsZero) {
    const struct {
        uint32_t port;
        test::Bytes bytes;
    } cases[] = {{0, {0, 0}},           {1, {0, 1}},          {256, {1, 0}},
                 {65535, {0xFF, 0xFF}}, {65536, {0, 0}},      {65537, {0, 0}},
                 {70000, {0, 0}},       {0x12340050, {0, 0}}, {0xFFFFFFFF, {0, 0}}};
    for (const auto& [port, bytes] : cases) {
        ScsProfile profile = makeProfile();
        profile.remotePort = port;
        EXPECT_GE(manager_.set(profile), 0);
        EXPECT_EQ(frames().back(), addFrameWith(48, bytes)) << port;

        profile = makeProfile();
        profile.localPort = port;
        EXPECT_GE(manager_.set(profile), 0);
        EXPECT_EQ(frames().back(), addFrameWith(50, bytes)) << port;
    }
}

TEST_F(ScsManagerTest, DscpAndProtocolAreCopiedWhole) {
    ScsProfile profile = makeProfile();
    profile.dscp = 255;
    profile.protocol = 254;
    profile.reserved = 0x55555555;
    EXPECT_EQ(manager_.set(profile), 0);
    EXPECT_THAT(frames(), ElementsAre(addFrameWith(52, {255, 254, 0})));
}

TEST_F(ScsManagerTest, TwoProfilesShareTheScsIdSoThatClearingEitherSendsTheSameFrame) {
    EXPECT_EQ(set(), 0);
    EXPECT_EQ(set(), 1);
    EXPECT_TRUE(manager_.clear(1));
    EXPECT_TRUE(manager_.clear(0));
    EXPECT_THAT(frames(), ElementsAre(addFrame(), addFrame(), removeFrame(), removeFrame()));
}

TEST_F(ScsManagerTest, AFrameBuiltByItselfHasOnlyTheFieldsOfLinkAndProfile) {
    requestFrame frame;
    ScsProfile profile = makeProfile();
    EXPECT_TRUE(manager_.constructRequestFrameV4(&profile, frame));
    EXPECT_EQ(frame.size, 0U);
    EXPECT_EQ(frame.bytes[0], 0);
    EXPECT_EQ(frame.bytes[4], 0x02);
    EXPECT_EQ(frame.bytes[36], 0) << "a copy of the priority, which nobody has set";
    EXPECT_EQ(frame.bytes[52], 46);
    EXPECT_THAT(requests(), IsEmpty());
}

TEST_F(ScsManagerTest, AFrameIsSentWithTheSizeThatItStates) {
    requestFrame frame;
    frame.size = 3;
    frame.bytes = {1, 2, 3, 4};
    EXPECT_TRUE(manager_.sendRequestFrameToDriver(frame));
    EXPECT_THAT(frames(), ElementsAre(test::Bytes{1, 2, 3}));
}

TEST_F(ScsManagerTest, AFrameWithASizeAboveTheLargestIsNotSent) {
    requestFrame frame;
    for (const uint64_t size : {uint64_t{requestFrame::kMaxSize} + 1, uint64_t{1} << 32,
                                std::numeric_limits<uint64_t>::max() - 1}) {
        frame.size = size;
        log_.clear();
        EXPECT_FALSE(manager_.sendRequestFrameToDriver(frame));
        EXPECT_THAT(errors(), ElementsAre("ScsManager: A frame of " + std::to_string(size) +
                                          " bytes is too long."));
    }
    EXPECT_THAT(requests(), IsEmpty());
    frame.size = requestFrame::kMaxSize;
    EXPECT_TRUE(manager_.sendRequestFrameToDriver(frame));
}

// Ids

TEST_F(ScsManagerTest, IdsGoUpAndOnlyTheLargestIsGivenOutAgain) {
    EXPECT_EQ(set(), 0);
    EXPECT_EQ(set(), 1);
    EXPECT_TRUE(manager_.clear(0));
    EXPECT_EQ(set(), 2);
    EXPECT_TRUE(manager_.clear(2));
    EXPECT_EQ(set(), 2);
    EXPECT_TRUE(manager_.clear(2));
    EXPECT_TRUE(manager_.clear(1));
    EXPECT_EQ(set(), 0);
}

TEST_F(ScsManagerTest, AnUnknownIdIsNotCleared) {
    ASSERT_EQ(set(), 0);
    for (const int id :
         {7, -1, -2, 1, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
        log_.clear();
        EXPECT_FALSE(manager_.clear(id));
        EXPECT_THAT(warnings(),
                    ElementsAre("ScsManager: ScsProfileId " + std::to_string(id) + " not found."));
    }
    EXPECT_THAT(frames(), ElementsAre(addFrame()));
    EXPECT_THAT(sta_.commands(), ElementsAre("STATUS"));
}

TEST_F(ScsManagerTest, OnlyIpV4IsSupported) {
    const std::pair<uint32_t, const char*> cases[] = {
        {1, "V6"}, {2, "Unknown"}, {4, "Unknown"}, {4294967295, "Unknown"}};
    for (const auto& [version, name] : cases) {
        log_.clear();
        ScsProfile profile = makeProfile();
        profile.ipVersion = version;
        EXPECT_EQ(manager_.set(profile), -1);
        EXPECT_THAT(errors(), ElementsAre(std::string("ScsManager: IP version (") + name +
                                          ") is not supported."));
    }
    EXPECT_THAT(sta_.commands(), IsEmpty());
    EXPECT_EQ(set(), 0) << "nothing was kept";
}

// Failures

TEST_F(ScsManagerTest, WithoutAStatusNothingIsSentNorKept) {
    sta_.fail("STATUS");
    EXPECT_EQ(set(), -2);
    EXPECT_THAT(warnings(), Contains("ScsManager: Cannot send STATUS command to wpa_supplicant."));
    EXPECT_THAT(errors(), Contains("ScsManager: Failed to construct request frame."));
    EXPECT_THAT(errors(), Contains("ScsManager: Failed to construct and send request frame."));
    EXPECT_THAT(requests(), IsEmpty());
    EXPECT_FALSE(manager_.clear(0));
}

TEST_F(ScsManagerTest, AStatusWithoutBssidOrAddressSendsAndKeepsNothing) {
    // The same words for either.
    const std::string line = "ScsManager: Cannot parse bssid from wpa_supplicant STATUS reply.";
    expectUnsent("wpa_state=DISCONNECTED\naddress=0a:1b:2c:3d:4e:5f\n", line);
    expectUnsent("bssid=02:00:00:00:01:0a\nip_address=192.168.49.23\n", line);
    expectUnsent("p2p_device_address=0a:1b:2c:3d:4e:5f\nbssid=02:00:00:00:01:0a\n", line);
    expectUnsent("", line);
    expectUnsent("FAIL\n", line);
}

TEST_F(ScsManagerTest, InvalidAddressesInTheStatusSendAndKeepNothing) {
    for (const char* bssid :
         {"", "any", "02:00:00:00:01", "02:00:00:00:01:zz", "02-00-00-00-01-0a"}) {
        expectUnsent(std::string("bssid=") + bssid + "\naddress=0a:1b:2c:3d:4e:5f\n",
                     "ScsManager: Cannot convert bssid string to array.");
        expectUnsent(std::string("bssid=02:00:00:00:01:0a\naddress=") + bssid + "\n",
                     "ScsManager: Cannot convert device address string to array.");
    }
}

TEST_F(ScsManagerTest, AFrameThatTheKernelRefusesIsNotKept) {
    nl80211_.refuse(NL80211_CMD_FRAME, -ENETDOWN);
    EXPECT_EQ(set(), -2);
    EXPECT_THAT(errors(), ElementsAre("Nl80211Client: nl80211 response has error code -100",
                                      "ScsManager: Failed to send request frame via nl80211.",
                                      "ScsManager: Failed to construct and send request frame."));
    EXPECT_THAT(requests(), SizeIs(1)) << "nothing is retried";
    nl80211_.refuse(NL80211_CMD_FRAME, 0);
    EXPECT_EQ(set(), 0);
}

TEST_F(ScsManagerTest, WithoutTheStationsInterfaceNothingIsSent) {
    nl80211_.setInterfaces({"p2p0"});
    EXPECT_EQ(set(), -2);
    EXPECT_THAT(errors(), ElementsAre("ScsManager: Failed to send request frame via nl80211.",
                                      "ScsManager: Failed to construct and send request frame."));
    EXPECT_THAT(requests(), IsEmpty());
}

TEST_F(ScsManagerTest, AProfileThatCouldNotBeClearedStays) {
    ASSERT_EQ(set(), 0);
    log_.clear();
    nl80211_.refuse(NL80211_CMD_FRAME, -EBUSY);
    EXPECT_FALSE(manager_.clear(0));
    EXPECT_THAT(errors(), ElementsAre("Nl80211Client: nl80211 response has error code -16",
                                      "ScsManager: Failed to send request frame via nl80211.",
                                      "ScsManager: Failed to construct and send request frame."));
    nl80211_.refuse(NL80211_CMD_FRAME, 0);
    EXPECT_TRUE(manager_.clear(0));
    EXPECT_FALSE(manager_.clear(0));
}

/** Ends the process as a broken contract does, after printing what was logged. */
class ScsManagerDeathTest : public ScsManagerTest {
  protected:
    void sendEndless() {
        static const test::LogCapture* log;
        log = &log_;
        std::set_terminate([] {
            for (const auto& line : log->lines()) {
                fprintf(stderr, "logged %d %s: %s\n", line.priority, line.tag.c_str(),
                        line.message.c_str());
            }
            abort();
        });
        requestFrame frame;
        frame.size = std::numeric_limits<uint64_t>::max();
        manager_.sendRequestFrameToDriver(frame);
    }
};

TEST_F(ScsManagerDeathTest, AFrameOfTheLargestSizeAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::string text =
        "GSL Precondition failure at external/Microsoft-GSL/include/gsl/span: 372 "
        "`size != dynamic_extent`";
    EXPECT_EXIT(sendEndless(), testing::KilledBySignal(SIGABRT),
                testing::AllOf(testing::StartsWith(text + "\n"),
                               testing::HasSubstr("\nlogged 7 CorvidWifi: " + text + "\n")));
}

// Disconnection

TEST_F(ScsManagerTest, ADisconnectionForgetsEveryProfileWithoutAFrame) {
    ASSERT_EQ(set(), 0);
    ASSERT_EQ(set(), 1);
    log_.clear();
    disconnect();
    EXPECT_THAT(infos(), ElementsAre("ScsManager: STA event(DISCONNECTED bssid=02:00:00:00:01:0a "
                                     "reason=3)"));
    EXPECT_TRUE(composition_->ran("ScsManager.onStaDisconnected"));
    EXPECT_FALSE(manager_.clear(0));
    EXPECT_FALSE(manager_.clear(1));
    EXPECT_THAT(frames(), ElementsAre(addFrame(), addFrame()));
    EXPECT_EQ(set(), 0);
}

TEST_F(ScsManagerTest, ADisconnectionInTheMiddleOfAClearLeavesNothingToRemove) {
    ASSERT_EQ(set(), 0);
    // On the kernel's thread, while clear() waits for it.
    nl80211_.kernel().answer([this](const test::NetlinkRequest& request) {
        disconnect();
        return std::vector<test::Bytes>{test::ack(request)};
    });
    log_.clear();
    EXPECT_FALSE(manager_.clear(0));
    EXPECT_THAT(errors(), ElementsAre("ScsManager: Failed to de-allocate profile."));
    EXPECT_THAT(frames(), ElementsAre(addFrame(), removeFrame()));
}

TEST_F(ScsManagerTest, ADisconnectionInTheMiddleOfASetForgetsItsProfileToo) {
    ASSERT_EQ(set(), 0);  // and the station's name is known
    nl80211_.kernel().answer([this](const test::NetlinkRequest& request) {
        disconnect();
        return std::vector<test::Bytes>{test::ack(request)};
    });
    EXPECT_EQ(set(), 1);
    EXPECT_FALSE(manager_.clear(1));
    EXPECT_FALSE(manager_.clear(0));
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(ScsManagerTest, HasNothingToDump) {
    std::string text;
    EXPECT_FALSE(manager_.dumpInfo(text));
    EXPECT_EQ(text, "");
}

// The allocator

TEST(ResourceAllocator, AResourceExistsUntilItIsRemoved) {
    ResourceAllocator<std::string> allocator;
    std::string value = "x";
    EXPECT_FALSE(allocator.exist(0));
    EXPECT_FALSE(allocator.remove(0));
    EXPECT_EQ(allocator.add(value), 0);
    EXPECT_EQ(allocator.add(value), 1);
    EXPECT_TRUE(allocator.exist(0));
    EXPECT_TRUE(allocator.exist(1));
    EXPECT_FALSE(allocator.exist(2));
    EXPECT_FALSE(allocator.exist(-1));
    EXPECT_TRUE(allocator.remove(0));
    EXPECT_FALSE(allocator.remove(0));
    EXPECT_EQ(allocator.add(value), 2);
    allocator.removeAll();
    EXPECT_FALSE(allocator.exist(1));
    EXPECT_FALSE(allocator.exist(2));
    EXPECT_EQ(allocator.add(value), 0);
}

TEST(ResourceAllocator, IsUsedFromSeveralThreads) {
    ResourceAllocator<ScsProfile> allocator;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&allocator] {
            ScsProfile profile = makeProfile();
            for (int round = 0; round < 2000; ++round) {
                const int id = allocator.add(profile);
                EXPECT_GE(id, 0);
                allocator.exist(id);
                allocator.remove(id);
            }
        });
    }
    threads.emplace_back([&allocator] {
        for (int round = 0; round < 500; ++round) {
            allocator.removeAll();
            std::this_thread::yield();
        }
    });
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_FALSE(allocator.exist(0)) << "each thread has removed what it added";
}

TEST(ResourceAllocator, NoIdIsGivenOutTwiceAtATime) {
    ResourceAllocator<int> allocator;
    std::vector<std::vector<int>> ids(4);
    std::vector<std::thread> threads;
    for (auto& mine : ids) {
        threads.emplace_back([&allocator, &mine] {
            for (int value = 0; value < 500; ++value) {
                mine.push_back(allocator.add(value));
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    std::vector<int> all;
    for (const auto& mine : ids) {
        all.insert(all.end(), mine.begin(), mine.end());
    }
    std::sort(all.begin(), all.end());
    for (int id = 0; id < 2000; ++id) {
        ASSERT_EQ(all[static_cast<size_t>(id)], id);
    }
}

TEST_F(ScsManagerTest, CallsAndDisconnectionsAtOnceHarmNothing) {
    std::atomic<bool> stop{false};
    std::thread events([&] {
        while (!stop) {
            sta_.sendEvent("CTRL-EVENT-DISCONNECTED reason=3");
        }
    });
    for (int i = 0; i < 100; ++i) {
        const int id = set();
        EXPECT_GE(id, 0);
        manager_.clear(id);
    }
    stop = true;
    events.join();
    disconnect();
    EXPECT_EQ(set(), 0);
}

}  // namespace

}  // namespace Ursa::OS::Wifi
