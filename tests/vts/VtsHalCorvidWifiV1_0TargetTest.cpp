// What is true of the service on any headset, whatever its radio does and which features are on.
// Knows the interface only, and leaves the device as it was; what can't be undone is called with
// --change only. No method of the interface has every device call a client back, and none ends the
// service, so these come from outside: --cause and --restart name commands.

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <limits>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <cutils/native_handle.h>
#include <hidl/HidlSupport.h>
#include <hidl/HidlTransportSupport.h>

#include "tests/vts/Client.h"

namespace vts {
namespace {

using ::android::hardware::hidl_string;
using ::android::hardware::hidl_vec;

constexpr uint32_t kLargest = std::numeric_limits<uint32_t>::max();

constexpr const char* kFeatures[] = {
    "AssocStartedManager", "ChannelSwitchManager", "CoexManager",
    "DevParamsManager",    "ElnaManager",          "FrequencyBlockManager",
    "MccTimeManager",      "MipiClockManager",     "NoaManager",
    "P2pManager",          "RegdomManager",        "PowerJumpDetectManager",
    "ScsManager",          "StaManager",           "TxChainManager",
    "TelemetryManager",    "TxPowerManager",
};

P2pDeviceType deviceType(uint32_t value) { return static_cast<P2pDeviceType>(value); }

ScsProfileV4 streamTo(const std::string& address, uint32_t port) {
    ScsProfileV4 profile = {};
    profile.localIp = "0.0.0.0";
    profile.remoteIp = address;
    profile.localPort = port;
    profile.remotePort = port;
    profile.dscp = 46;
    profile.protocol = 17;
    return profile;
}

// The object

class WifiObject : public WifiTest {};

TEST_F(WifiObject, NamesItsInterfaceAndTheChainBelowIt) {
    const auto names = answerOf<hidl_vec<hidl_string>>(
        [&](const auto& answer) { return service_->interfaceChain(answer); });
    const std::vector<std::string> chain(names.begin(), names.end());
    // A later minor version puts its own interface first.
    ASSERT_GE(chain.size(), 2U);
    EXPECT_EQ(chain.back(), "android.hidl.base@1.0::IBase");
    EXPECT_EQ(chain[chain.size() - 2], "vendor.corvid.hardware.wifi@1.0::IWifi");
    const auto descriptor = answerOf<hidl_string>(
        [&](const auto& answer) { return service_->interfaceDescriptor(answer); });
    EXPECT_EQ(std::string(descriptor), chain.front());
}

TEST_F(WifiObject, HasAHashForEachInterfaceOfItsChain) {
    using Hash = ::android::hardware::hidl_array<uint8_t, 32>;
    const auto names = answerOf<hidl_vec<hidl_string>>(
        [&](const auto& answer) { return service_->interfaceChain(answer); });
    const auto hashes = answerOf<hidl_vec<Hash>>(
        [&](const auto& answer) { return service_->getHashChain(answer); });
    ASSERT_EQ(hashes.size(), names.size());
    std::set<std::vector<uint8_t>> different;
    for (const Hash& hash : hashes) {
        different.emplace(hash.data(), hash.data() + hash.size());
    }
    EXPECT_EQ(different.size(), hashes.size());
}

TEST_F(WifiObject, AnswersWhatAnyObjectIsAsked) {
    using ::android::hidl::base::V1_0::DebugInfo;
    answerOf<DebugInfo>([&](const auto& answer) { return service_->getDebugInfo(answer); });
    EXPECT_TRUE(inTime([&] { return service_->notifySyspropsChanged(); }).isOk());
    EXPECT_TRUE(responds());
}

TEST_F(WifiObject, IsTheSameForEachWhoAsks) {
    const sp<IWifi> again = inTime([] { return IWifi::tryGetService(options.instance); });
    ASSERT_NE(again, nullptr);
    EXPECT_TRUE(::android::hardware::interfacesEqual(service_, again));
}

TEST_F(WifiObject, InstanceThatNobodyServesIsNotFound) {
    EXPECT_EQ(inTime([] { return IWifi::tryGetService("no-such-instance"); }), nullptr);
}

TEST_F(WifiObject, DebugWritesToItsHandleOrNothing) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    native_handle_t* const handle = native_handle_create(1, 0);
    handle->data[0] = ends[1];
    std::string text;
    bool ended = false;
    std::thread reader([&] {
        const auto limit = std::chrono::milliseconds(options.longestCall).count();
        pollfd end = {ends[0], POLLIN, 0};
        while (!ended && poll(&end, 1, static_cast<int>(limit)) > 0) {
            char bytes[4096];
            const ssize_t size = read(ends[0], bytes, sizeof(bytes));
            text.append(bytes, static_cast<size_t>(std::max<ssize_t>(size, 0)));
            ended = size <= 0;
        }
    });
    EXPECT_TRUE(inTime([&] { return service_->debug(handle, {}); }).isOk());
    native_handle_close(handle);
    native_handle_delete(handle);
    reader.join();
    close(ends[0]);
    EXPECT_TRUE(ended) << "the service keeps the handle";
    if (!text.empty()) {
        EXPECT_NE(text.find("StaManager"), std::string::npos) << text;
    }
}

TEST_F(WifiObject, DebugWithStrangeOptionsOrWithoutAHandleHarmsNothing) {
    EXPECT_TRUE(inTime([&] { return service_->debug(nullptr, {}); }).isOk());
    for (const std::string& option :
         {std::string(), std::string("--no-such-option"), std::string(10000, 'x')}) {
        EXPECT_TRUE(inTime([&] { return service_->debug(nullptr, {option, option}); }).isOk());
    }
}

// What can be asked

class WifiState : public WifiTest {};

TEST_F(WifiState, StationsRecordIsALinkOrUnknown) {
    const StaInfo info = station();
    EXPECT_TRUE(info.frequency == -1 || (info.frequency > 2000 && info.frequency < 8000))
        << info.frequency;
    EXPECT_TRUE(info.rssi >= -128 && info.rssi < 0) << info.rssi;
    EXPECT_LE(info.bandwidth, 5U);
}

TEST_F(WifiState, GroupsRecordIsAChannelOrUnknown) {
    const P2pInfo info = group();
    EXPECT_TRUE(info.frequency == -1 || (info.frequency > 2000 && info.frequency < 8000))
        << info.frequency;
    EXPECT_EQ(info.bandwidth, -1);
}

TEST_F(WifiState, DumpHasEachFeatureOnceThenTheTasks) {
    std::istringstream lines(dump());
    std::vector<std::string> features;
    bool inTasks = false;
    size_t tasks = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line == "Process and Thread ID") {
            inTasks = true;
        } else if (line.rfind('\t', 0) == 0) {
            tasks += inTasks ? 1 : 0;
        } else {
            EXPECT_FALSE(inTasks) << line;
            const size_t end = line.find(": ");
            ASSERT_NE(end, std::string::npos) << line;
            EXPECT_TRUE(line.substr(end) == ": Enabled" || line.substr(end) == ": Disabled")
                << line;
            features.push_back(line.substr(0, end));
        }
    }
    EXPECT_TRUE(std::is_sorted(features.begin(), features.end()));
    for (const char* feature : kFeatures) {
        EXPECT_EQ(std::count(features.begin(), features.end(), feature), 1) << feature;
    }
    EXPECT_GE(tasks, 1U);
}

TEST_F(WifiState, FeaturesWithoutASwitchAreOn) {
    for (const char* feature :
         {"AssocStartedManager", "P2pManager", "RegdomManager", "StaManager"}) {
        EXPECT_TRUE(isEnabled(feature)) << feature;
    }
}

TEST_F(WifiState, AskingManyTimesAtOnceIsAnsweredEachTime) {
    constexpr int kClients = 8;
    constexpr int kCalls = 20;
    std::atomic<int> answered = 0;
    std::vector<std::thread> clients;
    for (int i = 0; i < kClients; ++i) {
        clients.emplace_back([&] {
            for (int call = 0; call < kCalls; ++call) {
                group();
                answered += isPaired(P2pDeviceType::NONE) ? 0 : 1;
            }
        });
    }
    for (std::thread& client : clients) {
        client.join();
    }
    EXPECT_EQ(answered, kClients * kCalls);
}

// The paired device

class WifiPairing : public WifiTest {
  protected:
    void SetUp() override {
        WifiTest::SetUp();
        if (service_ != nullptr) {
            before_ = isPaired(P2pDeviceType::MIRACAST) ? P2pDeviceType::MIRACAST
                                                        : P2pDeviceType::HALBERD;
        }
    }

    void TearDown() override {
        if (service_ != nullptr) {
            EXPECT_EQ(pair(before_), kDone);
        }
        WifiTest::TearDown();
    }

    P2pDeviceType before_ = P2pDeviceType::HALBERD;
};

TEST_F(WifiPairing, IsOneOfTheTwoThatCanBeSet) {
    EXPECT_NE(isPaired(P2pDeviceType::HALBERD), isPaired(P2pDeviceType::MIRACAST));
    EXPECT_FALSE(isPaired(P2pDeviceType::NONE));
    EXPECT_FALSE(isPaired(P2pDeviceType::UNKNOWN));
}

TEST_F(WifiPairing, EachTypeThatCanBeSetIsThenTheOne) {
    for (const P2pDeviceType type : {P2pDeviceType::MIRACAST, P2pDeviceType::HALBERD}) {
        EXPECT_EQ(pair(type), kDone);
        EXPECT_EQ(isPaired(P2pDeviceType::MIRACAST), type == P2pDeviceType::MIRACAST);
        EXPECT_EQ(isPaired(P2pDeviceType::HALBERD), type == P2pDeviceType::HALBERD);
    }
}

TEST_F(WifiPairing, OtherTypesAreRefusedAndChangeNothing) {
    for (const uint32_t type : {0U, 3U, 4U, 7U, 0x80000000U, kLargest}) {
        EXPECT_EQ(pair(deviceType(type)), kFailed) << type;
        EXPECT_TRUE(isPaired(before_)) << type;
    }
}

TEST_F(WifiPairing, TypeAboveUnknownIsTakenAsUnknown) {
    for (const uint32_t type : {4U, 7U, kLargest}) {
        EXPECT_EQ(isPaired(deviceType(type)), isPaired(P2pDeviceType::UNKNOWN)) << type;
    }
}

// Callbacks

class WifiCallback : public WifiTest {};

TEST_F(WifiCallback, IsRegisteredOnceAndUnregisteredOnce) {
    const sp<ICorvidWifiManagerCallback> callback = new QuietCallback();
    EXPECT_EQ(add(callback), kDone);
    EXPECT_EQ(add(callback), kFailed) << "a second time";
    EXPECT_EQ(remove(callback), kDone);
    EXPECT_EQ(remove(callback), kFailed) << "a second time";
    EXPECT_EQ(add(callback), kDone) << "again";
    EXPECT_EQ(remove(callback), kDone);
}

TEST_F(WifiCallback, NoneAndOneThatWasNeverRegisteredAreRefused) {
    EXPECT_EQ(add(nullptr), kFailed);
    EXPECT_EQ(remove(nullptr), kFailed);
    EXPECT_EQ(remove(new QuietCallback()), kFailed);
}

TEST_F(WifiCallback, ManyAreKeptApart) {
    std::vector<sp<ICorvidWifiManagerCallback>> callbacks;
    for (int i = 0; i < 100; ++i) {
        callbacks.push_back(new QuietCallback());
        EXPECT_EQ(add(callbacks.back()), kDone) << i;
    }
    for (const auto& callback : callbacks) {
        EXPECT_EQ(remove(callback), kDone);
    }
}

TEST_F(WifiCallback, ClientsThatAreKilledHarmNobody) {
    for (int i = 0; i < 10; ++i) {
        OtherClient client;
        ASSERT_TRUE(client.isRegistered()) << i;
        client.kill();
        EXPECT_TRUE(responds());
    }
    const sp<ICorvidWifiManagerCallback> callback = new QuietCallback();
    EXPECT_EQ(add(callback), kDone);
    EXPECT_EQ(remove(callback), kDone);
}

TEST_F(WifiCallback, ClientsComeAndGoFromSeveralThreads) {
    std::atomic<int> done = 0;
    std::vector<std::thread> clients;
    for (int i = 0; i < 4; ++i) {
        clients.emplace_back([&] {
            for (int turn = 0; turn < 25; ++turn) {
                const sp<ICorvidWifiManagerCallback> callback = new QuietCallback();
                done += add(callback) == kDone && remove(callback) == kDone ? 1 : 0;
            }
        });
    }
    for (std::thread& client : clients) {
        client.join();
    }
    EXPECT_EQ(done, 100);
}

/** Waits for the service's end. Any thread. */
class Recipient : public ::android::hardware::hidl_death_recipient {
  public:
    void serviceDied(uint64_t cookie,
                     const ::android::wp<::android::hidl::base::V1_0::IBase>& /*who*/) override {
        const std::lock_guard<std::mutex> lock(mutex_);
        cookie_ = cookie;
        changed_.notify_all();
    }

    /** Returns false if it does not come, with that cookie, within the longest wait. */
    bool waitForDeath(uint64_t cookie) {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, options.longestWait, [&] { return cookie_ == cookie; });
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    uint64_t cookie_ = 0;
};

TEST_F(WifiCallback, DeathOfTheServiceCanBeFollowed) {
    const sp<Recipient> recipient = new Recipient();
    const auto linked = inTime([&] { return service_->linkToDeath(recipient, 7); });
    ASSERT_TRUE(linked.isOk());
    EXPECT_TRUE(linked);
    const auto unlinked = inTime([&] { return service_->unlinkToDeath(recipient); });
    ASSERT_TRUE(unlinked.isOk());
    EXPECT_TRUE(unlinked);
    const auto again = inTime([&] { return service_->unlinkToDeath(recipient); });
    ASSERT_TRUE(again.isOk());
    EXPECT_FALSE(again);
}

// The service's end, with --restart only

class WifiRestart : public WifiTest {
  protected:
    void SetUp() override {
        if (options.restart.empty()) {
            GTEST_SKIP() << "--restart has a command end the service and start it again";
        }
        WifiTest::SetUp();
    }
};

TEST_F(WifiRestart, RecipientIsToldAndClientsRegisterAnew) {
    const sp<Recipient> recipient = new Recipient();
    const auto linked = inTime([&] { return service_->linkToDeath(recipient, 7); });
    ASSERT_TRUE(linked.isOk() && linked);
    const sp<ICorvidWifiManagerCallback> callback = new QuietCallback();
    EXPECT_EQ(add(callback), kDone);
    ASSERT_EQ(system(options.restart.c_str()), 0) << options.restart;
    EXPECT_TRUE(recipient->waitForDeath(7));
    EXPECT_FALSE(responds()) << "the object that has ended";
    ASSERT_TRUE(comesBack());
    EXPECT_EQ(remove(callback), kFailed) << "the service knows a client of the one before it";
    EXPECT_EQ(add(callback), kDone);
    EXPECT_EQ(remove(callback), kDone);
}

// Events, with --cause only

/** Counts the events that it is told of, and calls the service from inside each. Any thread. */
class Listener : public ICorvidWifiManagerCallback {
  public:
    template <typename T>
    using Return = ::android::hardware::Return<T>;

    explicit Listener(const sp<IWifi>& service) : service_(service) {}

    Return<void> onChannelSwitch(int32_t frequency, int32_t width, bool /*isP2p*/) override {
        return note_(frequency > 0 && width > 0);
    }
    Return<void> onAssocStarted() override { return note_(true); }
    Return<void> onRegdomUpdated(const hidl_string& init, const hidl_string& type,
                                 const hidl_string& alpha2) override {
        return note_(init.size() > 0 && type.size() > 0 && alpha2.size() == 2);
    }

    /** How many there were so far. */
    size_t events() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return events_;
    }

    /** How many had strange arguments, or a call from inside them that failed. */
    size_t strange() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return strange_;
    }

    /** Waits until there were more than `count`; returns false if that takes too long. */
    bool waitForMoreThan(size_t count) {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, options.longestWait, [&] { return events_ > count; });
    }

  private:
    Return<void> note_(bool isPlausible) {
        const bool answered = service_->getP2pInfo([](const P2pInfo& /*info*/) {}).isOk();
        const std::lock_guard<std::mutex> lock(mutex_);
        ++events_;
        strange_ += isPlausible && answered ? 0 : 1;
        changed_.notify_all();
        return {};
    }

    const sp<IWifi> service_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    size_t events_ = 0;
    size_t strange_ = 0;
};

class WifiEvent : public WifiTest {
  protected:
    void SetUp() override {
        if (options.cause.empty()) {
            GTEST_SKIP() << "--cause has a command cause an event";
        }
        WifiTest::SetUp();
    }

    /** Causes an event; fails the test unless each of the listeners is told of one. */
    static void cause(const std::vector<sp<Listener>>& listeners) {
        std::vector<size_t> before;
        for (const auto& listener : listeners) {
            before.push_back(listener->events());
        }
        ASSERT_EQ(system(options.cause.c_str()), 0) << options.cause;
        for (size_t i = 0; i < listeners.size(); ++i) {
            ASSERT_TRUE(listeners[i]->waitForMoreThan(before[i])) << "listener " << i;
        }
    }
};

TEST_F(WifiEvent, EachRegisteredClientIsToldAndMayCallMeanwhile) {
    const std::vector<sp<Listener>> listeners = {new Listener(service_), new Listener(service_)};
    for (const auto& listener : listeners) {
        EXPECT_EQ(add(listener), kDone);
    }
    ASSERT_NO_FATAL_FAILURE(cause(listeners));
    for (const auto& listener : listeners) {
        EXPECT_EQ(remove(listener), kDone);
        EXPECT_EQ(listener->strange(), 0U);
    }
}

TEST_F(WifiEvent, UnregisteredClientIsNoLongerTold) {
    const sp<Listener> stays = new Listener(service_);
    const sp<Listener> goes = new Listener(service_);
    EXPECT_EQ(add(stays), kDone);
    EXPECT_EQ(add(goes), kDone);
    EXPECT_EQ(remove(goes), kDone);
    // Clients are told of one event after the other: the one that was under way is over by the
    // next.
    ASSERT_NO_FATAL_FAILURE(cause({stays}));
    const size_t heard = goes->events();
    ASSERT_NO_FATAL_FAILURE(cause({stays}));
    ASSERT_NO_FATAL_FAILURE(cause({stays}));
    EXPECT_EQ(goes->events(), heard);
    EXPECT_EQ(remove(stays), kDone);
}

// Commands that are refused, and so do nothing

class WifiRefusal : public WifiTest {
  protected:
    uint32_t noa(uint32_t count, uint32_t first, uint32_t second) {
        return statusOf(
            [&](const auto& answer) { return service_->setP2pNoa(count, first, second, answer); });
    }
    uint32_t channelSwitch(uint32_t channel, uint32_t bandwidth) {
        return statusOf(
            [&](const auto& answer) { return service_->startCsa(channel, bandwidth, answer); });
    }
    uint32_t withdraw(int32_t id) {
        return statusOf([&](const auto& answer) { return service_->clearScs(id, answer); });
    }
    int32_t idOf(const ScsProfileV4& profile) {
        const auto id = inTime([&] { return service_->setScsV4(profile); });
        EXPECT_TRUE(id.isOk());
        return id.isOk() ? static_cast<int32_t>(id) : std::numeric_limits<int32_t>::min();
    }
};

TEST_F(WifiRefusal, StreamThatWasNeverSetIsNotCleared) {
    for (const int32_t id :
         {-1, -2, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()}) {
        EXPECT_EQ(withdraw(id), kFailed) << id;
    }
}

TEST_F(WifiRefusal, Ipv6StreamsAreNotSupported) {
    ScsProfileV6 profile = {};
    for (const std::string& address : {std::string("fe80::1"), std::string("nonsense"),
                                       std::string(), std::string(60000, ':')}) {
        profile.localIp = address;
        profile.remoteIp = address;
        profile.localPort = kLargest;
        const auto id = inTime([&] { return service_->setScsV6(profile); });
        ASSERT_TRUE(id.isOk()) << address.size();
        EXPECT_EQ(static_cast<int32_t>(id), -1);
    }
}

TEST_F(WifiRefusal, NoticeOfAbsenceTakesNoOtherCount) {
    for (const uint32_t count : {1U, 2U, 254U, 256U, kLargest}) {
        EXPECT_EQ(noa(count, 0, 0), kFailed) << count;
        EXPECT_EQ(noa(count, kLargest, kLargest), kFailed) << count;
    }
}

TEST_F(WifiRefusal, FeatureThatIsOffAnswersFailureToAnyArgument) {
    const std::vector<uint32_t> values = {0, 1, 2, 100, 101, 0x7fffffff, kLargest};
    size_t checked = 0;
    if (!isEnabled("ElnaManager")) {
        for (const uint32_t value : values) {
            EXPECT_EQ(statusOf([&](const auto& answer) {
                          return service_->setElnaBypass(value, answer);
                      }),
                      kFailed);
        }
        ++checked;
    }
    if (!isEnabled("MccTimeManager")) {
        for (const uint32_t value : values) {
            EXPECT_EQ(statusOf([&](const auto& answer) {
                          return service_->setMccTimeAllocation(value, answer);
                      }),
                      kFailed);
        }
        ++checked;
    }
    if (!isEnabled("NoaManager")) {
        EXPECT_EQ(noa(255, 0, 100), kFailed);
        EXPECT_EQ(noa(0, 0, 0), kFailed);
        ++checked;
    }
    if (!isEnabled("ChannelSwitchManager")) {
        EXPECT_EQ(channelSwitch(36, 80), kFailed);
        EXPECT_EQ(channelSwitch(kLargest, kLargest), kFailed);
        ++checked;
    }
    if (!isEnabled("ScsManager")) {
        EXPECT_EQ(idOf(streamTo("192.0.2.1", 5004)), -1);
        ++checked;
    }
    if (!isEnabled("TxPowerManager")) {
        for (const bool allowed : {false, true}) {
            EXPECT_EQ(statusOf([&](const auto& answer) {
                          return service_->updateTxPowerConfig(allowed, answer);
                      }),
                      kFailed);
        }
        ++checked;
    }
    if (checked == 0) {
        GTEST_SKIP() << "every feature is on";
    }
}

// What changes the device: with --change only

class WifiChange : public WifiRefusal {
  protected:
    void SetUp() override {
        if (!options.change) {
            GTEST_SKIP() << "it can't be undone; --change calls it";
        }
        WifiRefusal::SetUp();
    }
};

TEST_F(WifiChange, CommandsWithAnyArgumentAreAnswered) {
    for (const uint32_t value : {0U, 1U, 50U, 100U, 101U, 0x7fffffffU, kLargest}) {
        statusOf([&](const auto& answer) { return service_->setElnaBypass(value, answer); });
        statusOf([&](const auto& answer) { return service_->setMccTimeAllocation(value, answer); });
        noa(255, value, value);
        channelSwitch(value, 80);
        channelSwitch(36, value);
    }
    noa(0, 0, 0);
    statusOf([&](const auto& answer) { return service_->setElnaBypass(0, answer); });
    statusOf([&](const auto& answer) { return service_->setMccTimeAllocation(50, answer); });
}

TEST_F(WifiChange, HandTrackingIsForbiddenAndAllowed) {
    const uint32_t expected = isEnabled("TxPowerManager") ? kDone : kFailed;
    for (const bool allowed : {false, true}) {
        EXPECT_EQ(statusOf([&](const auto& answer) {
                      return service_->updateTxPowerConfig(allowed, answer);
                  }),
                  expected);
    }
}

TEST_F(WifiChange, StreamIsSetAndClearedOrRefused) {
    std::set<int32_t> ids;
    for (const std::string& address : {std::string("192.0.2.1"), std::string("nonsense"),
                                       std::string(), std::string(60000, '1')}) {
        for (const uint32_t port : {0U, 5004U, 65535U, 65536U, kLargest}) {
            const int32_t id = idOf(streamTo(address, port));
            EXPECT_GE(id, -2);
            if (id >= 0) {
                EXPECT_TRUE(ids.insert(id).second) << id << " was given twice";
            }
        }
    }
    for (const int32_t id : ids) {
        EXPECT_EQ(withdraw(id), kDone) << id;
        EXPECT_EQ(withdraw(id), kFailed) << id << " again";
    }
}

}  // namespace
}  // namespace vts
