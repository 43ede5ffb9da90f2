// The connection machine: the states, the reconnect timer, and the two connections.

#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include <sys/epoll.h>
#include <sys/eventfd.h>

#include "tests/client/WpaSocketFixture.h"
#include "tests/support/Descriptors.h"

namespace Ursa::OS::Wifi {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

const std::string kNotOpened = "Failed to open wpa_supplicant control interface.";

class WpaSocketState : public WpaSocketTest {
  protected:
    WpaSocketState() {
        socket_->registerEventCallback(Type::WPA_SOCKET_DISCONNECTED, disconnected_.callback);
    }

    State state() const { return Peer::state(*socket_); }

    /** The messages of every level, without their prefix. */
    std::vector<std::string> lines() const {
        const std::string prefix = "[WPA-STA] ";
        std::vector<std::string> found;
        for (const test::LogCapture::Line& line : log_.lines()) {
            EXPECT_EQ(line.tag, "CorvidWifi");
            EXPECT_EQ(line.message.substr(0, prefix.size()), prefix);
            found.push_back(line.message.substr(prefix.size()));
        }
        return found;
    }

    /** Lets the timer expire and handles that alone. */
    void expire() {
        ASSERT_TRUE(Peer::setTimer(*socket_, 0));
        pollfd timer = {Peer::timer(*socket_), POLLIN, 0};
        ASSERT_EQ(::poll(&timer, 1, 30'000), 1);
        EXPECT_EQ(Peer::onTimer(*socket_, EPOLLIN), PollAction::Continue);
    }

    /** A socket with the schedule of the product, in Connecting, before its first attempt. */
    void beginConnectingOnTheRealSchedule() {
        socket_ = WpaSocket::create(NetInterfaceType::STA, poll_, eventFd_);
        socket_->registerEventCallback(Type::WPA_SOCKET_DISCONNECTED, disconnected_.callback);
        socket_->onSocketFileCreate(path_);
        ASSERT_TRUE(turnUntil(socket_, State::Connecting));
    }

    std::shared_ptr<WpaSocket> socket_ = makeSocket();
    Subscriber disconnected_;
};

TEST_F(WpaSocketState, TheScheduleBeginsAfter25MsThenEvery50MsThenEvery5SecondsForAnHour) {
    const auto socket = WpaSocket::create(NetInterfaceType::STA, poll_, eventFd_);
    const WpaSocketTestPeer::Schedule& schedule = Peer::schedule(*socket);
    EXPECT_EQ(schedule.firstDelay, 25);
    EXPECT_EQ(schedule.fastDelay, 50);
    EXPECT_EQ(schedule.fastPhase, 5'000);
    EXPECT_EQ(schedule.slowDelay, 5'000);
    EXPECT_EQ(schedule.giveUpAfter, 3'600'000);
    EXPECT_EQ(schedule.replyTimeout, 10'000);
}

TEST_F(WpaSocketState, ANewSocketIsStoppedAndHasLoggedItsTimer) {
    EXPECT_EQ(state(), State::Stopped);
    EXPECT_EQ(Peer::previousState(*socket_), State::Stopped);
    EXPECT_THAT(lines(), ElementsAre("Initialized wpa socket reconnect timer"));
    turn();
    EXPECT_EQ(Peer::timerLeft(*socket_), 0);
    EXPECT_THAT(disconnected_.payloads, IsEmpty());
}

TEST_F(WpaSocketState, ASocketFileLeadsThroughIdleAndConnectingToConnected) {
    const test::FakeControlSocket supplicant(path_);
    log_.clear();
    ASSERT_TRUE(connect(socket_));
    EXPECT_THAT(lines(), ElementsAre("Update wpa socket file path: " + path_,
                                     "Enter new wpa client state 'Idle' (old 'Stopped')",
                                     "Disconnecting supplicant socket",
                                     "Enter new wpa client state 'Connecting' (old 'Idle')",
                                     "Start connecting to supplicant in 1 ms",
                                     "Enter new wpa client state 'Connected' (old 'Connecting')",
                                     "Connected to supplicant socket: " + path_));
    EXPECT_EQ(supplicant.attached(), 1u);
    EXPECT_THAT(disconnected_.payloads, ElementsAre("sockettype=STA"));
    EXPECT_EQ(Peer::accumulatedDelay(*socket_), 0);
}

TEST_F(WpaSocketState, EachTransitionsLineHasItsLevel) {
    const test::FakeControlSocket supplicant(path_);
    ASSERT_TRUE(connect(socket_));
    socket_->onSocketFileDelete();
    ASSERT_TRUE(turnUntil(socket_, State::Stopped));
    EXPECT_EQ(infos("Update wpa socket file path: " + path_), 1u);
    EXPECT_EQ(infos("Reset wpa socket file path"), 1u);
    EXPECT_EQ(infos("Disconnecting supplicant socket"), 2u);
    EXPECT_EQ(infos("Start connecting to supplicant in 1 ms"), 1u);
    EXPECT_EQ(infos("Connected to supplicant socket: " + path_), 1u);
    EXPECT_EQ(
        count(ANDROID_LOG_DEBUG, "STA", "Enter new wpa client state 'Stopped' (old 'Connected')"),
        1u);
    EXPECT_THAT(log_.messages(ANDROID_LOG_ERROR), IsEmpty());
    EXPECT_THAT(log_.messages(ANDROID_LOG_WARN), IsEmpty());
}

TEST_F(WpaSocketState, AP2pSocketNamesItsKindInLinesAndPayload) {
    const test::FakeControlSocket supplicant(path_);
    const auto p2p = makeSocket(NetInterfaceType::P2P);
    Subscriber disconnected;
    p2p->registerEventCallback(Type::WPA_SOCKET_DISCONNECTED, disconnected.callback);
    ASSERT_TRUE(connect(p2p));
    EXPECT_THAT(disconnected.payloads, ElementsAre("sockettype=P2P"));
    EXPECT_EQ(count(ANDROID_LOG_INFO, "P2P", "Connected to supplicant socket: " + path_), 1u);
}

TEST_F(WpaSocketState, ASocketFileCreatedTwiceWhileConnectedDisconnectsOnceAndConnectsAfresh) {
    const test::FakeControlSocket supplicant(path_);
    ASSERT_TRUE(connect(socket_));
    disconnected_.payloads.clear();
    log_.clear();
    socket_->onSocketFileCreate(path_);
    socket_->onSocketFileCreate(path_);
    ASSERT_TRUE(turnUntil(socket_, State::Idle));
    ASSERT_TRUE(turnUntil(socket_, State::Connected));
    turn();
    EXPECT_EQ(state(), State::Connected);
    EXPECT_THAT(disconnected_.payloads, ElementsAre("sockettype=STA"));
    EXPECT_EQ(supplicant.detachRequests(), 1u);
    EXPECT_EQ(supplicant.attachRequests(), 2u);
    EXPECT_EQ(supplicant.attached(), 1u);
    EXPECT_THAT(log_.messages(ANDROID_LOG_WARN), IsEmpty());
}

TEST_F(WpaSocketState, ASocketFileCreatedWhileConnectingStartsAnewAtTheFirstDelay) {
    socket_->onSocketFileCreate(path_);  // nobody listens
    ASSERT_TRUE(turnUntil([&] { return Peer::accumulatedDelay(*socket_) > 0; }));
    socket_->onSocketFileCreate(path_);
    ASSERT_TRUE(turnUntil(socket_, State::Idle));
    ASSERT_TRUE(turnUntil(socket_, State::Connecting));
    EXPECT_EQ(Peer::accumulatedDelay(*socket_), 0);
}

TEST_F(WpaSocketState, DeletingTheSocketFileStopsAConnectedSocket) {
    const test::FakeControlSocket supplicant(path_);
    ASSERT_TRUE(connect(socket_));
    socket_->onSocketFileDelete();
    ASSERT_TRUE(turnUntil(socket_, State::Stopped));
    EXPECT_THAT(disconnected_.payloads, ElementsAre("sockettype=STA", "sockettype=STA"));
    EXPECT_EQ(supplicant.detachRequests(), 1u);
    EXPECT_EQ(Peer::monitor(*socket_), -1);
    EXPECT_FALSE(Peer::hasCommand(*socket_));
}

TEST_F(WpaSocketState, DeletingTheSocketFileStopsAConnectingSocketAndDisarmsTheTimer) {
    socket_->onSocketFileCreate(path_);
    ASSERT_TRUE(turnUntil(socket_, State::Connecting));
    socket_->onSocketFileDelete();
    ASSERT_TRUE(turnUntil(socket_, State::Stopped));
    EXPECT_EQ(Peer::timerLeft(*socket_), 0);
}

TEST_F(WpaSocketState, DeletingTheSocketFileOfAStoppedSocketChangesNothing) {
    log_.clear();
    socket_->onSocketFileDelete();
    turn();
    EXPECT_THAT(lines(), ElementsAre("Reset wpa socket file path"));
    EXPECT_THAT(disconnected_.payloads, IsEmpty());
}

TEST_F(WpaSocketState, ConnectingIsEnteredFromIdleOnly) {
    Peer::updateState(*socket_, State::Connecting);
    EXPECT_EQ(state(), State::Stopped);
    EXPECT_EQ(warnings("Cannot enter Connecting from non-Idle states. Revert back to old state: "
                       "Stopped"),
              1u);

    const test::FakeControlSocket supplicant(path_);
    ASSERT_TRUE(connect(socket_));
    Peer::updateState(*socket_, State::Connecting);
    EXPECT_EQ(state(), State::Connected);
    EXPECT_EQ(warnings("Cannot enter Connecting from non-Idle states. Revert back to old state: "
                       "Connected"),
              1u);
    std::string reply;
    EXPECT_TRUE(socket_->sendCtrlCmd("PING", reply));
}

TEST_F(WpaSocketState, AStateOutsideTheFourIsLoggedAndPrintedAsUnknown) {
    Peer::updateState(*socket_, static_cast<State>(7));
    EXPECT_EQ(errors("Wpa socket in wrong state 7"), 1u);
    EXPECT_EQ(
        count(ANDROID_LOG_DEBUG, "STA", "Enter new wpa client state 'Unknown' (old 'Stopped')"),
        1u);
    Peer::updateState(*socket_, State::Stopped);
    EXPECT_EQ(errors("Wpa socket in wrong state 7"), 2u);
    EXPECT_EQ(
        count(ANDROID_LOG_DEBUG, "STA", "Enter new wpa client state 'Stopped' (old 'Unknown')"),
        1u);
}

TEST_F(WpaSocketState, EveryRetryWithoutASupplicantGivesOneNotificationAndOneErrorLine) {
    { const test::FakeControlSocket left(path_); }
    {
        test::FakeControlSocket crashed(path_);
        crashed.crash();  // the file is there, nobody behind it
    }
    socket_->onSocketFileCreate(path_);
    ASSERT_TRUE(turnUntil(socket_, State::Connecting));
    ASSERT_TRUE(turnUntil([&] { return errors(kNotOpened) == 3; }));
    EXPECT_EQ(disconnected_.payloads.size(), 1u + 3u);  // one of entering Idle
}

TEST_F(WpaSocketState, RetriesAreFastAtFirstThenSlowAndEndInStopped) {
    std::vector<int64_t> delays;
    std::function<void(const std::string&)> noting = [&](const std::string&) {
        delays.push_back(Peer::accumulatedDelay(*socket_));
    };
    socket_->registerEventCallback(Type::WPA_SOCKET_DISCONNECTED, noting);
    socket_->onSocketFileCreate(path_);
    ASSERT_TRUE(turnUntil(socket_, State::Connecting));
    ASSERT_TRUE(turnUntil(socket_, State::Stopped));
    // Entering Idle; the attempts (three fast ones until 6 ms, two slow ones until 12); Stopped.
    EXPECT_THAT(delays, ElementsAre(0, 0, 2, 4, 6, 9, 12));
    EXPECT_EQ(errors(kNotOpened), 5u);
    EXPECT_EQ(errors("Failed to connect to supplicant after timeout 12 ms => stop"), 1u);
    EXPECT_EQ(Peer::timerLeft(*socket_), 0);
}

TEST_F(WpaSocketState, TheTimerIsArmedFor25MsThen50MsUntil5SecondsThen5Seconds) {
    beginConnectingOnTheRealSchedule();
    EXPECT_EQ(infos("Start connecting to supplicant in 25 ms"), 1u);
    expire();
    EXPECT_EQ(Peer::accumulatedDelay(*socket_), 50);
    EXPECT_THAT(Peer::timerLeft(*socket_), testing::AllOf(testing::Gt(0), testing::Le(50)));
    Peer::accumulatedDelay(*socket_) = 4'950;
    expire();
    EXPECT_EQ(Peer::accumulatedDelay(*socket_), 5'000);
    EXPECT_THAT(Peer::timerLeft(*socket_), testing::Le(50));
    expire();
    EXPECT_EQ(Peer::accumulatedDelay(*socket_), 10'000);
    EXPECT_THAT(Peer::timerLeft(*socket_), testing::AllOf(testing::Gt(50), testing::Le(5'000)));
}

TEST_F(WpaSocketState, AfterOneHourInVainTheSocketStops) {
    beginConnectingOnTheRealSchedule();
    Peer::accumulatedDelay(*socket_) = 3'595'000;
    expire();
    EXPECT_EQ(Peer::accumulatedDelay(*socket_), 3'600'000);
    turn();
    EXPECT_EQ(state(), State::Connecting);
    expire();
    EXPECT_EQ(errors("Failed to connect to supplicant after timeout 3600000 ms => stop"), 1u);
    turn();
    EXPECT_EQ(state(), State::Stopped);

    // It begins again when the file is created again.
    const test::FakeControlSocket supplicant(path_);
    ASSERT_TRUE(connect(socket_));
}

TEST_F(WpaSocketState, ASupplicantThatAppearsBehindItsFileIsFoundByARetry) {
    beginConnectingOnTheRealSchedule();
    expire();
    const test::FakeControlSocket supplicant(path_);
    ASSERT_TRUE(turnUntil(socket_, State::Connected));
    EXPECT_EQ(Peer::accumulatedDelay(*socket_), 0);
}

TEST_F(WpaSocketState, ARefusedAttachIsLoggedAndRetried) {
    test::FakeControlSocket supplicant(path_);
    supplicant.answerAttach(test::FakeControlSocket::Attach::Refuse);
    socket_->onSocketFileCreate(path_);
    const std::string refused =
        "Failed to register as event monitor for wpa_supplicant control interface.";
    ASSERT_TRUE(turnUntil([&] { return errors(refused) == 2; }));
    EXPECT_EQ(state(), State::Connecting);
    EXPECT_EQ(Peer::monitor(*socket_), -1);
    supplicant.answerAttach(test::FakeControlSocket::Attach::Accept);
    ASSERT_TRUE(turnUntil(socket_, State::Connected));
}

TEST_F(WpaSocketState, AttachThatNobodyAnswersFailsAfterTheTimeout) {
    test::FakeControlSocket supplicant(path_);
    supplicant.answerAttach(test::FakeControlSocket::Attach::Ignore);
    socket_ = makeSocket(NetInterfaceType::STA, kImpatient);
    socket_->onSocketFileCreate(path_);
    ASSERT_TRUE(turnUntil(socket_, State::Connecting));
    EXPECT_EQ(Peer::connect(*socket_), -2);
    EXPECT_EQ(Peer::monitor(*socket_), -1);
}

TEST_F(WpaSocketState, ACommandConnectionThatCannotOpenClosesTheMonitorToo) {
    const test::FakeControlSocket supplicant(path_);
    socket_->onSocketFileCreate(path_);
    ASSERT_TRUE(turnUntil(socket_, State::Connecting));
    // Once before the limit: the undefined-behaviour sanitizer opens pipes at first uses.
    ASSERT_EQ(Peer::connect(*socket_), 0);
    Peer::disconnect(*socket_);
    ASSERT_EQ(supplicant.detachRequests(), 1u);
    {
        const test::DescriptorLimit limit(1);  // enough for the monitor
        EXPECT_EQ(Peer::connect(*socket_), -1);
        EXPECT_NE(Peer::monitor(*socket_), -1);
        EXPECT_FALSE(Peer::hasCommand(*socket_));
    }
    Peer::disconnect(*socket_);
    EXPECT_EQ(Peer::monitor(*socket_), -1);
    EXPECT_EQ(supplicant.detachRequests(), 2u);
    ASSERT_TRUE(turnUntil(socket_, State::Connected));
}

TEST_F(WpaSocketState, EachResultOfAnAttemptHasItsCode) {
    EXPECT_EQ(Peer::connect(*socket_), -5);  // no path yet
    const test::FakeControlSocket supplicant(path_);
    socket_->onSocketFileCreate(folder_.file("nobody"));
    EXPECT_EQ(Peer::connect(*socket_), -1);
    socket_->onSocketFileCreate(path_);
    EXPECT_EQ(Peer::connect(*socket_), 0);
    EXPECT_EQ(Peer::connect(*socket_), 0);  // already connected
    EXPECT_EQ(supplicant.attachRequests(), 1u);
    Peer::dropCommand(*socket_);
    EXPECT_EQ(Peer::connect(*socket_), -4);
}

TEST_F(WpaSocketState, EachErrorCodeHasItsMessageOnceInARow) {
    const std::vector<std::string> messages = {
        "Wpa socket file path is not ready",
        "Unexpected non-empty pointers to supplicant hal/death/ctrl interfaces",
        "Failed to get ISupplicant service",
        "Failed to register as event monitor for wpa_supplicant control interface.",
        kNotOpened,
    };
    log_.clear();
    int last = 0;
    for (const int error : {-5, -5, -4, -3, -2, -1, -1, 0, -6, 1}) {
        Peer::updateConnectError(*socket_, &last, error);
        EXPECT_EQ(last, error);
    }
    EXPECT_THAT(lines(), ElementsAreArray(messages));
    for (const std::string& message : messages) {
        EXPECT_EQ(errors(message), 1u);
    }
}

TEST_F(WpaSocketState, ATimerThatExpiresOutsideConnectingOnlyDisarms) {
    ASSERT_TRUE(Peer::setTimer(*socket_, 1));
    ASSERT_TRUE(turnUntil([&] {
        return infos(
                   "onReconnectTimerFire_: exit timer since it is no longer in Connecting "
                   "state") == 1;
    }));
    EXPECT_EQ(Peer::timerLeft(*socket_), 0);
    EXPECT_EQ(state(), State::Stopped);
    EXPECT_THAT(disconnected_.payloads, IsEmpty());
}

TEST_F(WpaSocketState, AnErrorOnTheTimerLeavesTheLoop) {
    EXPECT_EQ(Peer::onTimer(*socket_, EPOLLERR), PollAction::Remove);
    EXPECT_EQ(errors("onReconnectTimerFire_: unexpected poll error: 0x00000008"), 1u);
    EXPECT_EQ(Peer::onTimer(*socket_, EPOLLHUP | EPOLLIN), PollAction::Remove);
    EXPECT_EQ(errors("onReconnectTimerFire_: unexpected poll error: 0x00000011"), 1u);
}

TEST_F(WpaSocketState, ATimerEventWithoutAnExpiryIsLogged) {
    EXPECT_EQ(Peer::onTimer(*socket_, EPOLLIN), PollAction::Continue);
    EXPECT_EQ(errors("onReconnectTimerFire_: no valid reconnect timer event"), 1u);
    EXPECT_EQ(Peer::onTimer(*socket_, 0), PollAction::Continue);
    EXPECT_EQ(errors("onReconnectTimerFire_: no valid reconnect timer event"), 1u);
}

TEST_F(WpaSocketState, TheTimersDelayIsMillisecondsZeroIsAtOnceAndNegativeDisarms) {
    EXPECT_TRUE(Peer::setTimer(*socket_, 61'500));
    EXPECT_THAT(Peer::timerLeft(*socket_),
                testing::AllOf(testing::Gt(31'500), testing::Le(61'500)));
    EXPECT_TRUE(Peer::setTimer(*socket_, -1));
    EXPECT_EQ(Peer::timerLeft(*socket_), 0);
    EXPECT_TRUE(Peer::setTimer(*socket_, 0));
    pollfd timer = {Peer::timer(*socket_), POLLIN, 0};
    EXPECT_EQ(::poll(&timer, 1, 30'000), 1);
}

TEST_F(WpaSocketState, ATimerThatCannotBeSetIsLogged) {
    const int noTimer = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const android::base::unique_fd timer(dup(Peer::timer(*socket_)));
    ASSERT_NE(dup2(noTimer, Peer::timer(*socket_)), -1);
    EXPECT_FALSE(Peer::setTimer(*socket_, 50));
    EXPECT_EQ(errors("Failed to config wpa socket reconnect timer with delay = 50 ms: err 22"), 1u);
    ASSERT_NE(dup2(timer.get(), Peer::timer(*socket_)), -1);
    close(noTimer);
}

TEST_F(WpaSocketState, ASecondTimerIsRefused) {
    EXPECT_FALSE(Peer::initTimer(*socket_));
    EXPECT_EQ(errors("Cannot initialize wpa socket reconnect timer due to the unexpected file "
                     "descriptor"),
              1u);
}

TEST_F(WpaSocketState, WithoutADescriptorForTheTimerTheSocketRunsWithoutOne) {
    std::shared_ptr<WpaSocket> without;
    // Once before the limit: the undefined-behaviour sanitizer opens a pipe at a type's first use.
    makeSocket();
    {
        const test::DescriptorLimit limit(0);
        without = makeSocket();
    }
    EXPECT_EQ(errors("Failed to init wpa socket reconnect timer: err 24"), 1u);
    without->onSocketFileCreate(path_);
    turn();
    EXPECT_EQ(Peer::state(*without), State::Connecting);
    EXPECT_EQ(warnings("Failed to config wpa socket reconnect timer due to no valid fd"), 2u);
    log_.clear();
    without.reset();
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(WpaSocketState, DestructionLeavesTheLoopClosesBothConnectionsAndSendsNothing) {
    const test::FakeControlSocket supplicant(path_);
    const int before = test::openDescriptors();
    auto other = makeSocket();
    ASSERT_TRUE(connect(other));
    EXPECT_EQ(test::openDescriptors(), before + 3);
    log_.clear();
    other.reset();
    EXPECT_EQ(test::openDescriptors(), before);
    EXPECT_EQ(supplicant.detachRequests(), 0u);
    EXPECT_THAT(lines(), ElementsAre("Deinitialized wpa socket reconnect timer"));
    EXPECT_EQ(infos("Deinitialized wpa socket reconnect timer"), 1u);
    EXPECT_EQ(poll_->poll(0), 0);
}

TEST_F(WpaSocketState, StatesPostedBeforeTheDestructionAreDropped) {
    auto other = makeSocket();
    other->onSocketFileCreate(path_);
    other->onSocketFileDelete();
    other.reset();
    log_.clear();
    turn();
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(WpaSocketState, AFileThatIsRecreatedWhileAnAttemptSucceedsLeavesASocketThatWorks) {
    // Both are ready in one turn of the loop: first the news of the file, then the timer. So the
    // attempt succeeds before the states that the news asked for are entered.
    const test::FakeControlSocket supplicant(path_);
    const android::base::unique_fd news(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
    poll_->addFd(news.get(), EPOLLIN, [&](int, int) {
        socket_->onSocketFileDelete();
        socket_->onSocketFileCreate(path_);
        return PollAction::Remove;
    });
    socket_->onSocketFileCreate(path_);
    while (state() != State::Connecting) {
        poll_->poll(0);
    }
    eventfd_write(news.get(), 1);
    pollfd timer = {Peer::timer(*socket_), POLLIN, 0};
    ASSERT_EQ(::poll(&timer, 1, 30'000), 1);
    ASSERT_EQ(poll_->poll(0), 2);
    ASSERT_EQ(supplicant.attachRequests(), 1u);  // the order of the two was as wanted

    ASSERT_TRUE(turnUntil([&] { return supplicant.attachRequests() == 2; }));
    ASSERT_TRUE(turnUntil(socket_, State::Connected));
    std::string reply;
    EXPECT_TRUE(socket_->sendCtrlCmd("PING", reply));
    EXPECT_THAT(log_.messages(ANDROID_LOG_WARN), IsEmpty());
}

TEST_F(WpaSocketState, AFileThatIsDeletedJustBeforeAnAttemptLeavesAStoppedSocket) {
    const test::FakeControlSocket supplicant(path_);
    const android::base::unique_fd news(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
    poll_->addFd(news.get(), EPOLLIN, [&](int, int) {
        socket_->onSocketFileDelete();
        return PollAction::Remove;
    });
    socket_->onSocketFileCreate(path_);
    while (state() != State::Connecting) {
        poll_->poll(0);
    }
    eventfd_write(news.get(), 1);
    pollfd timer = {Peer::timer(*socket_), POLLIN, 0};
    ASSERT_EQ(::poll(&timer, 1, 30'000), 1);
    turn();
    EXPECT_EQ(errors("Wpa socket file path is not ready"), 1u);
    EXPECT_EQ(state(), State::Stopped);
    EXPECT_EQ(Peer::monitor(*socket_), -1);
}

TEST_F(WpaSocketState, AFileThatIsCreatedAnewWhileTheSocketGivesUpIsTriedAnew) {
    const android::base::unique_fd news(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
    poll_->addFd(news.get(), EPOLLIN, [&](int, int) {
        socket_->onSocketFileCreate(path_);
        return PollAction::Remove;
    });
    socket_->onSocketFileCreate(path_);
    while (state() != State::Connecting) {
        poll_->poll(0);
    }
    const test::FakeControlSocket supplicant(path_);
    Peer::accumulatedDelay(*socket_) = kQuick.giveUpAfter;
    eventfd_write(news.get(), 1);
    pollfd timer = {Peer::timer(*socket_), POLLIN, 0};
    ASSERT_EQ(::poll(&timer, 1, 30'000), 1);
    ASSERT_EQ(poll_->poll(0), 2);
    EXPECT_EQ(errors("Failed to connect to supplicant after timeout 12 ms => stop"), 1u);
    ASSERT_TRUE(turnUntil(socket_, State::Connected));
}

TEST_F(WpaSocketState, ASupplicantThatCrashesAndRestarts1000TimesLeavesNothingBehind) {
    int descriptors = 0;
    int threads = 0;
    size_t memory = 0;
    for (int i = 0; i <= 1000; ++i) {
        test::FakeControlSocket supplicant(path_);
        ASSERT_TRUE(connect(socket_)) << i;
        ASSERT_EQ(supplicant.attached(), 1u);
        ASSERT_EQ(supplicant.sendEvent("<3>CTRL-EVENT-SCAN-RESULTS "), 1u);
        supplicant.crash();
        log_.clear();
        disconnected_.payloads.clear();
        if (i == 20) {  // every lazily made thing exists by now
            descriptors = test::openDescriptors();
            threads = test::runningThreads();
            memory = mallinfo2().uordblks;
        } else if (i == 1000) {
            EXPECT_EQ(test::openDescriptors(), descriptors);
            EXPECT_EQ(test::runningThreads(), threads);
            EXPECT_LT(mallinfo2().uordblks, memory + 16'384);
        }
    }
    EXPECT_EQ(state(), State::Connected);
}

}  // namespace
}  // namespace Ursa::OS::Wifi
