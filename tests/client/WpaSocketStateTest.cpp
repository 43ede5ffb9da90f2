// The connection machine: the states, the reconnect timer, and the two connections.

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <sys/epoll.h>
#include <sys/eventfd.h>

#include "tests/client/WpaSocketFixture.h"
#include "tests/support/Descriptors.h"
#include "tests/support/Footprint.h"

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

    State state() const { return socket_->state(); }

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

    std::shared_ptr<WpaSocket> socket_ = makeSocket();
    Subscriber disconnected_;
};

TEST_F(WpaSocketState, NewSocketIsStoppedAndHasLoggedItsTimer) {
    EXPECT_EQ(state(), State::Stopped);
    EXPECT_THAT(lines(), ElementsAre("Initialized wpa socket reconnect timer"));
    turn();
    EXPECT_FALSE(timerIsArmed());
    EXPECT_THAT(disconnected_.payloads, IsEmpty());
}

TEST_F(WpaSocketState, SocketFileLeadsThroughIdleAndConnectingToConnected) {
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

TEST_F(WpaSocketState, P2pSocketNamesItsKindInLinesAndPayload) {
    const test::FakeControlSocket supplicant(path_);
    const auto p2p = makeSocket(NetInterfaceType::P2P);
    Subscriber disconnected;
    p2p->registerEventCallback(Type::WPA_SOCKET_DISCONNECTED, disconnected.callback);
    ASSERT_TRUE(connect(p2p));
    EXPECT_THAT(disconnected.payloads, ElementsAre("sockettype=P2P"));
    EXPECT_EQ(count(ANDROID_LOG_INFO, "P2P", "Connected to supplicant socket: " + path_), 1u);
}

TEST_F(WpaSocketState, SocketFileCreatedTwiceWhileConnectedDisconnectsOnceAndConnectsAfresh) {
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

TEST_F(WpaSocketState, SocketFileCreatedWhileConnectingStartsAnewAtTheFirstDelay) {
    socket_->onSocketFileCreate(path_);  // nobody listens
    ASSERT_TRUE(turnUntil([&] { return errors(kNotOpened) == 3; }));
    socket_->onSocketFileCreate(path_);
    ASSERT_TRUE(turnUntil(socket_, State::Idle));
    // Three, or four if the next one was due when the file came.
    const auto before = errors(kNotOpened);
    ASSERT_TRUE(turnUntil(socket_, State::Connecting));
    EXPECT_EQ(infos("Start connecting to supplicant in 1 ms"), 2u);
    ASSERT_TRUE(turnUntil(socket_, State::Stopped));
    EXPECT_EQ(errors(kNotOpened), before + 5u);
}

TEST_F(WpaSocketState, DeletingTheSocketFileStopsAConnectedSocket) {
    const test::FakeControlSocket supplicant(path_);
    ASSERT_TRUE(connect(socket_));
    socket_->onSocketFileDelete();
    ASSERT_TRUE(turnUntil(socket_, State::Stopped));
    EXPECT_THAT(disconnected_.payloads, ElementsAre("sockettype=STA", "sockettype=STA"));
    EXPECT_EQ(supplicant.detachRequests(), 1u);
    EXPECT_THAT(connections(), IsEmpty());
}

TEST_F(WpaSocketState, DeletingTheSocketFileStopsAConnectingSocketAndDisarmsTheTimer) {
    socket_->onSocketFileCreate(path_);
    ASSERT_TRUE(turnUntil(socket_, State::Connecting));
    socket_->onSocketFileDelete();
    ASSERT_TRUE(turnUntil(socket_, State::Stopped));
    EXPECT_FALSE(timerIsArmed());
}

TEST_F(WpaSocketState, DeletingTheSocketFileOfAStoppedSocketChangesNothing) {
    log_.clear();
    socket_->onSocketFileDelete();
    turn();
    EXPECT_THAT(lines(), ElementsAre("Reset wpa socket file path"));
    EXPECT_THAT(disconnected_.payloads, IsEmpty());
}

TEST_F(WpaSocketState, ConnectingIsEnteredFromIdleOnly) {
    // Idle asks for Connecting, one turn later; by then the file has gone.
    socket_->onSocketFileCreate(path_);
    socket_->onSocketFileDelete();
    turn();
    EXPECT_EQ(state(), State::Stopped);
    EXPECT_EQ(warnings("Cannot enter Connecting from non-Idle states. Revert back to old state: "
                       "Stopped"),
              1u);
    EXPECT_FALSE(timerIsArmed());
    const test::FakeControlSocket supplicant(path_);
    ASSERT_TRUE(connect(socket_));
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

TEST_F(WpaSocketState, RetriesGoOnUntilTheScheduleIsOverAndBeginAgainWithTheNextFile) {
    for (size_t round = 1; round <= 2; ++round) {
        socket_->onSocketFileCreate(path_);
        ASSERT_TRUE(turnUntil(socket_, State::Connecting));
        ASSERT_TRUE(turnUntil(socket_, State::Stopped));
        // Three fast attempts until 6 ms, two slow ones until 12.
        EXPECT_EQ(errors(kNotOpened), 5 * round);
        EXPECT_EQ(errors("Failed to connect to supplicant after timeout 12 ms => stop"), round);
        // Entering Idle, the attempts, entering Stopped.
        EXPECT_EQ(disconnected_.payloads.size(), 7 * round);
        EXPECT_FALSE(timerIsArmed());
    }
    const test::FakeControlSocket supplicant(path_);
    ASSERT_TRUE(connect(socket_));
}

TEST_F(WpaSocketState, SupplicantThatAppearsBehindItsFileIsFoundByARetryOfTheRealSchedule) {
    socket_ = WpaSocket::create(NetInterfaceType::STA, poll_, eventFd_, history_);
    socket_->onSocketFileCreate(path_);
    ASSERT_TRUE(turnUntil([&] { return errors(kNotOpened) == 1; }));
    EXPECT_EQ(infos("Start connecting to supplicant in 25 ms"), 1u);
    const test::FakeControlSocket supplicant(path_);
    ASSERT_TRUE(turnUntil(socket_, State::Connected));
}

TEST_F(WpaSocketState, ExpiryInTheTurnThatStopsTheSocketMakesNoAttempt) {
    // Both are ready in one turn of the loop: first the task that stops the socket, then the timer,
    // which that task disarms.
    socket_->onSocketFileCreate(path_);
    while (state() != State::Connecting) {
        poll_->poll(0);
    }
    socket_->onSocketFileDelete();
    ASSERT_TRUE(waitForTimer());
    ASSERT_EQ(poll_->poll(0), 2);
    EXPECT_EQ(state(), State::Stopped);
    EXPECT_THAT(log_.messages(ANDROID_LOG_ERROR),
                ElementsAre("[WPA-STA] onReconnectTimerFire_: no valid reconnect timer event"));
    EXPECT_FALSE(timerIsArmed());
}

TEST_F(WpaSocketState, RefusedAttachIsLoggedAndRetried) {
    test::FakeControlSocket supplicant(path_);
    supplicant.answerAttach(test::FakeControlSocket::Attach::Refuse);
    socket_->onSocketFileCreate(path_);
    const std::string refused =
        "Failed to register as event monitor for wpa_supplicant control interface.";
    ASSERT_TRUE(turnUntil([&] { return errors(refused) == 2; }));
    EXPECT_EQ(state(), State::Connecting);
    EXPECT_THAT(connections(), IsEmpty());
    supplicant.answerAttach(test::FakeControlSocket::Attach::Accept);
    ASSERT_TRUE(turnUntil(socket_, State::Connected));
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
    EXPECT_EQ(without->state(), State::Connecting);
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

TEST_F(WpaSocketState, FileThatIsRecreatedWhileAnAttemptSucceedsLeavesASocketThatWorks) {
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
    makeReadyBeforeTimer(news.get());
    ASSERT_EQ(poll_->poll(0), 2);
    ASSERT_EQ(supplicant.attachRequests(), 1u);  // the order of the two was as wanted

    ASSERT_TRUE(turnUntil([&] { return supplicant.attachRequests() == 2; }));
    ASSERT_TRUE(turnUntil(socket_, State::Connected));
    std::string reply;
    EXPECT_TRUE(socket_->sendCtrlCmd("PING", reply));
    EXPECT_THAT(log_.messages(ANDROID_LOG_WARN), IsEmpty());
}

TEST_F(WpaSocketState, FileThatIsDeletedJustBeforeAnAttemptLeavesAStoppedSocket) {
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
    makeReadyBeforeTimer(news.get());
    turn();
    EXPECT_EQ(errors("Wpa socket file path is not ready"), 1u);
    EXPECT_EQ(state(), State::Stopped);
    EXPECT_THAT(connections(), IsEmpty());
}

TEST_F(WpaSocketState, FileThatIsCreatedAnewWhileTheSocketGivesUpIsTriedAnew) {
    const android::base::unique_fd news(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
    poll_->addFd(news.get(), EPOLLIN, [&](int, int) {
        socket_->onSocketFileCreate(path_);
        return PollAction::Remove;
    });
    socket_->onSocketFileCreate(path_);
    while (state() != State::Connecting) {
        poll_->poll(0);
    }
    ASSERT_TRUE(turnUntil([&] { return errors(kNotOpened) == 5; }));  // the next one gives up
    const test::FakeControlSocket supplicant(path_);
    makeReadyBeforeTimer(news.get());
    ASSERT_EQ(poll_->poll(0), 2);
    EXPECT_EQ(errors("Failed to connect to supplicant after timeout 12 ms => stop"), 1u);
    ASSERT_TRUE(turnUntil(socket_, State::Connected));
}

TEST_F(WpaSocketState, SupplicantThatCrashesAndRestarts1000TimesLeavesNothingBehind) {
    std::optional<test::Footprint> before;
    for (int i = 0; i <= 1000; ++i) {
        test::FakeControlSocket supplicant(path_);
        ASSERT_TRUE(connect(socket_)) << i;
        ASSERT_EQ(supplicant.attached(), 1u);
        ASSERT_EQ(supplicant.sendEvent("<3>CTRL-EVENT-SCAN-RESULTS "), 1u);
        supplicant.crash();
        log_.clear();
        disconnected_.payloads.clear();
        if (i == 20) {  // every lazily made thing exists by now
            before.emplace();
        } else if (i == 1000) {
            const test::Footprint now;
            EXPECT_EQ(now.descriptors, before->descriptors);
            EXPECT_EQ(now.threads, before->threads);
            EXPECT_LT(now.grownSince(*before), 16'384);
        }
    }
    EXPECT_EQ(state(), State::Connected);
}

}  // namespace
}  // namespace Ursa::OS::Wifi
