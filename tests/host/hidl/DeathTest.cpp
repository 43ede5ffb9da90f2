#include <signal.h>

#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <hidl/HidlTransportSupport.h>

#include "tests/host/hidl/HidlFixture.h"

using android::sp;
using android::wp;
using android::hardware::hidl_death_recipient;
using android::hardware::hidl_string;
using android::hardware::hidl_vec;
using android::hardware::Return;
using android::hidl::base::V1_0::IBase;

namespace {

class Recipient : public hidl_death_recipient {
  public:
    void serviceDied(uint64_t cookie, const wp<IBase>& who) override {
        cookie_ = cookie;
        who_ = who;
        thread_ = std::this_thread::get_id();
        ++count_;
        died_.set();
    }
    bool wait() { return died_.wait(); }
    bool isTold() { return died_.isSet(); }

    // What was told, once wait() has returned.
    uint64_t cookie_ = 0;
    wp<IBase> who_;
    std::thread::id thread_;
    int count_ = 0;

  private:
    Signal died_;
};

std::vector<uint64_t> deathsSeenBy(const sp<corvid::test::V1_0::IEcho>& echo) {
    std::vector<uint64_t> deaths;
    echo->deaths([&](const hidl_vec<uint64_t>& cookies) { deaths = cookies; }).assertOk();
    return deaths;
}

TEST_F(HidlTest, DeathByKillIsNotifiedOnce) {
    const sp<IEcho> echo = serve();
    const sp<Recipient> recipient = new Recipient;
    ASSERT_TRUE(static_cast<bool>(echo->linkToDeath(recipient, 42)));
    server().kill();
    ASSERT_TRUE(recipient->wait());
    EXPECT_EQ(42u, recipient->cookie_);
    EXPECT_EQ(echo, recipient->who_.promote());
    EXPECT_NE(std::this_thread::get_id(), recipient->thread_);
    EXPECT_EQ(1, recipient->count_);
}

TEST_F(HidlTest, DeathOfAClientIsNotifiedOnTheServingThread) {
    const sp<IEcho> echo = serve();
    Program client("hidl-echo-client", "kept");
    ASSERT_EQ("ready", client.line());
    ASSERT_TRUE(static_cast<bool>(echo->watchKept()));
    client.kill();
    // The server adds something to the cookie when it is told wrongly.
    EXPECT_TRUE(eventually([&] { return deathsSeenBy(echo) == std::vector<uint64_t>{1}; }));
    // Nothing that the client has left in the folder stays.
    EXPECT_TRUE(eventually([&] { return countEndpoints() == 1; }));
    // The last proxy knows that its object has gone.
    EXPECT_FALSE(static_cast<bool>(echo->watchKept()));
    echo->callKept(1,
                   [](bool ok, const hidl_string& description) {
                       EXPECT_FALSE(ok);
                       EXPECT_EQ("Status(EX_TRANSACTION_FAILED): 'DEAD_OBJECT: '", description);
                   })
        .assertOk();
    EXPECT_EQ(1u, deathsSeenBy(echo).size());
}

TEST_F(HidlTest, LinkToADeadObjectFails) {
    const sp<IEcho> echo = serve();
    server().kill();
    const sp<Recipient> recipient = new Recipient;
    EXPECT_FALSE(static_cast<bool>(echo->linkToDeath(recipient, 1)));
    EXPECT_FALSE(recipient->isTold());
}

TEST_F(HidlTest, UnlinkedRecipientIsNotNotified) {
    const sp<IEcho> echo = serve();
    const sp<Recipient> first = new Recipient;
    const sp<Recipient> second = new Recipient;
    ASSERT_TRUE(static_cast<bool>(echo->linkToDeath(first, 1)));
    ASSERT_TRUE(static_cast<bool>(echo->linkToDeath(second, 2)));
    EXPECT_TRUE(static_cast<bool>(echo->unlinkToDeath(first)));
    EXPECT_FALSE(static_cast<bool>(echo->unlinkToDeath(first)));
    server().kill();
    ASSERT_TRUE(second->wait());  // told after the first one would have been
    EXPECT_FALSE(first->isTold());
}

TEST_F(HidlTest, RecipientOfADroppedProxyIsNotNotified) {
    const sp<IEcho> echo = serve();
    Program other("hidl-echo-server", "other");
    ASSERT_EQ("ready", other.line());
    const sp<Recipient> recipient = new Recipient;
    ASSERT_TRUE(static_cast<bool>(IEcho::tryGetService("other")->linkToDeath(recipient, 1)));
    const sp<Recipient> later = new Recipient;
    ASSERT_TRUE(static_cast<bool>(echo->linkToDeath(later, 1)));
    other.kill();
    server().kill();
    ASSERT_TRUE(later->wait());
    EXPECT_FALSE(recipient->isTold());
}

TEST_F(HidlTest, CallFailsWhenItsProcessDies) {
    const sp<IEcho> echo = serve();
    const Return<void> result = echo->die();
    EXPECT_FALSE(result.isOk());
    EXPECT_TRUE(result.isDeadObject());
    EXPECT_EQ("Status(EX_TRANSACTION_FAILED): 'DEAD_OBJECT: '", result.description());
    EXPECT_TRUE(echo->ping().isDeadObject());
}

TEST_F(HidlTest, HungServerBlocksOnlyTheThreadThatCallsIt) {
    const sp<IEcho> echo = serve();
    Program other("hidl-echo-server", "other");
    ASSERT_EQ("ready", other.line());
    const sp<IEcho> alive = IEcho::tryGetService("other");
    Signal failed;
    std::thread caller([&] {
        const Return<void> result = echo->hang();
        EXPECT_TRUE(result.isDeadObject());
        failed.set();
    });
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(i + 1, static_cast<int32_t>(alive->add(i, 1)));
    }
    EXPECT_FALSE(failed.isSet());
    server().kill();
    EXPECT_TRUE(failed.wait());
    caller.join();
}

TEST_F(HidlTest, HungClientHoldsTheServerUntilItDies) {
    const sp<IEcho> echo = serve();
    Program client("hidl-echo-client", "hung");
    ASSERT_EQ("ready", client.line());
    Signal failed;
    std::thread caller([&] {
        echo->callKept(1, [](bool ok, const hidl_string&) { EXPECT_FALSE(ok); }).assertOk();
        failed.set();
    });
    client.signal(SIGSTOP);  // not even its kernel side accepts a connection any more
    EXPECT_FALSE(failed.isSet());
    client.kill();
    EXPECT_TRUE(failed.wait());
    caller.join();
    EXPECT_EQ(2, static_cast<int32_t>(echo->add(1, 1)));
}

TEST_F(HidlTest, StoppedClientDoesNotHoldTheServer) {
    const sp<IEcho> echo = serve();
    Program client("hidl-echo-client", "kept");
    ASSERT_EQ("ready", client.line());
    client.signal(SIGSTOP);
    // Each time the server begins and ends to hold the client's object, it tells the client.
    const sp<ICallback> object = echo->kept();
    for (int i = 0; i < 2000; ++i) {
        ASSERT_TRUE(echo->keep(nullptr).isOk());
        ASSERT_TRUE(echo->keep(object).isOk());
    }
    EXPECT_EQ(2, static_cast<int32_t>(echo->add(1, 1)));
    client.signal(SIGCONT);
}

TEST_F(HidlTest, ServiceThatComesBackIsAnotherObject) {
    const sp<IEcho> old = serve();
    server().kill();
    const sp<IEcho> echo = serve();
    EXPECT_FALSE(android::hardware::interfacesEqual(old, echo));
    EXPECT_TRUE(old->ping().isDeadObject());
    EXPECT_TRUE(echo->ping().isOk());
}

}  // namespace
