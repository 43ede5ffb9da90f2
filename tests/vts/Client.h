#pragma once

#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <vendor/corvid/hardware/wifi/1.0/IWifi.h>

namespace vts {

using ::android::sp;
using ::vendor::corvid::hardware::wifi::V1_0::ICorvidWifiManagerCallback;
using ::vendor::corvid::hardware::wifi::V1_0::IWifi;
using ::vendor::corvid::hardware::wifi::V1_0::P2pDeviceType;
using ::vendor::corvid::hardware::wifi::V1_0::P2pInfo;
using ::vendor::corvid::hardware::wifi::V1_0::ScsProfileV4;
using ::vendor::corvid::hardware::wifi::V1_0::ScsProfileV6;
using ::vendor::corvid::hardware::wifi::V1_0::StaInfo;
using ::vendor::corvid::hardware::wifi::V1_0::Status;

/** What the program was started with. */
struct Options {
    std::string instance = "default";
    /**
     * Also call what can't be undone: amplifier bypass, airtime, notice of absence, channel switch,
     * stream classification, hand tracking. For a device on the bench.
     */
    bool change = false;
    /**
     * A shell command that causes an event of which registered clients are told, each time it runs.
     * No method of the interface does so on every device.
     */
    std::string cause;
    /**
     * A shell command that ends the service and has it started again. What clients have told it is
     * lost, so this is for a device on the bench too.
     */
    std::string restart;
    /**
     * More than a call takes on a device whose supplicant hangs: 10 s, after 10 s for a command
     * that was waiting before it.
     */
    std::chrono::seconds longestCall{30};
    /** More than passes until a client is told of an event, or until the service has restarted. */
    std::chrono::seconds longestWait{30};
    std::string program;  ///< this one, to be started again as a client that is killed
};
extern Options options;

/** Fails the test and ends the program: the thread that calls can't be ended. */
[[noreturn]] void endWithoutAnAnswer();

/**
 * Makes a call on a thread of its own and returns what it returns. Ends the program if that takes
 * longer than options.longestCall.
 */
template <typename Call>
auto inTime(Call call) {
    std::packaged_task<decltype(call())()> task(std::move(call));
    auto result = task.get_future();
    std::thread caller(std::move(task));
    if (result.wait_for(options.longestCall) != std::future_status::ready) {
        endWithoutAnAnswer();
    }
    caller.join();
    return result.get();
}

/** The results that a command's status may have. */
constexpr uint32_t kDone = 0;
constexpr uint32_t kFailed = 1;

/** A test with the service, which must still be there at its end. */
class WifiTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    /** Makes a call; fails the test unless it is answered, once. Returns the answer. */
    template <typename Answer, typename Call>
    Answer answerOf(Call call) {
        int answers = 0;
        Answer answer = {};
        const auto result = inTime([&] {
            return call([&](const Answer& given) {
                ++answers;
                answer = given;
            });
        });
        EXPECT_TRUE(result.isOk()) << result.description();
        EXPECT_EQ(answers, 1);
        return answer;
    }

    /** The same for a call that answers with a status; returns its code. */
    template <typename Call>
    uint32_t statusOf(Call call) {
        const Status answer = answerOf<Status>(call);
        EXPECT_TRUE(answer.code == kDone || answer.code == kFailed) << answer.code;
        EXPECT_EQ(std::string(answer.description), "");
        return answer.code;
    }

    bool responds();
    /** Waits for the service after its end, or a moment before; false if it does not come back. */
    bool comesBack();
    uint32_t add(const sp<ICorvidWifiManagerCallback>& callback);
    uint32_t remove(const sp<ICorvidWifiManagerCallback>& callback);
    bool isPaired(P2pDeviceType type);
    uint32_t pair(P2pDeviceType type);
    StaInfo station();
    P2pInfo group();
    std::string dump();
    /** Whether the dump calls the feature of that label enabled. */
    bool isEnabled(const std::string& label);

    sp<IWifi> service_;
};

/** A client's callback that does nothing. */
class QuietCallback : public ICorvidWifiManagerCallback {
  public:
    template <typename T>
    using Return = ::android::hardware::Return<T>;

    Return<void> onChannelSwitch(int32_t /*frequency*/, int32_t /*width*/,
                                 bool /*isP2p*/) override {
        return {};
    }
    Return<void> onAssocStarted() override { return {}; }
    Return<void> onRegdomUpdated(const ::android::hardware::hidl_string& /*init*/,
                                 const ::android::hardware::hidl_string& /*type*/,
                                 const ::android::hardware::hidl_string& /*alpha2*/) override {
        return {};
    }
};

/** A process that has registered a callback and waits to be killed. */
class OtherClient {
  public:
    OtherClient();
    ~OtherClient() { kill(); }
    OtherClient(const OtherClient&) = delete;
    OtherClient& operator=(const OtherClient&) = delete;

    bool isRegistered() const { return isRegistered_; }
    void kill();

    /** What that process runs: registers, prints "registered", and waits. Its exit status. */
    static int run();

  private:
    int process_ = -1;
    bool isRegistered_ = false;
};

}  // namespace vts
