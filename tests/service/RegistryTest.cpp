#include <memory>
#include <thread>
#include <vector>

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vendor/corvid/hardware/wifi/1.0/BpHwCorvidWifiManagerCallback.h>

#include "service/CorvidWifiManagerCallback.h"
#include "tests/service/FakeClient.h"
#include "tests/support/LogCapture.h"

namespace Ursa::OS::Wifi {

namespace {

using ::android::sp;
using ::android::hardware::getOrCreateCachedBinder;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::vendor::corvid::hardware::wifi::V1_0::BpHwCorvidWifiManagerCallback;

constexpr char kDeathLine[] = "CorvidWifiManagerCallback: removing dead callback";

class Registry : public CorvidWifiManagerCallback {
  public:
    std::vector<sp<ICallback>> clients() { return copyCallbacks_(); }
};

class RegistryTest : public testing::Test {
  protected:
    size_t deathLines() const { return log_.count(ANDROID_LOG_DEBUG, kDeathLine); }

    test::LogCapture log_;
    std::unique_ptr<Registry> registry_ = std::make_unique<Registry>();
    const sp<FakeClient> a_ = new FakeClient;
    const sp<FakeClient> b_ = new FakeClient;
    const sp<FakeClient> c_ = new FakeClient;
};

TEST_F(RegistryTest, ClientsStayInTheOrderOfTheirRegistration) {
    EXPECT_TRUE(registry_->link(b_));
    EXPECT_TRUE(registry_->link(a_));
    EXPECT_TRUE(registry_->link(c_));
    EXPECT_THAT(registry_->clients(), ElementsAre(b_, a_, c_));
}

TEST_F(RegistryTest, NullIsRefused) {
    EXPECT_FALSE(registry_->link(nullptr));
    EXPECT_FALSE(registry_->unlink(nullptr));
    EXPECT_THAT(registry_->clients(), IsEmpty());
}

TEST_F(RegistryTest, ClientRegisteredTwiceIsRefused) {
    EXPECT_TRUE(registry_->link(a_));
    EXPECT_FALSE(registry_->link(a_));
    EXPECT_THAT(registry_->clients(), ElementsAre(a_));
    EXPECT_EQ(a_->recipients().size(), 1U);
}

TEST_F(RegistryTest, TwoProxiesOfOneObjectAreOneClient) {
    const auto binder = getOrCreateCachedBinder(a_.get());
    const sp<Registry::ICallback> proxy = new BpHwCorvidWifiManagerCallback(binder);
    const sp<Registry::ICallback> other = new BpHwCorvidWifiManagerCallback(binder);
    EXPECT_TRUE(registry_->link(proxy));
    EXPECT_FALSE(registry_->link(other));
    EXPECT_THAT(registry_->clients(), ElementsAre(proxy));

    EXPECT_TRUE(registry_->unlink(other));
    EXPECT_THAT(registry_->clients(), IsEmpty());
}

TEST_F(RegistryTest, ProxiesOfTwoObjectsAreTwoClients) {
    const sp<Registry::ICallback> first =
        new BpHwCorvidWifiManagerCallback(getOrCreateCachedBinder(a_.get()));
    const sp<Registry::ICallback> second =
        new BpHwCorvidWifiManagerCallback(getOrCreateCachedBinder(b_.get()));
    EXPECT_TRUE(registry_->link(first));
    EXPECT_TRUE(registry_->link(second));
    EXPECT_THAT(registry_->clients(), ElementsAre(first, second));
}

TEST_F(RegistryTest, UnregisteringTheFirstOfThreeLeavesTheOthersInTheirOrder) {
    registry_->link(a_);
    registry_->link(b_);
    registry_->link(c_);
    EXPECT_TRUE(registry_->unlink(a_));
    EXPECT_THAT(registry_->clients(), ElementsAre(b_, c_));
    EXPECT_THAT(a_->recipients(), IsEmpty());
}

TEST_F(RegistryTest, UnregisteringAnUnknownClientIsRefused) {
    registry_->link(a_);
    EXPECT_FALSE(registry_->unlink(b_));
    EXPECT_TRUE(registry_->unlink(a_));
    EXPECT_FALSE(registry_->unlink(a_));
}

TEST_F(RegistryTest, ClientThatHasUnregisteredMayRegisterAgain) {
    registry_->link(a_);
    registry_->unlink(a_);
    EXPECT_TRUE(registry_->link(a_));
    EXPECT_THAT(registry_->clients(), ElementsAre(a_));
}

// Deaths

TEST_F(RegistryTest, DeadClientIsDroppedWithOneLogLine) {
    registry_->link(a_);
    registry_->link(b_);
    registry_->link(c_);
    b_->die();
    EXPECT_THAT(registry_->clients(), ElementsAre(a_, c_));
    EXPECT_EQ(deathLines(), 1U);

    b_->die();  // told twice
    EXPECT_THAT(registry_->clients(), ElementsAre(a_, c_));
    EXPECT_EQ(deathLines(), 1U);
}

TEST_F(RegistryTest, DeathOfAnUnregisteredClientIsIgnoredSilently) {
    registry_->link(a_);
    const auto recipients = a_->recipients();
    registry_->unlink(a_);
    log_.clear();
    recipients.at(0)->serviceDied(0, a_);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(RegistryTest, DeathOfADestroyedObjectIsIgnored) {
    registry_->link(a_);
    sp<FakeClient> gone = new FakeClient;
    const ServiceDeathReceiver::Who who = sp<::android::hidl::base::V1_0::IBase>(gone);
    gone.clear();
    a_->recipients().at(0)->serviceDied(0, who);
    EXPECT_THAT(registry_->clients(), ElementsAre(a_));
    EXPECT_EQ(deathLines(), 0U);
}

TEST_F(RegistryTest, ClientThatCannotBeLinkedToDeathIsRegistered) {
    a_->linkFails = true;
    EXPECT_TRUE(registry_->link(a_));
    EXPECT_THAT(registry_->clients(), ElementsAre(a_));
    EXPECT_TRUE(registry_->unlink(a_));
}

TEST_F(RegistryTest, AllClientsShareOneDeathRecipient) {
    registry_->link(a_);
    registry_->link(b_);
    EXPECT_EQ(a_->recipients().at(0), b_->recipients().at(0));
}

TEST_F(RegistryTest, DestructionUnlinksEveryClientFromDeathInOrder) {
    std::vector<char> order;
    a_->onUnlink = [&] { order.push_back('a'); };
    b_->onUnlink = [&] { order.push_back('b'); };
    registry_->link(b_);
    registry_->link(a_);
    registry_.reset();
    EXPECT_THAT(order, ElementsAre('b', 'a'));
    EXPECT_THAT(a_->recipients(), IsEmpty());
    EXPECT_THAT(b_->recipients(), IsEmpty());
}

TEST_F(RegistryTest, DeathAfterDestructionIsIgnored) {
    registry_->link(a_);
    const auto recipients = a_->recipients();
    registry_.reset();
    recipients.at(0)->serviceDied(0, a_);
    EXPECT_EQ(deathLines(), 0U);
}

TEST_F(RegistryTest, ManyThreadsAtOnceLeaveTheRegistryConsistent) {
    constexpr int kRounds = 500;
    registry_->link(c_);
    std::vector<std::thread> threads;
    for (const sp<FakeClient>& client : {a_, b_}) {
        threads.emplace_back([&, client] {
            for (int i = 0; i < kRounds; ++i) {
                registry_->link(client);
                registry_->unlink(client);
            }
        });
    }
    threads.emplace_back([&] {
        for (int i = 0; i < kRounds; ++i) {
            a_->die();
        }
    });
    for (int i = 0; i < kRounds; ++i) {
        const auto clients = registry_->clients();
        EXPECT_EQ(clients.at(0), c_);
        EXPECT_LE(clients.size(), 3U);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(registry_->clients(), ElementsAre(c_));
}

}  // namespace

}  // namespace Ursa::OS::Wifi
