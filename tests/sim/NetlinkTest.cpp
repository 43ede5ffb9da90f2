#include <array>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/nl80211.h>
#include <net/if.h>
#include <netlink/genl/ctrl.h>
#include <netlink/genl/genl.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>

#include "tests/sim/SimDriver.h"

using simtest::SimDriver;
using simtest::SimRecord;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

struct FreeSocket {
    void operator()(nl_sock* socket) const { nl_socket_free(socket); }
};
struct FreeMessage {
    void operator()(nl_msg* message) const { nlmsg_free(message); }
};
using Socket = std::unique_ptr<nl_sock, FreeSocket>;
using Message = std::unique_ptr<nl_msg, FreeMessage>;

/** The simulator's kernel as libnl sees it through the redirect. */
class NetlinkTest : public testing::Test {
  protected:
    NetlinkTest() {
        setenv("CORVID_WIFI_ROOT", sim_.root().c_str(), 1);
        socket_.reset(nl_socket_alloc());
        connected_ = genl_connect(socket_.get());
    }
    ~NetlinkTest() override { unsetenv("CORVID_WIFI_ROOT"); }

    void play(const std::string& line) { EXPECT_EQ(sim_.play(line), "") << line; }

    int family() { return genl_ctrl_resolve(socket_.get(), "nl80211"); }

    Message message(uint8_t command, int flags = 0) {
        Message created(nlmsg_alloc());
        genlmsg_put(created.get(), NL_AUTO_PORT, NL_AUTO_SEQ, family(), 0, flags, command, 0);
        nla_put_u32(created.get(), NL80211_ATTR_IFINDEX, if_nametoindex("wlan0"));
        return created;
    }

    /** Sends and reads all answers: 0, or the error. Valid messages' attributes go to `onValid`. */
    int send(const Message& request) {
        EXPECT_GE(nl_send_auto_complete(socket_.get(), request.get()), 0);
        nl_cb* callbacks = nl_cb_alloc(NL_CB_DEFAULT);
        int status = 1;
        nl_cb_err(
            callbacks, NL_CB_CUSTOM,
            [](sockaddr_nl*, nlmsgerr* error, void* to) -> int {
                *static_cast<int*>(to) = error->error;
                return NL_STOP;
            },
            &status);
        const auto done = [](nl_msg*, void* to) -> int {
            *static_cast<int*>(to) = 0;
            return NL_STOP;
        };
        nl_cb_set(callbacks, NL_CB_FINISH, NL_CB_CUSTOM, done, &status);
        nl_cb_set(callbacks, NL_CB_ACK, NL_CB_CUSTOM, done, &status);
        nl_cb_set(
            callbacks, NL_CB_VALID, NL_CB_CUSTOM,
            [](nl_msg* valid, void* to) -> int {
                static_cast<NetlinkTest*>(to)->onValid(valid);
                return NL_SKIP;
            },
            this);
        while (status > 0) {
            if (const int result = nl_recvmsgs(socket_.get(), callbacks);
                result < 0 && status > 0) {
                status = -1000 + result;
            }
        }
        nl_cb_put(callbacks);
        return status;
    }

    void onValid(nl_msg* valid) {
        std::array<nlattr*, NL80211_ATTR_MAX + 1> attributes{};
        if (genlmsg_parse(nlmsg_hdr(valid), 0, attributes.data(), NL80211_ATTR_MAX, nullptr) != 0) {
            return;
        }
        if (attributes[NL80211_ATTR_IFNAME] != nullptr) {
            interfaces_.emplace_back(nla_get_string(attributes[NL80211_ATTR_IFNAME]));
        }
        cookie_ = cookie_ || attributes[NL80211_ATTR_COOKIE] != nullptr;
        if (attributes[NL80211_ATTR_STA_INFO] == nullptr) {
            return;
        }
        std::array<nlattr*, NL80211_STA_INFO_MAX + 1> info{};
        nla_parse_nested(info.data(), NL80211_STA_INFO_MAX, attributes[NL80211_ATTR_STA_INFO],
                         nullptr);
        if (info[NL80211_STA_INFO_TX_BITRATE] == nullptr) {
            return;
        }
        std::array<nlattr*, NL80211_RATE_INFO_MAX + 1> rate{};
        nla_parse_nested(rate.data(), NL80211_RATE_INFO_MAX, info[NL80211_STA_INFO_TX_BITRATE],
                         nullptr);
        for (const int flag :
             {NL80211_RATE_INFO_40_MHZ_WIDTH, NL80211_RATE_INFO_80_MHZ_WIDTH,
              NL80211_RATE_INFO_80P80_MHZ_WIDTH, NL80211_RATE_INFO_160_MHZ_WIDTH}) {
            if (rate[static_cast<size_t>(flag)] != nullptr) {
                widths_.push_back(flag);
            }
        }
        ++stations_;
    }

    int dumpInterfaces() {
        interfaces_.clear();
        return send(message(NL80211_CMD_GET_INTERFACE, NLM_F_DUMP));
    }

    int dumpStations() {
        stations_ = 0;
        widths_.clear();
        return send(message(NL80211_CMD_GET_STATION, NLM_F_DUMP));
    }

    SimRecord lastRequest() {
        play("");  // what comes before its answer has been read then
        return sim_.records("netlink").back();
    }

    SimDriver sim_;
    Socket socket_;
    int connected_ = -1;
    std::vector<std::string> interfaces_;
    std::vector<int> widths_;
    int stations_ = 0;
    bool cookie_ = false;
};

TEST_F(NetlinkTest, FamilyResolvesToTheScenariosNumber) {
    ASSERT_EQ(connected_, 0);
    EXPECT_EQ(family(), 28);
    play("netlink family id=41");
    EXPECT_EQ(family(), 41);
    play("netlink family absent");
    EXPECT_LT(family(), 0);
    EXPECT_EQ(lastRequest().text(), "GETFAMILY nl80211");
    EXPECT_EQ(lastRequest()["answer"], "error -2");
}

TEST_F(NetlinkTest, FamilyOtherThanNl80211IsUnknown) {
    EXPECT_LT(genl_ctrl_resolve(socket_.get(), "taskstats"), 0);
    EXPECT_EQ(lastRequest().text(), "GETFAMILY taskstats");
}

TEST_F(NetlinkTest, InterfaceDumpFollowsTheRadio) {
    EXPECT_EQ(dumpInterfaces(), 0);
    EXPECT_THAT(interfaces_, ElementsAre("wlan0"));
    play("supplicant start");
    play("p2p start freq=5180 up-after=0ms");
    EXPECT_EQ(dumpInterfaces(), 0);
    EXPECT_THAT(interfaces_, ElementsAre("wlan0", "p2p-wlan0-0"));
    play("expect event P2P-GROUP-STARTED within 20s");
    play("p2p stop down-after=0ms");
    play("expect socket \"p2p-wlan0-0 deleted\" within 20s");
    EXPECT_EQ(dumpInterfaces(), 0);
    EXPECT_THAT(interfaces_, ElementsAre("wlan0"));
    play("interface add wlan1");
    play("interface remove wlan0");
    EXPECT_EQ(dumpInterfaces(), 0);
    EXPECT_THAT(interfaces_, ElementsAre("wlan1"));
    play("interface remove wlan1");
    EXPECT_EQ(dumpInterfaces(), 0);
    EXPECT_TRUE(interfaces_.empty());
}

TEST_F(NetlinkTest, StationRateHasTheWidthOfTheLink) {
    play("supplicant start");
    EXPECT_EQ(dumpStations(), 0);
    EXPECT_EQ(stations_, 0);
    play("connect freq=5180 width=20");
    EXPECT_EQ(dumpStations(), 0);
    EXPECT_EQ(stations_, 1);
    EXPECT_TRUE(widths_.empty());
    const std::pair<const char*, int> flags[] = {{"40", NL80211_RATE_INFO_40_MHZ_WIDTH},
                                                 {"80", NL80211_RATE_INFO_80_MHZ_WIDTH},
                                                 {"80+80", NL80211_RATE_INFO_80P80_MHZ_WIDTH},
                                                 {"160", NL80211_RATE_INFO_160_MHZ_WIDTH}};
    for (const auto& [width, flag] : flags) {
        play(std::string("connect freq=5180 width=") + width);
        EXPECT_EQ(dumpStations(), 0);
        EXPECT_THAT(widths_, ElementsAre(flag)) << width;
    }
}

TEST_F(NetlinkTest, VendorCommandIsRecordedInWordsAndBytes) {
    const Message request = message(NL80211_CMD_VENDOR);
    nla_put_u32(request.get(), NL80211_ATTR_VENDOR_ID, 0x001018);
    nla_put_u32(request.get(), NL80211_ATTR_VENDOR_SUBCMD, 2);
    nlattr* text = nla_nest_start(request.get(), NL80211_ATTR_VENDOR_DATA);
    nla_put(request.get(), 0, 26, "ifname=p2p0 P2P_ECSA 149 8");
    nla_put_u8(request.get(), 73, 1);
    nla_nest_end(request.get(), text);
    nlattr* second = nla_nest_start(request.get(), NL80211_ATTR_VENDOR_DATA);
    nla_put(request.get(), 0, 3, "ab");
    nla_nest_end(request.get(), second);
    EXPECT_EQ(send(request), 0);
    EXPECT_EQ(lastRequest().text(), "VENDOR ifindex=" + std::to_string(if_nametoindex("wlan0")) +
                                        " oui=0x001018 subcmd=2 data:"
                                        " 0=69666e616d653d70327030205032505f454353412031343920"
                                        "38 73=01 data: 0=\"ab\"");
    EXPECT_EQ(lastRequest()["answer"], "ok");
    EXPECT_EQ(lastRequest()["hex"].size(), 2 * nlmsg_hdr(request.get())->nlmsg_len);
}

TEST_F(NetlinkTest, FrameIsRecordedAndAnsweredWithACookie) {
    const Message request = message(NL80211_CMD_FRAME);
    nla_put_u8(request.get(), 41, 13);
    nla_put(request.get(), NL80211_ATTR_FRAME, 3, "\xD0\x00\x13");
    EXPECT_EQ(send(request), 0);
    EXPECT_EQ(lastRequest().text(), "FRAME ifindex=" + std::to_string(if_nametoindex("wlan0")) +
                                        " 41=0d frame(3)=d00013");
    EXPECT_TRUE(cookie_);
}

TEST_F(NetlinkTest, ErrorRuleHoldsAsOftenAsItSays) {
    play("netlink error vendor EOPNOTSUPP times=1");
    EXPECT_EQ(send(message(NL80211_CMD_VENDOR)), -EOPNOTSUPP);
    EXPECT_EQ(lastRequest()["answer"], "error -95");
    EXPECT_EQ(send(message(NL80211_CMD_VENDOR)), 0);
    play("netlink error any -16");
    play("netlink error station-dump -22");
    play("netlink heal any");
    EXPECT_EQ(dumpStations(), 0);
    play("netlink error station-dump -22");
    EXPECT_EQ(dumpStations(), -EINVAL);
    EXPECT_EQ(dumpInterfaces(), 0);
    play("netlink heal station-dump");
    EXPECT_EQ(dumpStations(), 0);
}

TEST_F(NetlinkTest, DumpRefusedAtItsEndHasTheErrorInItsDoneMessage) {
    play("netlink error station-dump ENODEV at-end times=1");
    const Message request = message(NL80211_CMD_GET_STATION, NLM_F_DUMP);
    ASSERT_GE(nl_send_auto_complete(socket_.get(), request.get()), 0);
    sockaddr_nl from{};
    unsigned char* bytes = nullptr;
    const int length = nl_recv(socket_.get(), &from, &bytes, nullptr);
    ASSERT_EQ(length, NLMSG_LENGTH(sizeof(int)));
    const auto* header = reinterpret_cast<nlmsghdr*>(bytes);
    EXPECT_EQ(header->nlmsg_type, NLMSG_DONE);
    EXPECT_EQ(header->nlmsg_flags, NLM_F_MULTI);
    EXPECT_EQ(*static_cast<const int*>(nlmsg_data(header)), -ENODEV);
    std::free(bytes);
    EXPECT_EQ(lastRequest()["answer"], "error -19");
}

TEST_F(NetlinkTest, ErrorRuleWithATextSendsAnExtendedAcknowledgement) {
    for (const std::string capped : {"", " capped"}) {
        // Reading by hand leaves libnl's count of answers behind: a new socket each time.
        socket_.reset(nl_socket_alloc());
        ASSERT_EQ(genl_connect(socket_.get()), 0);
        play("netlink error frame EBUSY \"try again later\"" + capped + " times=1");
        const Message request = message(NL80211_CMD_FRAME);
        ASSERT_GE(nl_send_auto_complete(socket_.get(), request.get()), 0);
        sockaddr_nl from{};
        unsigned char* bytes = nullptr;
        const int length = nl_recv(socket_.get(), &from, &bytes, nullptr);
        ASSERT_GT(length, 0);
        const auto* header = reinterpret_cast<nlmsghdr*>(bytes);
        EXPECT_EQ(header->nlmsg_type, NLMSG_ERROR);
        EXPECT_TRUE(header->nlmsg_flags & NLM_F_ACK_TLVS);
        EXPECT_EQ((header->nlmsg_flags & NLM_F_CAPPED) != 0, !capped.empty());
        const size_t echoed = capped.empty() ? nlmsg_hdr(request.get())->nlmsg_len : 16;
        const auto* attribute = reinterpret_cast<nlattr*>(bytes + 16 + 4 + echoed);
        EXPECT_EQ(nla_type(attribute), 1);
        EXPECT_STREQ(static_cast<char*>(nla_data(attribute)), "try again later");
        std::free(bytes);
    }
}

TEST_F(NetlinkTest, SpoiltStationLacksItsAttributes) {
    play("supplicant start");
    play("connect freq=5180 width=80");
    play("netlink spoil station-dump no-bitrate times=1");
    EXPECT_EQ(dumpStations(), 0);
    EXPECT_EQ(stations_, 0);
    play("netlink spoil station-dump no-station-info times=1");
    EXPECT_EQ(dumpStations(), 0);
    EXPECT_EQ(stations_, 0);
    play("netlink spoil station-dump truncated times=1");
    EXPECT_EQ(dumpStations(), 0);
    EXPECT_EQ(stations_, 0);
    EXPECT_EQ(dumpStations(), 0);
    EXPECT_EQ(stations_, 1);
}

TEST_F(NetlinkTest, HangUpEndsTheRequestUnderWay) {
    const Message request = message(NL80211_CMD_VENDOR);
    play("netlink spoil vendor hang-up times=1");
    EXPECT_EQ(send(request), -ECONNRESET);
    EXPECT_EQ(lastRequest()["answer"], "hung up");
}

TEST_F(NetlinkTest, ConnectionFailsAfterClose) {
    play("netlink close");
    Socket other(nl_socket_alloc());
    EXPECT_LT(genl_connect(other.get()), 0);
    play("netlink listen");
    other.reset(nl_socket_alloc());
    EXPECT_EQ(genl_connect(other.get()), 0);
    EXPECT_EQ(genl_ctrl_resolve(other.get(), "nl80211"), 28);
}

TEST_F(NetlinkTest, OtherCommandsAreNotSupported) {
    EXPECT_EQ(send(message(NL80211_CMD_GET_SCAN)), -EOPNOTSUPP);
    EXPECT_THAT(lastRequest().text(), HasSubstr("command 32 of family 28"));
}

}  // namespace
