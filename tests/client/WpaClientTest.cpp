#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <android-base/unique_fd.h>
#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>

#include "client/WpaClient.h"
#include "os/DevicePath.h"
#include "tests/support/Descriptors.h"
#include "tests/support/FakeControlSocket.h"
#include "tests/support/Footprint.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Patience.h"
#include "tests/support/TempFolder.h"

namespace Ursa::OS::Wifi {

class WpaClientTestPeer {
  public:
    static bool startMonitor(WpaClient& client) { return client.startWpaSocketMonitor_(); }
    static void startListener(WpaClient& client) { client.startListener_(); }
    static PollAction onSocketUpdate(WpaClient& client, int fd, int events) {
        return client.onSocketUpdate_(fd, events);
    }
};

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr auto kSta = NetInterfaceType::STA;
constexpr auto kP2p = NetInterfaceType::P2P;
constexpr auto kConnectedType = WifiClientCallbackType::WPA_STA_CONNECTED;
const std::string kConnected =
    "<3>CTRL-EVENT-CONNECTED - Connection to 00:11:22:33:44:55 completed";

/** A subscriber on the listener's thread that the test waits for. */
class Listener {
  public:
    std::function<void(const std::string&)> callback = [this](const std::string& payload) {
        const std::lock_guard<std::mutex> lock(mutex_);
        payloads_.push_back(payload);
        grown_.notify_all();
    };

    bool waitFor(size_t count) {
        std::unique_lock<std::mutex> lock(mutex_);
        return grown_.wait_for(lock, test::kPatience, [&] { return payloads_.size() >= count; });
    }

    std::vector<std::string> payloads() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return payloads_;
    }

  private:
    std::mutex mutex_;
    std::condition_variable grown_;
    std::vector<std::string> payloads_;
};

class WpaClientTest : public testing::Test {
  protected:
    using Peer = WpaClientTestPeer;

    void start() { client_ = std::make_unique<WpaClient>(history_, folder_.path() + "/"); }

    std::string path(const std::string& name) const { return folder_.file(name); }

    void createFile(const std::string& name) const { std::ofstream(path(name)) << "x"; }

    bool waitForLine(const std::string& line) const { return log_.waitFor(line); }
    bool waitUntilConnected(const char* kind, const std::string& name) const {
        return log_.waitFor(std::string("[WPA-") + kind +
                            "] Connected to supplicant socket: " + path(name));
    }

    /** A client's start on a new directory, which then goes. Returns whether it was noticed. */
    bool startAndRemove(const std::string& directory) {
        std::filesystem::create_directories(directory);
        client_ = std::make_unique<WpaClient>(history_, directory + "/");
        std::filesystem::remove(directory);
        return waitForLine(
            "WpaClient: Wpa socket directory has been removed: waiting for the next one");
    }

    bool send(NetInterfaceType kind, std::string& reply) {
        return client_->sendCtrlCmd("PING", reply, kind);
    }
    bool send(NetInterfaceType kind) {
        std::string reply;
        return send(kind, reply);
    }

    test::TempFolder folder_;
    test::LogCapture log_;
    History history_;
    std::unique_ptr<WpaClient> client_;
};

TEST_F(WpaClientTest, SocketDirectoryIsTheSupplicantsAndEndsWithASlash) {
    EXPECT_EQ(WpaClient::socketDirectory(), devicePath("/data/vendor/wifi/wpa/sockets/"));
}

TEST_F(WpaClientTest, SocketsPresentBeforeTheStartAreConnectedThroughTheInitialScan) {
    const test::FakeControlSocket sta(path("wlan0"));
    const test::FakeControlSocket p2p(path("p2p-wlan0-3"));
    start();
    ASSERT_TRUE(waitUntilConnected("STA", "wlan0"));
    ASSERT_TRUE(waitUntilConnected("P2P", "p2p-wlan0-3"));
    EXPECT_EQ(log_.count(ANDROID_LOG_INFO, "WpaClient: wpa STA socket file (" + path("wlan0") +
                                               ") exists. Try to connect now"),
              1u);
    EXPECT_EQ(
        log_.count(ANDROID_LOG_INFO, "WpaClient: wpa P2P socket file (" + path("p2p-wlan0-3") +
                                         ") exists. Try to connect now"),
        1u);
    EXPECT_THAT(log_.messages(ANDROID_LOG_INFO), Not(Contains(testing::HasSubstr("is created"))));
    EXPECT_TRUE(send(kSta));
    EXPECT_TRUE(send(kP2p));
}

TEST_F(WpaClientTest, InitialScanTakesSocketsOnly) {
    createFile("wlan0");
    std::filesystem::create_directory(path("p2p0"));
    start();
    EXPECT_THAT(log_.messages(ANDROID_LOG_INFO), Not(Contains(testing::HasSubstr("exists"))));
}

TEST_F(WpaClientTest, StartIsLogged) {
    start();
    EXPECT_TRUE(waitForLine("WpaClient: Wpa client starts listener thread."));
    EXPECT_EQ(log_.count(ANDROID_LOG_DEBUG, "WpaClient: Wpa client starts listener thread."), 1u);
    EXPECT_EQ(log_.count(ANDROID_LOG_INFO, "WpaClient: Started monitoring wpa socket directory"),
              1u);
}

TEST_F(WpaClientTest, SocketThatAppearsLaterIsConnected) {
    start();
    const test::FakeControlSocket sta(path("wlan0"));
    ASSERT_TRUE(waitUntilConnected("STA", "wlan0"));
    const test::FakeControlSocket p2p(path("p2p0"));
    ASSERT_TRUE(waitUntilConnected("P2P", "p2p0"));
    EXPECT_EQ(log_.count(ANDROID_LOG_INFO, "WpaClient: Wpa socket for STA (wlan0) is created"), 1u);
    EXPECT_EQ(log_.count(ANDROID_LOG_INFO, "WpaClient: Wpa socket for P2P (p2p0) is created"), 1u);
    EXPECT_TRUE(send(kSta));
    EXPECT_TRUE(send(kP2p));
}

TEST_F(WpaClientTest, FilesThatAreNamedWlan1OrP2pWlan0AndALetterOrAnythingElseAreIgnored) {
    start();
    for (const std::string& name :
         {std::string("wlan1"), std::string("wlan00"), std::string("xwlan0"), std::string("wlan0 "),
          std::string("wlan0\n"), std::string("p2p-wlan0-a"), std::string("p2p-wlan0-"),
          std::string("p2p-wlan0-1a"), std::string("p2p-wlan1-0"), std::string("p2p01"),
          std::string("p2p1"), std::string("p2p-dev-wlan0"), std::string("P2P0"),
          std::string("\xff\xfe"), std::string(255, 'p'),
          "p2p-wlan0-" + std::string(240, '1') + "x"}) {
        createFile(name);
        std::filesystem::remove(path(name));
    }
    createFile("wlan0");  // the one that follows is told of
    ASSERT_TRUE(waitForLine("WpaClient: Wpa socket for STA (wlan0) is created"));
    for (const test::LogCapture::Line& line : log_.lines()) {
        EXPECT_THAT(line.message, Not(testing::HasSubstr("is deleted")));
        EXPECT_THAT(line.message, Not(testing::HasSubstr("Wpa socket for P2P")));
    }
}

TEST_F(WpaClientTest, GroupNumberMayHaveAnyNumberOfDigits) {
    start();
    const std::string name = "p2p-wlan0-" + std::string(240, '7');
    createFile(name);
    EXPECT_TRUE(waitForLine("WpaClient: Wpa socket for P2P (" + name + ") is created"));
}

TEST_F(WpaClientTest, CreationOfP2pWlan0Number3AfterP2p0RetargetsTheP2pSocket) {
    start();
    const test::FakeControlSocket first(path("p2p0"));
    ASSERT_TRUE(waitUntilConnected("P2P", "p2p0"));
    const test::FakeControlSocket second(path("p2p-wlan0-3"));
    ASSERT_TRUE(waitUntilConnected("P2P", "p2p-wlan0-3"));
    EXPECT_TRUE(first.waitForAttached(0));
    EXPECT_EQ(log_.count(ANDROID_LOG_DEBUG,
                         "[WPA-P2P] Enter new wpa client state 'Idle' (old 'Connected')"),
              1u);
    ASSERT_TRUE(send(kP2p));
    EXPECT_THAT(first.commands(), IsEmpty());
    EXPECT_THAT(second.commands(), ElementsAre("PING"));
}

TEST_F(WpaClientTest, DeletionOfTheSocketFileStopsTheSocket) {
    start();
    {
        const test::FakeControlSocket sta(path("wlan0"));
        ASSERT_TRUE(waitUntilConnected("STA", "wlan0"));
    }
    ASSERT_TRUE(waitForLine("[WPA-STA] Enter new wpa client state 'Stopped' (old 'Connected')"));
    EXPECT_EQ(log_.count(ANDROID_LOG_INFO, "WpaClient: Wpa socket for STA (wlan0) is deleted"), 1u);
    std::string reply;
    EXPECT_FALSE(send(kSta, reply));
    EXPECT_EQ(reply, "ERROR: NOT-CONNECTED");
}

TEST_F(WpaClientTest, DeletionOfAnyMatchingFileStopsTheP2pSocket) {
    createFile("p2p-wlan0-7");
    const test::FakeControlSocket p2p(path("p2p0"));
    start();
    ASSERT_TRUE(waitUntilConnected("P2P", "p2p0"));
    std::filesystem::remove(path("p2p-wlan0-7"));
    ASSERT_TRUE(waitForLine("[WPA-P2P] Enter new wpa client state 'Stopped' (old 'Connected')"));
    EXPECT_EQ(
        log_.count(ANDROID_LOG_INFO, "WpaClient: Wpa socket for P2P (p2p-wlan0-7) is deleted"), 1u);
    EXPECT_FALSE(send(kP2p));
}

TEST_F(WpaClientTest, EventsReachTheSubscribersOfTheirOwnKindOfInterface) {
    test::FakeControlSocket sta(path("wlan0"));
    test::FakeControlSocket p2p(path("p2p0"));
    start();
    Listener onSta;
    Listener onP2p;
    constexpr auto kRegdom = WifiClientCallbackType::WPA_REGDOM_CHANGE;
    EXPECT_EQ(client_->registerEventCallback(kRegdom, onSta.callback, kSta), 0);
    EXPECT_EQ(client_->registerEventCallback(kRegdom, onP2p.callback, kP2p), 0);
    ASSERT_TRUE(waitUntilConnected("STA", "wlan0"));
    ASSERT_TRUE(waitUntilConnected("P2P", "p2p0"));
    ASSERT_EQ(sta.sendEvent("<3>CTRL-EVENT-REGDOM-CHANGE init=USER type=COUNTRY alpha2=US"), 1u);
    ASSERT_EQ(p2p.sendEvent("<3>CTRL-EVENT-REGDOM-CHANGE init=CORE type=WORLD"), 1u);
    ASSERT_TRUE(onSta.waitFor(1));
    ASSERT_TRUE(onP2p.waitFor(1));
    EXPECT_THAT(onSta.payloads(), ElementsAre("init=USER type=COUNTRY alpha2=US"));
    EXPECT_THAT(onP2p.payloads(), ElementsAre("init=CORE type=WORLD"));
    EXPECT_TRUE(client_->unregisterEventCallback(kRegdom, 0, kSta));
    EXPECT_FALSE(client_->unregisterEventCallback(kRegdom, 0, kSta));
    EXPECT_TRUE(client_->unregisterEventCallback(kRegdom, 0, kP2p));
}

TEST_F(WpaClientTest, CommandsReachTheSocketOfTheirOwnKindOfInterface) {
    test::FakeControlSocket sta(path("wlan0"));
    test::FakeControlSocket p2p(path("p2p0"));
    sta.answerCommands([](const std::string&) { return "sta\n"; });
    p2p.answerCommands([](const std::string&) { return "p2p\n"; });
    start();
    ASSERT_TRUE(waitUntilConnected("STA", "wlan0"));
    ASSERT_TRUE(waitUntilConnected("P2P", "p2p0"));
    std::string reply;
    EXPECT_TRUE(send(kSta, reply));
    EXPECT_EQ(reply, "sta\n");
    EXPECT_TRUE(send(kP2p, reply));
    EXPECT_EQ(reply, "p2p\n");
}

TEST_F(WpaClientTest, UnknownKindOfInterfaceIsRefusedWithALine) {
    start();
    const auto unknown = static_cast<NetInterfaceType>(2);
    Listener listener;
    std::string reply = "before";
    EXPECT_EQ(client_->registerEventCallback(kConnectedType, listener.callback, unknown), -1);
    EXPECT_FALSE(client_->unregisterEventCallback(kConnectedType, 0, unknown));
    EXPECT_FALSE(client_->sendCtrlCmd("PING", reply, unknown));
    EXPECT_THAT(
        log_.messages(ANDROID_LOG_ERROR),
        ElementsAre("WpaClient: registerEventCallback: socket type UNKNOWN(2) is not supported",
                    "WpaClient: unregisterEventCallback: socket type UNKNOWN(2) is not supported",
                    "WpaClient: sendCtrlCmd: socket type UNKNOWN(2) is not supported"));
}

TEST_F(WpaClientTest, DirectoryThatDoesNotExistIsLoggedAndTheClientRunsWithoutIt) {
    client_ = std::make_unique<WpaClient>(history_, path("missing/"));
    EXPECT_THAT(
        log_.messages(ANDROID_LOG_ERROR),
        ElementsAre("WpaClient: Failed to init wpa socket directory watch descriptor: err 2"));
    EXPECT_EQ(log_.count(ANDROID_LOG_INFO, "WpaClient: Started monitoring wpa socket directory"),
              0u);
    Listener listener;
    EXPECT_EQ(client_->registerEventCallback(kConnectedType, listener.callback, kSta), 0);
    std::string reply;
    EXPECT_FALSE(send(kSta, reply));
    EXPECT_EQ(reply, "ERROR: NOT-CONNECTED");
    // The folder that appears afterwards is not watched.
    std::filesystem::create_directory(path("missing"));
    createFile("missing/wlan0");
    client_.reset();
    EXPECT_THAT(log_.messages(ANDROID_LOG_INFO), Not(Contains(testing::HasSubstr("is created"))));
}

TEST_F(WpaClientTest, DirectoryThatTheSupplicantRemovesItselfIsWatchedAgainWhenItIsBack) {
    const std::string directory = path("sockets");
    std::filesystem::create_directory(directory);
    client_ = std::make_unique<WpaClient>(history_, directory + "/");
    for (int i = 0; i < 3; ++i) {
        {
            const test::FakeControlSocket sta(directory + "/wlan0");
            ASSERT_TRUE(
                waitForLine("[WPA-STA] Connected to supplicant socket: " + directory + "/wlan0"));
            log_.clear();
        }
        std::filesystem::remove(directory);
        ASSERT_TRUE(waitForLine("WpaClient: Wpa socket for STA (wlan0) is deleted"));
        ASSERT_TRUE(waitForLine(
            "WpaClient: Wpa socket directory has been removed: waiting for the next one"));
        EXPECT_FALSE(send(kSta));

        createFile("another");  // in the parent, and of no interest
        std::filesystem::remove(path("another"));
        std::filesystem::create_directory(directory);
        ASSERT_TRUE(waitForLine("WpaClient: Started monitoring wpa socket directory"));
    }
    client_.reset();
    EXPECT_THAT(log_.messages(ANDROID_LOG_ERROR), IsEmpty());
}

TEST_F(WpaClientTest, NextDirectoryMayBeRenamedIntoItsPlace) {
    const std::string directory = path("sockets");
    ASSERT_TRUE(startAndRemove(directory));
    log_.clear();
    std::filesystem::create_directory(path("prepared"));
    const test::FakeControlSocket sta(path("prepared/wlan0"));
    std::filesystem::rename(path("prepared"), directory);
    EXPECT_TRUE(waitForLine("WpaClient: Started monitoring wpa socket directory"));
    EXPECT_TRUE(waitForLine("[WPA-STA] Connected to supplicant socket: " + directory + "/wlan0"));
}

TEST_F(WpaClientTest, SocketThatIsOlderThanTheWatchOfTheNextDirectoryIsFound) {
    const std::string directory = path("sockets");
    ASSERT_TRUE(startAndRemove(directory));
    // The whole folder in one step, with the socket in it.
    std::filesystem::create_directory(path("prepared"));
    const test::FakeControlSocket sta(path("prepared") + "/wlan0");
    std::filesystem::rename(path("prepared"), directory);
    EXPECT_TRUE(waitForLine("WpaClient: wpa STA socket file (" + directory +
                            "/wlan0) exists. Try to connect now"));
    EXPECT_TRUE(waitForLine("[WPA-STA] Connected to supplicant socket: " + directory + "/wlan0"));
}

TEST_F(WpaClientTest, DirectoryThatIsRemovedWithItsParentIsGivenUpWithALine) {
    std::filesystem::create_directories(path("wpa/sockets"));
    client_ = std::make_unique<WpaClient>(history_, path("wpa/sockets/"));
    // Both at once to the client, which would otherwise be waiting for the parent's next one.
    std::filesystem::rename(path("wpa"), path("old"));
    std::filesystem::remove(path("old/sockets"));
    EXPECT_TRUE(waitForLine("WpaClient: Wpa socket directory has been removed, and " +
                            path("wpa/") + " cannot be watched: err 2"));
}

TEST_F(WpaClientTest, ParentThatGoesAfterTheDirectoryIsGivenUpWithALine) {
    ASSERT_TRUE(startAndRemove(path("wpa/sockets")));
    std::filesystem::remove(path("wpa"));
    EXPECT_TRUE(
        waitForLine("WpaClient: Wpa socket directory has been removed with its parent: no "
                    "longer waiting for it"));
}

/** The listener stands still while more happens in the folder than the kernel keeps. */
class WpaClientOverflow : public WpaClientTest {
  protected:
    void SetUp() override {
        sta_ = std::make_unique<test::FakeControlSocket>(path("wlan0"));
        client_ = std::make_unique<WpaClient>(history_, folder_.path() + "/");
        ASSERT_TRUE(waitUntilConnected("STA", "wlan0"));
        client_->registerEventCallback(kConnectedType, holding_, kSta);
    }

    ~WpaClientOverflow() override {
        if (held_) {
            release_.set_value();
        }
        client_.reset();  // its listener uses what goes next
    }

    void holdListener() {
        ASSERT_EQ(sta_->sendEvent(kConnected), 1u);
        entered_.get_future().wait();
        held_ = true;
    }

    void releaseListener() {
        held_ = false;
        log_.clear();
        release_.set_value();
        ASSERT_TRUE(waitForLine(
            "WpaClient: Wpa socket directory updates were lost: looking at the directory again"));
    }

    /** Makes and removes more files than the kernel keeps updates of. */
    void overflow(const std::string& file = "wlan1") const {
        int limit = 0;
        std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> limit;
        ASSERT_GT(limit, 0);
        for (int i = 0; i <= limit; i += 2) {
            createFile(file);
            std::filesystem::remove(path(file));
        }
    }

    std::promise<void> entered_;
    std::promise<void> release_;
    bool held_ = false;
    std::function<void(const std::string&)> holding_ = [this](const std::string&) {
        entered_.set_value();
        release_.get_future().wait();
    };
    std::unique_ptr<test::FakeControlSocket> sta_;
};

TEST_F(WpaClientOverflow, SocketWhoseFileHasGoneIsStopped) {
    holdListener();
    overflow();
    sta_.reset();
    releaseListener();
    EXPECT_TRUE(waitForLine("WpaClient: Wpa socket for STA (wlan0) is deleted"));
    EXPECT_TRUE(waitForLine("[WPA-STA] Enter new wpa client state 'Stopped' (old 'Connected')"));
    std::string reply;
    EXPECT_FALSE(send(kSta, reply));
    EXPECT_EQ(reply, "ERROR: NOT-CONNECTED");
}

TEST_F(WpaClientOverflow, SocketWhoseFileIsAnotherOneIsConnectedAnew) {
    holdListener();
    overflow();
    sta_->crash();
    sta_ = std::make_unique<test::FakeControlSocket>(path("wlan0"));
    releaseListener();
    EXPECT_TRUE(waitForLine("WpaClient: wpa STA socket file (" + path("wlan0") +
                            ") exists. Try to connect now"));
    EXPECT_TRUE(waitUntilConnected("STA", "wlan0"));
    EXPECT_EQ(sta_->attachRequests(), 1u);
    EXPECT_TRUE(send(kSta));
}

TEST_F(WpaClientOverflow, SocketWhoseFileIsTheSameStaysConnected) {
    holdListener();
    overflow();
    // A file that appears too, so that there is something to wait for.
    const test::FakeControlSocket p2p(path("p2p0"));
    releaseListener();
    EXPECT_TRUE(waitUntilConnected("P2P", "p2p0"));
    EXPECT_TRUE(send(kSta));
    EXPECT_EQ(sta_->attachRequests(), 1u);
    EXPECT_EQ(sta_->detachRequests(), 0u);
    EXPECT_THAT(log_.messages(ANDROID_LOG_DEBUG),
                Not(Contains(testing::HasSubstr("[WPA-STA] Enter new"))));
}

TEST_F(WpaClientOverflow, NewestOfSeveralGroupSocketsIsFollowed) {
    const test::FakeControlSocket first(path("p2p0"));
    ASSERT_TRUE(waitUntilConnected("P2P", "p2p0"));
    holdListener();
    overflow();
    const test::FakeControlSocket second(path("p2p-wlan0-3"));
    releaseListener();
    EXPECT_TRUE(waitUntilConnected("P2P", "p2p-wlan0-3"));
    ASSERT_TRUE(send(kP2p));
    EXPECT_THAT(second.commands(), ElementsAre("PING"));
}

TEST_F(WpaClientOverflow, FileThatIsDeletedAfterwardsStopsItsSocket) {
    holdListener();
    overflow();
    releaseListener();
    sta_.reset();
    EXPECT_TRUE(waitForLine("[WPA-STA] Enter new wpa client state 'Stopped' (old 'Connected')"));
}

/** The folder itself may go at such a moment. */
class WpaClientDirectoryOverflow : public WpaClientOverflow {
  protected:
    void SetUp() override {
        std::filesystem::create_directory(path("sockets"));
        sta_ = std::make_unique<test::FakeControlSocket>(path("sockets/wlan0"));
        client_ = std::make_unique<WpaClient>(history_, path("sockets/"));
        ASSERT_TRUE(waitUntilConnected("STA", "sockets/wlan0"));
        client_->registerEventCallback(kConnectedType, holding_, kSta);
    }

    void loseDirectory() {
        holdListener();
        overflow("sockets/wlan1");
        sta_.reset();
        std::filesystem::remove(path("sockets"));
    }
};

TEST_F(WpaClientDirectoryOverflow, DirectoryThatHasGoneIsWaitedFor) {
    loseDirectory();
    releaseListener();
    EXPECT_TRUE(waitForLine("[WPA-STA] Enter new wpa client state 'Stopped' (old 'Connected')"));
    EXPECT_TRUE(
        waitForLine("WpaClient: Wpa socket directory has been removed: waiting for the next one"));
    std::filesystem::create_directory(path("sockets"));
    ASSERT_TRUE(waitForLine("WpaClient: Started monitoring wpa socket directory"));
    const test::FakeControlSocket sta(path("sockets/wlan0"));
    EXPECT_TRUE(waitUntilConnected("STA", "sockets/wlan0"));
}

TEST_F(WpaClientDirectoryOverflow, DirectoryThatHasBeenReplacedIsFollowed) {
    loseDirectory();
    std::filesystem::create_directory(path("sockets"));
    const test::FakeControlSocket sta(path("sockets/wlan0"));
    releaseListener();
    EXPECT_TRUE(waitUntilConnected("STA", "sockets/wlan0"));
    const test::FakeControlSocket p2p(path("sockets/p2p0"));
    EXPECT_TRUE(waitUntilConnected("P2P", "sockets/p2p0"));
}

TEST_F(WpaClientTest, SecondWatchIsRefused) {
    start();
    EXPECT_FALSE(Peer::startMonitor(*client_));
    EXPECT_EQ(log_.count(ANDROID_LOG_ERROR,
                         "WpaClient: Cannot start due to unexpected wpa socket directory "
                         "file/watch descriptor"),
              1u);
}

TEST_F(WpaClientTest, SecondListenerIsNotStarted) {
    start();
    ASSERT_TRUE(waitForLine("WpaClient: Wpa client starts listener thread."));
    const int threads = test::runningThreads();
    Peer::startListener(*client_);
    EXPECT_EQ(test::runningThreads(), threads);
}

TEST_F(WpaClientTest, WithoutADescriptorForTheWatchTheClientRunsWithoutIt) {
    start();  // once before the limit: the undefined-behaviour sanitizer opens pipes at first uses
    client_.reset();
    log_.clear();
    {
        const test::DescriptorLimit limit(2);  // the loop's and the event's
        start();
    }
    EXPECT_EQ(log_.count(ANDROID_LOG_ERROR,
                         "WpaClient: Failed to init wpa socket directory file descriptor: err 24"),
              1u);
    EXPECT_FALSE(send(kSta));
}

TEST_F(WpaClientTest, ErrorOfTheWatchLeavesTheLoop) {
    start();
    EXPECT_EQ(Peer::onSocketUpdate(*client_, -1, EPOLLERR), PollAction::Remove);
    EXPECT_EQ(Peer::onSocketUpdate(*client_, -1, EPOLLHUP | EPOLLIN), PollAction::Remove);
    EXPECT_THAT(log_.messages(ANDROID_LOG_ERROR),
                ElementsAre("WpaClient: onSocketUpdate_: unexpected poll error: 0x00000008",
                            "WpaClient: onSocketUpdate_: unexpected poll error: 0x00000011"));
}

TEST_F(WpaClientTest, WatchThatCannotBeReadIsLoggedAndKept) {
    start();
    EXPECT_EQ(Peer::onSocketUpdate(*client_, -1, EPOLLIN), PollAction::Continue);
    EXPECT_THAT(log_.messages(ANDROID_LOG_ERROR),
                ElementsAre("WpaClient: Failed to read wpa socket directory update"));
    const android::base::unique_fd empty(open("/dev/null", O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(Peer::onSocketUpdate(*client_, empty.get(), EPOLLIN), PollAction::Continue);
    EXPECT_EQ(Peer::onSocketUpdate(*client_, -1, 0), PollAction::Continue);
    EXPECT_THAT(log_.messages(ANDROID_LOG_ERROR), testing::SizeIs(1));
}

TEST_F(WpaClientTest, DestructionIsPromptAndLeavesNothingBehind) {
    start();
    client_.reset();
    const test::FakeControlSocket sta(path("wlan0"));
    const int descriptors = test::openDescriptors();
    const int threads = test::runningThreads();
    for (int i = 0; i < 20; ++i) {
        start();
        if (i % 2 == 0) {
            ASSERT_TRUE(waitUntilConnected("STA", "wlan0"));
        }
        log_.clear();
        const auto begin = std::chrono::steady_clock::now();
        client_.reset();
        // Far below the loop's own time-out of 300 s, and above what a busy machine adds.
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
    }
    EXPECT_EQ(test::openDescriptors(), descriptors);
    EXPECT_EQ(test::runningThreads(), threads);
}

TEST_F(WpaClientTest, DestructionIsSafeWithEventsInFlight) {
    test::FakeControlSocket sta(path("wlan0"));
    test::FakeControlSocket p2p(path("p2p0"));
    std::atomic<bool> stop{false};
    const auto flood = [&](test::FakeControlSocket& socket) {
        while (!stop) {
            if (socket.sendEvent("<3>CTRL-EVENT-REGDOM-CHANGE init=CORE type=WORLD") == 0) {
                std::this_thread::yield();
            }
        }
    };
    std::thread staFlood([&] { flood(sta); });
    std::thread p2pFlood([&] { flood(p2p); });
    for (int i = 0; i < 20; ++i) {
        Listener onSta;
        Listener onP2p;
        start();
        constexpr auto kRegdom = WifiClientCallbackType::WPA_REGDOM_CHANGE;
        client_->registerEventCallback(kRegdom, onSta.callback, kSta);
        client_->registerEventCallback(kRegdom, onP2p.callback, kP2p);
        EXPECT_TRUE(onSta.waitFor(3));
        EXPECT_TRUE(onP2p.waitFor(3));
        createFile("p2p-wlan0-1");  // the watch is busy too
        std::filesystem::remove(path("p2p-wlan0-1"));
        client_.reset();
    }
    stop = true;
    staFlood.join();
    p2pFlood.join();
}

TEST_F(WpaClientTest, SupplicantThatCrashesAndRestarts1000TimesLeavesNothingBehind) {
    start();
    Listener listener;
    client_->registerEventCallback(WifiClientCallbackType::WPA_STA_SCAN_RESULTS, listener.callback,
                                   kSta);
    std::optional<test::Footprint> before;
    for (size_t i = 1; i <= 1000; ++i) {
        test::FakeControlSocket supplicant(path("wlan0"));
        ASSERT_TRUE(supplicant.waitForAttached(1)) << i;
        ASSERT_EQ(supplicant.sendEvent("<3>CTRL-EVENT-SCAN-RESULTS "), 1u);
        ASSERT_TRUE(listener.waitFor(i));
        if (i % 2 == 0) {
            supplicant.crash();  // its file stays until the next one begins
        }
        log_.clear();
        if (i == 50) {
            before.emplace();
        } else if (i == 1000) {
            const test::Footprint now;
            EXPECT_EQ(now.descriptors, before->descriptors);
            EXPECT_EQ(now.threads, before->threads);
            EXPECT_LT(now.grownSince(*before), 65'536);  // of which 950 payloads
        }
    }
}

}  // namespace
}  // namespace Ursa::OS::Wifi
