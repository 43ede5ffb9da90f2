#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <string>

#include <android-base/stringprintf.h>
#include <android-base/unique_fd.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <wpa_ctrl.h>

#include "tests/sim/SimDriver.h"

using namespace std::chrono_literals;
using simtest::SimDriver;
using simtest::SimRecord;
using testing::HasSubstr;

namespace {

struct CloseControl {
    void operator()(wpa_ctrl* control) const { wpa_ctrl_close(control); }
};
using Control = std::unique_ptr<wpa_ctrl, CloseControl>;

/** The simulator as a client of the supplicant sees it, through the supplicant's own library. */
class SupplicantTest : public testing::Test {
  protected:
    Control open(const std::string& name) {
        return Control(wpa_ctrl_open(sim_.socketPath(name).c_str()));
    }

    static std::string request(const Control& control, const std::string& command) {
        char reply[4096];
        size_t length = sizeof(reply);
        const int result = wpa_ctrl_request(control.get(), command.data(), command.size(), reply,
                                            &length, nullptr);
        return result == 0 ? std::string(reply, length) : "failed " + std::to_string(result);
    }

    /** The next event; "none" when there is none within the time. */
    static std::string event(const Control& control, std::chrono::milliseconds limit = 20s) {
        pollfd fd{wpa_ctrl_get_fd(control.get()), POLLIN, 0};
        if (poll(&fd, 1, static_cast<int>(limit.count())) != 1) {
            return "none";
        }
        char buffer[8192];
        size_t length = sizeof(buffer);
        return wpa_ctrl_recv(control.get(), buffer, &length) == 0 ? std::string(buffer, length)
                                                                  : "failed";
    }

    /** The next event that begins with `prefix`, others skipped. */
    static std::string event(const Control& control, const std::string& prefix) {
        std::string text;
        do {
            text = event(control);
        } while (text != "none" && text.compare(0, prefix.size(), prefix) != 0);
        return text;
    }

    Control attached(const std::string& name) {
        Control control = open(name);
        EXPECT_EQ(wpa_ctrl_attach(control.get()), 0);
        return control;
    }

    void play(const std::string& line) { EXPECT_EQ(sim_.play(line), "") << line; }

    SimDriver sim_;
};

TEST_F(SupplicantTest, SocketIsMissingBeforeTheStart) {
    EXPECT_EQ(open("wlan0"), nullptr);
    play("supplicant start");
    EXPECT_NE(open("wlan0"), nullptr);
}

TEST_F(SupplicantTest, PingIsAnsweredAndAnUnknownCommandRefused) {
    play("supplicant start");
    const Control control = open("wlan0");
    EXPECT_EQ(request(control, "PING"), "PONG\n");
    EXPECT_EQ(request(control, "MAKE_COFFEE"), "UNKNOWN COMMAND\n");
}

TEST_F(SupplicantTest, EventsReachEveryMonitorUntilItDetaches) {
    play("supplicant start");
    const Control first = attached("wlan0");
    const Control second = attached("wlan0");
    play("event wlan0 HELLO 1");
    EXPECT_EQ(event(first), "<3>HELLO 1");
    EXPECT_EQ(event(second), "<3>HELLO 1");
    EXPECT_EQ(wpa_ctrl_detach(first.get()), 0);
    play("event wlan0 HELLO 2");
    EXPECT_EQ(event(second), "<3>HELLO 2");
    EXPECT_EQ(event(first, 0ms), "none");
    EXPECT_EQ(sim_.records("event").back()["monitors"], "1");
    EXPECT_EQ(wpa_ctrl_detach(first.get()), -1) << "it is no monitor any more";
}

TEST_F(SupplicantTest, CommandConnectionGetsNoEvents) {
    play("supplicant start");
    const Control control = open("wlan0");
    play("event wlan0 HELLO");
    EXPECT_EQ(event(control, 0ms), "none");
    EXPECT_EQ(request(control, "PING"), "PONG\n");
}

TEST_F(SupplicantTest, SignalPollFailsWithoutALink) {
    play("supplicant start");
    const Control control = open("wlan0");
    EXPECT_EQ(request(control, "SIGNAL_POLL"), "FAIL\n");
    EXPECT_THAT(request(control, "STATUS"), HasSubstr("wpa_state=DISCONNECTED\n"));
}

TEST_F(SupplicantTest, SignalPollAndStatusHaveTheFormOfARealSupplicant) {
    play("supplicant start");
    const Control control = open("wlan0");
    play("connect freq=5180 width=80 rssi=-48 bssid=02:11:22:33:44:55 ssid=home ip=192.168.1.7");
    EXPECT_EQ(request(control, "SIGNAL_POLL"),
              "RSSI=-48\nLINKSPEED=800\nNOISE=-92\nFREQUENCY=5180\nWIDTH=80 MHz\nCENTER_FRQ1=5210\n"
              "AVG_RSSI=-48\nAVG_BEACON_RSSI=-48\n");
    EXPECT_EQ(request(control, "STATUS"),
              "bssid=02:11:22:33:44:55\nfreq=5180\nssid=home\nid=0\nmode=station\n"
              "wifi_generation=5\npairwise_cipher=CCMP\ngroup_cipher=CCMP\nkey_mgmt=WPA2-PSK\n"
              "wpa_state=COMPLETED\nip_address=192.168.1.7\n"
              "p2p_device_address=42:00:00:00:00:00\naddress=02:00:00:00:00:00\n"
              "uuid=362db47b-a53a-5191-88fb-5458b986b2e4\n");
    play("disconnect");
    EXPECT_EQ(request(control, "SIGNAL_POLL"), "FAIL\n");
}

TEST_F(SupplicantTest, WalkingSignalFallsToItsEnd) {
    play("supplicant start");
    const Control control = open("wlan0");
    play("connect freq=5180 rssi=-40");
    play("rssi from -40 to -80 over 400ms");
    const auto rssi = [&] { return std::stoi(request(control, "SIGNAL_POLL").substr(5)); };
    int last = rssi();
    EXPECT_GE(last, -80);
    bool between = false;
    const auto limit = std::chrono::steady_clock::now() + 20s;
    while (last != -80 && std::chrono::steady_clock::now() < limit) {
        const int now = rssi();
        EXPECT_LE(now, last) << "it only falls";
        between = between || (now < -40 && now > -80);
        last = now;
    }
    EXPECT_EQ(last, -80);
    EXPECT_TRUE(between);
}

TEST_F(SupplicantTest, ConnectingAndDisconnectingSendTheEventsOfARealSupplicant) {
    play("supplicant start");
    const Control monitor = attached("wlan0");
    play("connect freq=2437 bssid=02:00:00:00:01:00 ssid=test");
    EXPECT_EQ(event(monitor),
              "<3>SME: Trying to authenticate with 02:00:00:00:01:00 (SSID='test' freq=2437 MHz)");
    EXPECT_EQ(event(monitor, "<3>CTRL-EVENT-CONNECTED"),
              "<3>CTRL-EVENT-CONNECTED - Connection to 02:00:00:00:01:00 completed [id=0 id_str=]");
    play("disconnect");
    EXPECT_EQ(event(monitor),
              "<3>CTRL-EVENT-DISCONNECTED bssid=02:00:00:00:01:00 reason=3 locally_generated=1");
    EXPECT_EQ(event(monitor), "<3>CTRL-EVENT-DSCP-POLICY clear_all");
    EXPECT_EQ(sim_.play("disconnect"), "the station is not connected");
}

TEST_F(SupplicantTest, ChannelSwitchMovesTheLink) {
    play("supplicant start");
    const Control monitor = attached("wlan0");
    const Control control = open("wlan0");
    play("connect freq=5180 width=80");
    play("channel switch freq=5745 width=80");
    EXPECT_EQ(event(monitor, "<3>CTRL-EVENT-CHANNEL-SWITCH"),
              "<3>CTRL-EVENT-CHANNEL-SWITCH freq=5745 ifname=wlan0 width=80");
    EXPECT_THAT(request(control, "SIGNAL_POLL"), HasSubstr("FREQUENCY=5745\n"));
    play("channel switch freq=5200 width=80 style=mainline");
    EXPECT_EQ(event(monitor),
              "<3>CTRL-EVENT-STARTED-CHANNEL-SWITCH freq=5200 ht_enabled=1 ch_offset=-1 "
              "ch_width=80 MHz cf1=5210 cf2=0");
    EXPECT_EQ(event(monitor),
              "<3>CTRL-EVENT-CHANNEL-SWITCH freq=5200 ht_enabled=1 ch_offset=-1 ch_width=80 MHz "
              "cf1=5210 cf2=0");
}

TEST_F(SupplicantTest, RegdomAssociationAndScanEventsHaveTheirForm) {
    play("supplicant start");
    const Control monitor = attached("wlan0");
    play("regdom init=USER type=COUNTRY alpha2=US");
    EXPECT_EQ(event(monitor), "<3>CTRL-EVENT-REGDOM-CHANGE init=USER type=COUNTRY alpha2=US");
    play("regdom init=CORE type=WORLD");
    EXPECT_EQ(event(monitor), "<3>CTRL-EVENT-REGDOM-CHANGE init=CORE type=WORLD");
    play("assoc started ifname=p2p-wlan0-0");
    EXPECT_EQ(event(monitor), "<3>CTRL-EVENT-ASSOC-STARTED ifname=p2p-wlan0-0");
    play("scan networks=1");
    EXPECT_EQ(event(monitor), "<3>CTRL-EVENT-SCAN-STARTED ");
    EXPECT_EQ(event(monitor), "<3>CTRL-EVENT-BSS-ADDED 0 02:00:00:00:00:01");
    EXPECT_EQ(event(monitor), "<3>CTRL-EVENT-SCAN-RESULTS ");
}

TEST_F(SupplicantTest, DriverCommandsAreRecordedAndAnsweredOk) {
    play("supplicant start");
    const Control control = open("wlan0");
    EXPECT_EQ(request(control, "DRIVER SET_TXPOWER 9"), "OK\n");
    EXPECT_EQ(request(control, "CORVID_P2P_CHAN_SWITCH 0 5180 bandwidth=20"), "SUCCESS\n");
    const auto command = sim_.waitFor([](const SimRecord& record) {
        return record.kind() == "command" && record.text() == "DRIVER SET_TXPOWER 9";
    });
    ASSERT_TRUE(command);
    EXPECT_EQ(command->socket(), "wlan0");
    EXPECT_EQ((*command)["reply"], "OK\n");
}

TEST_F(SupplicantTest, NewestRuleDecidesTheAnswer) {
    play("supplicant start");
    const Control control = open("wlan0");
    const std::string command = "DRIVER SET_TXPOWER 9";
    play("reply \"DRIVER SET_TXPOWER\" fail");
    play("reply DRIVER \"times up\" times=2");
    EXPECT_EQ(request(control, command), "times up");
    EXPECT_EQ(request(control, "DRIVER OTHER"), "times up");
    EXPECT_EQ(request(control, command), "FAIL\n");
    EXPECT_EQ(request(control, "DRIVER OTHER"), "OK\n");
    play("reply \"DRIVER SET_TXPOWER\" default");
    EXPECT_EQ(request(control, command), "OK\n");
    play("reply STATUS unknown on=p2p0");
    EXPECT_THAT(request(control, "STATUS"), HasSubstr("wpa_state")) << "it is for another socket";
    play("reply STATUS unknown on=wlan0");
    EXPECT_EQ(request(control, "STATUS"), "UNKNOWN COMMAND\n");
    play("reply STATUS empty");
    EXPECT_EQ(request(control, "STATUS"), "");
    play("reply STATUS too-long");
    EXPECT_EQ(request(control, "STATUS").size(), 4096u) << "cut by the client's buffer";
    play("reply ATTACH fail");
    EXPECT_EQ(wpa_ctrl_attach(control.get()), -1);
}

TEST_F(SupplicantTest, DelayedAnswerComesAfterItsDelay) {
    play("supplicant start");
    const Control control = open("wlan0");
    play("reply PING \"late\" after=300ms");
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(request(control, "PING"), "late");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 300ms);
}

TEST_F(SupplicantTest, UnansweredCommandIsRecordedWithANullReply) {
    play("supplicant start");
    play("reply SIGNAL_POLL none");
    // By hand: the library would wait ten seconds for the answer.
    const Control control = open("wlan0");
    const int fd = wpa_ctrl_get_fd(control.get());
    ASSERT_EQ(send(fd, "SIGNAL_POLL", 11, 0), 11);
    const auto command =
        sim_.waitFor([](const SimRecord& record) { return record.kind() == "command"; });
    ASSERT_TRUE(command);
    EXPECT_EQ((*command)["reply"], "null");
    EXPECT_EQ(event(control, 50ms), "none");
}

TEST_F(SupplicantTest, SuspendedSupplicantAnswersWhenItIsResumed) {
    play("supplicant start");
    play("supplicant suspend");
    const Control control = open("wlan0");
    ASSERT_EQ(send(wpa_ctrl_get_fd(control.get()), "PING", 4, 0), 4);
    EXPECT_EQ(event(control, 100ms), "none");
    play("supplicant resume");
    EXPECT_EQ(event(control), "PONG\n");
}

TEST_F(SupplicantTest, RawBytesArriveAsTheyAre) {
    play("supplicant start");
    const Control monitor = attached("wlan0");
    play(R"(raw wlan0 "\x00\xffab")");
    EXPECT_EQ(event(monitor), std::string("\0\xff"
                                          "ab",
                                          4));
    play("raw wlan0 \"<3>\"");
    EXPECT_EQ(event(monitor), "<3>");
    play("raw wlan0 size=4096 fill=0x7a");
    EXPECT_EQ(event(monitor), std::string(4096, 'z'));
    // The library takes an empty datagram for a closed connection; it is one all the same.
    play("raw wlan0 size=0");
    pollfd fd{wpa_ctrl_get_fd(monitor.get()), POLLIN, 0};
    ASSERT_EQ(poll(&fd, 1, 20000), 1);
    char byte = 'x';
    EXPECT_EQ(recv(fd.fd, &byte, 1, MSG_DONTWAIT), 0);
}

TEST_F(SupplicantTest, BurstArrivesWholeAndInOrder) {
    play("supplicant start");
    const Control monitor = attached("wlan0");
    play("burst wlan0 10000 N {n} {n}");
    for (int i = 1; i <= 10000; ++i) {
        ASSERT_EQ(event(monitor), android::base::StringPrintf("<3>N %d %d", i, i));
    }
    EXPECT_TRUE(sim_.waitFor([](const SimRecord& record) {
        return record.kind() == "burst" && record.text() == "done" && record["count"] == "10000";
    }));
}

TEST_F(SupplicantTest, MonitorThatDoesNotReadDelaysNoAnswerAndIsDropped) {
    play("supplicant start");
    const Control deaf = attached("wlan0");
    play("burst wlan0 5000 N {n}");
    EXPECT_EQ(request(open("wlan0"), "PING"), "PONG\n");
    EXPECT_TRUE(sim_.records("detach").empty());
    const auto detach =
        sim_.waitFor([](const SimRecord& record) { return record.kind() == "detach"; });
    ASSERT_TRUE(detach);
    EXPECT_EQ((*detach)["why"], "dropped");
    EXPECT_GT(std::stoi((*detach)["lost"]), 0);
}

TEST_F(SupplicantTest, MonitorWhoseAddressIsGoneIsDroppedAtOnce) {
    play("supplicant start");
    Control monitor = attached("wlan0");
    monitor.reset();  // removes its address without detaching
    play("event wlan0 HELLO");
    const auto detach =
        sim_.waitFor([](const SimRecord& record) { return record.kind() == "detach"; });
    ASSERT_TRUE(detach);
    EXPECT_EQ((*detach)["why"], "dropped");
    EXPECT_EQ((*detach)["monitors"], "0");
}

TEST_F(SupplicantTest, MonitorThatRefusesIsDroppedAfterElevenRefusals) {
    play("supplicant start");
    // What a killed client leaves: its address, with nobody behind it.
    const std::string path = sim_.root() + "/client";
    sockaddr_un own{AF_UNIX, {}};
    path.copy(own.sun_path, sizeof(own.sun_path) - 1);
    sockaddr_un server{AF_UNIX, {}};
    sim_.socketPath("wlan0").copy(server.sun_path, sizeof(server.sun_path) - 1);
    android::base::unique_fd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(bind(fd.get(), reinterpret_cast<sockaddr*>(&own), sizeof(own)), 0);
    ASSERT_EQ(connect(fd.get(), reinterpret_cast<sockaddr*>(&server), sizeof(server)), 0);
    ASSERT_EQ(send(fd.get(), "ATTACH", 6, 0), 6);
    char reply[8];
    ASSERT_EQ(recv(fd.get(), reply, sizeof(reply), 0), 3);
    fd.reset();
    for (int i = 0; i < 10; ++i) {
        play("event wlan0 HELLO");
    }
    EXPECT_TRUE(sim_.records("detach").empty());
    play("event wlan0 HELLO");
    ASSERT_EQ(sim_.records("detach").size(), 1u);
    EXPECT_EQ(sim_.records("detach")[0]["why"], "dropped");
}

TEST_F(SupplicantTest, CrashLeavesTheSocketFileAndRestartReplacesIt) {
    play("supplicant start p2p=p2p0");
    const Control control = open("wlan0");
    play("connect freq=5180");
    play("supplicant crash");
    struct stat file {};
    EXPECT_EQ(stat(sim_.socketPath("wlan0").c_str(), &file), 0);
    EXPECT_EQ(stat(sim_.socketPath("p2p0").c_str(), &file), 0);
    EXPECT_EQ(send(wpa_ctrl_get_fd(control.get()), "PING", 4, MSG_NOSIGNAL), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
    EXPECT_EQ(sim_.play("scan"), "the supplicant is not running");
    play("supplicant restart");
    EXPECT_EQ(request(open("wlan0"), "SIGNAL_POLL"), "FAIL\n") << "the link is gone";
    EXPECT_EQ(request(open("p2p0"), "PING"), "PONG\n");
}

TEST_F(SupplicantTest, TerminatingSupplicantSendsItsLastEventsAndRemovesItsSockets) {
    play("supplicant start p2p=p2p0");
    const Control sta = attached("wlan0");
    const Control p2p = attached("p2p0");
    play("connect freq=5180");
    play("supplicant terminate");
    EXPECT_EQ(event(p2p), "<3>CTRL-EVENT-TERMINATING ");
    EXPECT_THAT(event(sta, "<3>CTRL-EVENT-DISCONNECTED"), HasSubstr("locally_generated=1"));
    EXPECT_EQ(event(sta, "<3>CTRL-EVENT-TERMINATING"), "<3>CTRL-EVENT-TERMINATING ");
    struct stat file {};
    EXPECT_EQ(stat(sim_.socketPath("wlan0").c_str(), &file), -1);
    EXPECT_EQ(stat(sim_.socketPath("p2p0").c_str(), &file), -1);
    EXPECT_EQ(stat(sim_.socketPath("").c_str(), &file), 0) << "the folder stays";
    play("supplicant start");
    play("supplicant terminate remove-folder");
    EXPECT_EQ(stat(sim_.socketPath("").c_str(), &file), -1);
    play("supplicant start");
    EXPECT_EQ(request(open("wlan0"), "PING"), "PONG\n") << "it makes the folder anew";
}

TEST_F(SupplicantTest, SingleSocketsCanBeMadeAndRemoved) {
    struct stat file {};
    play("socket create p2p-wlan0-3");
    EXPECT_EQ(request(open("p2p-wlan0-3"), "PING"), "PONG\n");
    EXPECT_EQ(sim_.play("socket create p2p-wlan0-3"), "socket p2p-wlan0-3 exists already");
    play("socket abandon p2p-wlan0-3");
    EXPECT_EQ(stat(sim_.socketPath("p2p-wlan0-3").c_str(), &file), 0);
    EXPECT_EQ(open("p2p-wlan0-3"), nullptr) << "nobody is behind it";
    play("socket delete p2p-wlan0-3");
    EXPECT_EQ(stat(sim_.socketPath("p2p-wlan0-3").c_str(), &file), -1);
    EXPECT_EQ(sim_.play("event p2p-wlan0-3 X"), "there is no socket p2p-wlan0-3");
    play("folder sockets remove");
    EXPECT_THAT(sim_.play("socket create wlan0"), HasSubstr("No such file or directory"));
    play("folder sockets create");
    play("socket create wlan0");
}

TEST_F(SupplicantTest, GroupBringsItsSocketAndTakesItAway) {
    play("supplicant start");
    play("p2p start freq=5180 width=80 up-after=1s");
    const Control monitor = attached("p2p-wlan0-0");
    const Control control = open("p2p-wlan0-0");
    EXPECT_EQ(event(monitor), "<3>AP-ENABLED ");
    EXPECT_THAT(event(monitor), HasSubstr("<3>CTRL-EVENT-CONNECTED - Connection to"));
    EXPECT_EQ(event(monitor),
              "<3>P2P-GROUP-STARTED p2p-wlan0-0 GO ssid=\"DIRECT-BI\" freq=5180 "
              "passphrase=\"e8SndjtA\" go_dev_addr=42:00:00:00:00:00");
    EXPECT_THAT(request(control, "STATUS"), HasSubstr("mode=P2P GO\n"));
    EXPECT_EQ(request(control, "SIGNAL_POLL"), "FAIL\n");
    EXPECT_EQ(sim_.play("p2p start freq=2437"), "a P2P group is up already");
    play("p2p peer joins");
    EXPECT_EQ(event(monitor),
              "<3>AP-STA-CONNECTED 46:00:00:00:02:00 p2p_dev_addr=42:00:00:00:02:00");
    play("p2p stop");
    EXPECT_EQ(event(monitor), "<3>P2P-GROUP-REMOVED p2p-wlan0-0 GO reason=REQUESTED");
    EXPECT_EQ(event(monitor), "<3>AP-DISABLED ");
    EXPECT_TRUE(sim_.waitFor([](const SimRecord& record) {
        return record.kind() == "socket" && record.socket() == "p2p-wlan0-0" &&
               record.text() == "deleted";
    }));
    EXPECT_EQ(sim_.play("p2p stop"), "no P2P group is up");
}

TEST_F(SupplicantTest, GroupOnTheP2pDeviceKeepsItsSocket) {
    play("supplicant start p2p=p2p0");
    const Control monitor = attached("p2p0");
    play("p2p start freq=2437");
    EXPECT_THAT(event(monitor, "<3>P2P-GROUP-STARTED"), HasSubstr("P2P-GROUP-STARTED p2p0 GO"));
    play("p2p stop");
    EXPECT_THAT(event(monitor, "<3>P2P-GROUP-REMOVED"), HasSubstr("p2p0 GO reason=REQUESTED"));
    EXPECT_EQ(sim_.play("expect no socket \"p2p0 deleted\" within 300ms"), "");
    EXPECT_EQ(request(open("p2p0"), "PING"), "PONG\n");
}

TEST_F(SupplicantTest, GroupSwitchIsSentOnItsSocketAndOnTheStations) {
    play("supplicant start p2p=p2p0");
    const Control sta = attached("wlan0");
    const Control p2p = attached("p2p0");
    play("p2p start freq=5180 width=80");
    play("p2p switch freq=5745 width=80");
    EXPECT_EQ(event(sta), "<3>CTRL-EVENT-CHANNEL-SWITCH freq=5745 ifname=p2p0 width=80");
    EXPECT_THAT(event(p2p, "<3>CTRL-EVENT-STARTED-CHANNEL-SWITCH"),
                HasSubstr("freq=5745 ht_enabled=1 ch_offset=1 ch_width=80 MHz cf1=5775 cf2=0"));
    EXPECT_EQ(event(p2p, "<3>AP-CSA-FINISHED"), "<3>AP-CSA-FINISHED freq=5745 dfs=0");
    EXPECT_EQ(event(sta, 0ms), "none");
}

TEST_F(SupplicantTest, EndOfTheSimulatorRemovesTheSocketFiles) {
    play("supplicant start");
    EXPECT_EQ(sim_.finish(), 0);
    struct stat file {};
    EXPECT_EQ(stat(sim_.socketPath("wlan0").c_str(), &file), -1);
}

}  // namespace
