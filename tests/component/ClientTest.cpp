// Clients of the service that register, misbehave, hang and die.

#include <dirent.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <vendor/corvid/hardware/wifi/1.0/IWifi.h>

#include "tests/component/Headset.h"
#include "tests/support/IdleCallback.h"
#include "tests/support/Program.h"

using namespace std::chrono_literals;
using android::sp;
using android::hardware::Return;
using component::Headset;
using component::LogLine;
using test::Program;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using vendor::corvid::hardware::wifi::V1_0::ICorvidWifiManagerCallback;
using vendor::corvid::hardware::wifi::V1_0::IWifi;
using vendor::corvid::hardware::wifi::V1_0::Status;

namespace {

constexpr const char* kRemoving = "CorvidWifiManagerCallback: removing dead callback";
constexpr const char* kCallFailed = "CorvidWifiManager: Failed to call IWifi onRegdomUpdated: ";

class Clients : public testing::Test {
  protected:
    void SetUp() override {
        headset_.play("supplicant start p2p=p2p0");
        headset_.startDaemon();
        headset_.expectConnection("wlan0");
        headset_.expectConnection("p2p0");
    }

    /** corvid-wifi monitor, once it is registered. */
    std::unique_ptr<Program> startMonitor() {
        auto monitor = std::make_unique<Program>(
            std::vector<std::string>{component::clientPath(), "monitor"},
            Program::Options{{"CORVID_WIFI_ROOT=" + headset_.root()}, {}, {}});
        EXPECT_EQ(monitor->readLine(), "{\"event\":\"registered\"}");
        return monitor;
    }

    /** Stops a program as if it hung, and waits until each of its threads stands still. */
    static void hang(const Program& program) {
        program.signal(SIGSTOP);
        siginfo_t info{};
        ASSERT_EQ(waitid(P_PID, static_cast<id_t>(program.pid()), &info, WSTOPPED), 0);
    }

    static std::string regdom(const std::string& alpha2) {
        return "{\"event\":\"onRegdomUpdated\",\"init\":\"USER\",\"type\":\"COUNTRY\",\"alpha2\":"
               "\"" +
               alpha2 + "\"}";
    }

    /** A connection to the socket on which the daemon takes calls. */
    android::base::unique_fd connectToDaemon() const {
        for (const auto& entry :
             std::filesystem::directory_iterator(headset_.root() + "/dev/hwbinder")) {
            sockaddr_un address{};
            address.sun_family = AF_UNIX;
            const std::string path = entry.path();
            if (!entry.is_socket() || path.size() >= sizeof(address.sun_path)) {
                continue;
            }
            memcpy(address.sun_path, path.c_str(), path.size());
            android::base::unique_fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
            ucred peer{};
            socklen_t length = sizeof(peer);
            if (connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0 &&
                getsockopt(fd.get(), SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 &&
                peer.pid == headset_.daemonPid()) {
                return fd;
            }
        }
        ADD_FAILURE() << "the daemon listens nowhere";
        return {};
    }

    Headset headset_;
};

TEST_F(Clients, AreToldOfEveryRelayedEvent) {
    const auto monitor = startMonitor();
    headset_.playAll({"regdom init=USER type=COUNTRY alpha2=DE", "regdom init=CORE type=WORLD",
                      "regdom init=USER type=INTERSECTION", "assoc started ifname=wlan0",
                      "assoc started ifname=p2p-wlan0-0"});
    EXPECT_EQ(monitor->readLine(), regdom("DE"));
    EXPECT_EQ(monitor->readLine(),
              "{\"event\":\"onRegdomUpdated\",\"init\":\"CORE\",\"type\":"
              "\"WORLD\",\"alpha2\":\"XZ\"}");
    EXPECT_EQ(monitor->readLine(),
              "{\"event\":\"onRegdomUpdated\",\"init\":\"USER\",\"type\":"
              "\"INTERSECTION\",\"alpha2\":\"00\"}");
    EXPECT_EQ(monitor->readLine(), "{\"event\":\"onAssocStarted\"}");
    headset_.expectLog("I",
                       "AssocStartedManager: 'wlan0' is not a p2p interface => ignore the event");
    // The other socket tells of regulatory changes too.
    headset_.play("regdom init=USER type=COUNTRY alpha2=US on=p2p0");
    EXPECT_EQ(monitor->readLine(), regdom("US"));
    monitor->signal(SIGTERM);
    EXPECT_EQ(monitor->wait(), 0);
}

TEST_F(Clients, ThatAreNotThereAreNoTrouble) {
    headset_.play("regdom init=USER type=COUNTRY alpha2=DE");
    headset_.expectLog("D", "RegdomManager: Notify regdom updated event");
    headset_.settle();
    EXPECT_THAT(headset_.log("CorvidWifiManager:"), IsEmpty());
}

TEST_F(Clients, ThatDieAreForgottenWithOneLine) {
    const auto dying = startMonitor();
    const auto other = startMonitor();
    dying->signal(SIGKILL);
    headset_.expectLog("D", kRemoving);
    headset_.play("regdom init=USER type=COUNTRY alpha2=DE");
    EXPECT_EQ(other->readLine(), regdom("DE"));
    headset_.settle();
    EXPECT_THAT(headset_.log(kRemoving), SizeIs(1));
    EXPECT_THAT(headset_.log(kCallFailed), IsEmpty());
}

TEST_F(Clients, ThatUnregisteredBeforeTheyDieAreForgottenSilently) {
    const auto monitor = startMonitor();
    monitor->signal(SIGTERM);
    EXPECT_EQ(monitor->wait(), 0);
    // What comes after the death on the same thread shows that it has been handled.
    const auto last = startMonitor();
    last->signal(SIGKILL);
    headset_.expectLog("D", kRemoving);
    EXPECT_THAT(headset_.log(kRemoving), SizeIs(1));
}

TEST_F(Clients, ThatComeAndDieAHundredTimesLeaveNothingBehind) {
    constexpr int kTimes = 100;
    startMonitor()->signal(SIGKILL);
    headset_.expectLog("D", kRemoving);
    const auto before = headset_.daemonFigures();
    for (int i = 0; i < kTimes; ++i) {
        startMonitor()->signal(SIGKILL);
    }
    headset_.expectRecords(kTimes + 1, "log", kRemoving);
    EXPECT_EQ(headset_.call("getP2pInfo").status, 0);
    const auto after = headset_.daemonFigures();
    EXPECT_LE(after.descriptors(), before.descriptors() + 4) << "connections of the last callers";
    EXPECT_LE(after.threads(), before.threads() + 1);
}

TEST_F(Clients, CanRegisterOnceAndUnregisterOnce) {
    setenv("CORVID_WIFI_ROOT", headset_.root().c_str(), 1);
    const sp<IWifi> service = IWifi::tryGetService();
    ASSERT_NE(service, nullptr);
    const sp<ICorvidWifiManagerCallback> listener = new test::IdleCallback;
    const auto codeOf = [&](auto method) {
        uint32_t code = 99;
        const Return<void> result =
            (service.get()->*method)(listener, [&](const Status& status) { code = status.code; });
        EXPECT_TRUE(result.isOk()) << result.description();
        return code;
    };
    EXPECT_EQ(codeOf(&IWifi::unregisterCorvidWifiManagerCallback), 1u);
    EXPECT_EQ(codeOf(&IWifi::registerCorvidWifiManagerCallback), 0u);
    EXPECT_EQ(codeOf(&IWifi::registerCorvidWifiManagerCallback), 1u);
    EXPECT_EQ(codeOf(&IWifi::unregisterCorvidWifiManagerCallback), 0u);
    EXPECT_EQ(codeOf(&IWifi::unregisterCorvidWifiManagerCallback), 1u);
    EXPECT_EQ(codeOf(&IWifi::registerCorvidWifiManagerCallback), 0u);
    EXPECT_EQ(codeOf(&IWifi::unregisterCorvidWifiManagerCallback), 0u);
}

TEST_F(Clients, ThatPassNullAreRefused) {
    for (const char* method :
         {"registerCorvidWifiManagerCallback", "unregisterCorvidWifiManagerCallback"}) {
        const auto answer = headset_.call(std::string(method) + " null");
        EXPECT_EQ(answer.output, "{\"code\":1,\"description\":\"\"}") << method;
        EXPECT_EQ(answer.status, 1);
    }
    headset_.play("regdom init=USER type=COUNTRY alpha2=DE");
    headset_.settle();
    EXPECT_THAT(headset_.log(kCallFailed), IsEmpty());
}

TEST_F(Clients, ThatHangInACallbackHoldUpEventsButNotCalls) {
    const auto hanging = startMonitor();
    const auto patient = startMonitor();
    hang(*hanging);
    headset_.play("regdom init=USER type=COUNTRY alpha2=AA");
    headset_.expectLog("D", "RegdomManager: Notify regdom updated event");
    headset_.playAll({"regdom init=USER type=COUNTRY alpha2=BB",
                      "regdom init=USER type=COUNTRY alpha2=CC", "connect freq=5180 rssi=-48"});
    // Calls go on, those that ask the supplicant too.
    EXPECT_THAT(headset_.call("getStaInfo").output, HasSubstr("\"frequency\":5180,\"rssi\":-48"));
    EXPECT_THAT(headset_.dump(), HasSubstr("\tRegdomManager.onRegdomUpdated: "));
    EXPECT_EQ(headset_.call("getP2pInfo").status, 0);
    EXPECT_THAT(headset_.log("onRegdomUpdated("), SizeIs(1)) << "the second event waits";

    hanging->signal(SIGKILL);
    EXPECT_EQ(patient->readLine(), regdom("AA"));
    EXPECT_EQ(patient->readLine(), regdom("BB"));
    EXPECT_EQ(patient->readLine(), regdom("CC"));
    headset_.expectLog("I", "StaManager: STA event(CONNECTED)");
    headset_.expectLog("D", kRemoving);
    EXPECT_THAT(headset_.log(kRemoving), SizeIs(1));
    // One line for the event under way; should an event have overtaken the notice of the death, one
    // for that as well, and that is all.
    const auto failures = headset_.log(kCallFailed, "E");
    EXPECT_GE(failures.size(), 1u);
    EXPECT_LE(failures.size(), 3u);
    headset_.forget();
    headset_.play("regdom init=USER type=COUNTRY alpha2=DD");
    EXPECT_EQ(patient->readLine(), regdom("DD"));
    EXPECT_THAT(headset_.log(kCallFailed), IsEmpty());
}

TEST_F(Clients, ThatHangAloneInACallbackCostOneErrorLineWhenTheyDie) {
    const auto hanging = startMonitor();
    hang(*hanging);
    headset_.play("regdom init=USER type=COUNTRY alpha2=AA");
    headset_.expectLog("D", "RegdomManager: Notify regdom updated event");
    hanging->signal(SIGKILL);
    headset_.expectLog("D", kRemoving);
    headset_.settle();
    EXPECT_THAT(headset_.log(kCallFailed, "E"), SizeIs(1));
}

TEST_F(Clients, ThatSendGarbageLoseTheirConnectionAndNothingElse) {
    const auto monitor = startMonitor();
    headset_.forget();
    const std::vector<std::string> garbage = {
        std::string(64, '\0'),
        std::string(64, '\xff'),
        std::string(100'000, 'A'),
        "GET / HTTP/1.1\r\nHost: headset\r\nAccept: everything there is, please\r\n\r\n",
    };
    for (const std::string& bytes : garbage) {
        const auto connection = connectToDaemon();
        ASSERT_TRUE(connection.ok());
        // A daemon that has closed the connection already takes no more.
        (void)send(connection.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        timeval limit{std::chrono::seconds(test::kPatience).count(), 0};
        setsockopt(connection.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
        char byte = 0;
        const ssize_t received = recv(connection.get(), &byte, 1, 0);
        EXPECT_TRUE(received == 0 || (received < 0 && errno == ECONNRESET))
            << received << " " << strerror(errno);
    }
    headset_.expectRecords(garbage.size(), "log",
                           "Ending a connection of process " + std::to_string(getpid()));
    // Callers and listeners never notice.
    EXPECT_EQ(headset_.call("getP2pInfo").status, 0);
    headset_.play("regdom init=USER type=COUNTRY alpha2=DE");
    EXPECT_EQ(monitor->readLine(), regdom("DE"));
}

TEST_F(Clients, ThatConnectAndSayNothingKeepNobodyFromCalling) {
    std::vector<android::base::unique_fd> silent;
    for (int i = 0; i < 20; ++i) {
        silent.push_back(connectToDaemon());
        const char half[] = "HDL";
        (void)send(silent.back().get(), half, sizeof(half) - 1, MSG_NOSIGNAL);
    }
    EXPECT_EQ(headset_.call("getP2pInfo").status, 0);
}

}  // namespace
