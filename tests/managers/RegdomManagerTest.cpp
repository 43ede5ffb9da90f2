#include <condition_variable>
#include <mutex>
#include <thread>

#include "managers/RegdomManager.h"
#include "tests/support/ManagerTest.h"
#include "tests/support/Patience.h"

namespace Ursa::OS::Wifi {

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class RegdomManagerTest : public ManagerTest {
  protected:
    /** Delivers the event with this text behind its name. */
    void regdomChange(const std::string& text, NetInterfaceType type = NetInterfaceType::STA) {
        deliver(type, "CTRL-EVENT-REGDOM-CHANGE " + text);
    }

    void link() { ASSERT_TRUE(manager_.linkRegdomUpdatedCallback(listener_)); }

    /** What the listener was told so far, "init type alpha2" each. */
    std::vector<std::string> heard() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return heard_;
    }

    RegdomManager manager_{client_};
    std::mutex mutex_;
    std::vector<std::string> heard_;
    RegdomManager::Listener listener_ = [this](const RegdomUpdatedResult& result) {
        const std::lock_guard<std::mutex> lock(mutex_);
        heard_.push_back(result.init + " " + result.type + " " + result.alpha2);
    };
};

TEST_F(RegdomManagerTest, ATwoLetterCodeIsKept) {
    link();
    regdomChange("init=USER type=COUNTRY alpha2=US");
    EXPECT_THAT(heard(), ElementsAre("USER COUNTRY US"));
    EXPECT_THAT(debugs(),
                ElementsAre("RegdomManager: onRegdomUpdated(init=USER type=COUNTRY alpha2=US)",
                            "RegdomManager: Notify regdom updated event"));
}

TEST_F(RegdomManagerTest, TheWorldDomainWithoutACodeIsXz) {
    link();
    regdomChange("init=CORE type=WORLD");
    EXPECT_THAT(heard(), ElementsAre("CORE WORLD XZ"));
}

TEST_F(RegdomManagerTest, AnyOtherDomainWithoutACodeIs00) {
    link();
    regdomChange("init=DRIVER type=CUSTOM_WORLD");
    regdomChange("init=USER type=INTERSECTION");
    regdomChange("init=USER type=world");
    EXPECT_THAT(heard(),
                ElementsAre("DRIVER CUSTOM_WORLD 00", "USER INTERSECTION 00", "USER world 00"));
}

TEST_F(RegdomManagerTest, TheWorldDomainKeepsACodeOfItsOwn) {
    link();
    regdomChange("init=CORE type=WORLD alpha2=DE");
    EXPECT_THAT(heard(), ElementsAre("CORE WORLD DE"));
}

TEST_F(RegdomManagerTest, AnEventThatDoesNotParseIsAnErrorAndDropped) {
    link();
    regdomChange("type=COUNTRY alpha2=US");
    regdomChange("init=USER alpha2=US");
    regdomChange("init=USER type=COUNTRY alpha2=USA");
    EXPECT_THAT(heard(), IsEmpty());
    EXPECT_EQ(log_.count(ANDROID_LOG_ERROR, "RegdomManager: invalid regdom updated event"), 3U);
}

TEST_F(RegdomManagerTest, AnEventThatNobodyListensToIsAnError) {
    regdomChange("init=USER type=COUNTRY alpha2=US");
    EXPECT_THAT(errors(), ElementsAre("RegdomManager: no callback for regdom updated event"));
}

TEST_F(RegdomManagerTest, AnInvalidEventIsReportedWithoutAListenerToo) {
    regdomChange("nothing");
    EXPECT_THAT(errors(), ElementsAre("RegdomManager: invalid regdom updated event"));
}

TEST_F(RegdomManagerTest, ListensToBothSockets) {
    startP2p();
    link();
    regdomChange("init=USER type=COUNTRY alpha2=US", NetInterfaceType::STA);
    regdomChange("init=USER type=COUNTRY alpha2=DE", NetInterfaceType::P2P);
    EXPECT_THAT(heard(), ElementsAre("USER COUNTRY US", "USER COUNTRY DE"));
}

TEST_F(RegdomManagerTest, ASecondListenerIsRefusedUntilTheFirstIsUnlinked) {
    link();
    EXPECT_FALSE(manager_.linkRegdomUpdatedCallback(listener_));
    EXPECT_THAT(errors(), ElementsAre("RegdomManager: callback exists => cannot link new one"));
    manager_.unlinkRegdomUpdatedCallback();
    EXPECT_TRUE(manager_.linkRegdomUpdatedCallback(listener_));
}

TEST_F(RegdomManagerTest, AListenerMayUnlinkItselfFromItsOwnCall) {
    std::string seen;
    {
        RegdomManager::Listener listener =
            [this, &seen, held = std::string(100, 'x')](const RegdomUpdatedResult&) {
                manager_.unlinkRegdomUpdatedCallback();
                seen = held;
            };
        ASSERT_TRUE(manager_.linkRegdomUpdatedCallback(listener));
    }
    regdomChange("init=USER type=COUNTRY alpha2=US");
    EXPECT_EQ(seen, std::string(100, 'x'));
    regdomChange("init=USER type=COUNTRY alpha2=US");
    EXPECT_THAT(errors(), Contains("RegdomManager: no callback for regdom updated event"));
}

TEST_F(RegdomManagerTest, UnlinkingWaitsForARunningListener) {
    std::mutex mutex;
    std::condition_variable changed;
    bool entered = false;
    bool leave = false;
    std::atomic<bool> left{false};
    RegdomManager::Listener listener = [&](const RegdomUpdatedResult&) {
        std::unique_lock<std::mutex> lock(mutex);
        entered = true;
        changed.notify_all();
        changed.wait(lock, [&] { return leave; });
        left = true;
    };
    ASSERT_TRUE(manager_.linkRegdomUpdatedCallback(listener));
    sta_.sendEvent("CTRL-EVENT-REGDOM-CHANGE init=USER type=COUNTRY alpha2=US");
    {
        std::unique_lock<std::mutex> lock(mutex);
        ASSERT_TRUE(changed.wait_for(lock, test::kPatience, [&] { return entered; }));
    }
    // While the listener runs, linking another is refused at once, without waiting for it.
    EXPECT_FALSE(manager_.linkRegdomUpdatedCallback(listener_));
    std::thread release([&] {
        const std::lock_guard<std::mutex> lock(mutex);
        leave = true;
        changed.notify_all();
    });
    manager_.unlinkRegdomUpdatedCallback();
    EXPECT_TRUE(left);
    release.join();
}

TEST_F(RegdomManagerTest, NotesItsTask) {
    regdomChange("init=USER type=COUNTRY alpha2=US");
    EXPECT_TRUE(composition_->ran("RegdomManager.onRegdomUpdated"));
}

TEST_F(RegdomManagerTest, HasNothingToDump) {
    std::string text = "before";
    EXPECT_FALSE(manager_.dumpInfo(text));
    EXPECT_EQ(text, "before");
}

}  // namespace

}  // namespace Ursa::OS::Wifi
