#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <vrsensors/Sensors.h>

#include "TempRoot.h"
#include "tests/support/WaitsIn.h"

// Ending a thread by pthread_exit in a signal handler is what the library promises to survive; to
// ThreadSanitizer all that is unwound then is still "inside the signal handler", frees included.
// The ended thread waits in pause(), so no allocator or lock was interrupted.
extern "C" const char* __tsan_default_suppressions() {  // NOLINT(bugprone-reserved-identifier)
    return "signal:Ursa::Sensors::*hangsUntilEnded\n";
}

namespace Ursa::Sensors {

bool operator==(const ControllerWirelessFreqBlocklist& a,
                const ControllerWirelessFreqBlocklist& b) {
    return a.start == b.start && a.end == b.end;
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class Sensors : public testing::Test {
  protected:
    static constexpr const char* kBlocklist = "/data/vendor/sensors/controller_blocklist";

    std::vector<std::string> stateFiles() const {
        std::vector<std::string> names;
        std::error_code ignored;
        for (const auto& entry :
             std::filesystem::directory_iterator(root_.path("/data/vendor/sensors"), ignored)) {
            names.push_back(entry.path().filename());
        }
        return names;
    }

    /**
     * Runs `operation`, which hangs, on a thread of its own; waits until it does; ends the thread
     * as an impatient caller does, by a signal handler that calls pthread_exit. Returns whether the
     * operation was left by unwinding.
     */
    static bool hangsUntilEnded(const std::function<void()>& operation);

    TempRoot root_;
};

bool Sensors::hangsUntilEnded(const std::function<void()>& operation) {
    struct sigaction action = {};
    action.sa_handler = [](int) { pthread_exit(nullptr); };
    sigaction(SIGALRM, &action, nullptr);

    std::promise<pid_t> started;
    std::atomic<bool> returned = false;
    std::promise<void> unwound;
    std::thread worker([&] {
        struct Unwinding {
            std::promise<void>& done;
            ~Unwinding() { done.set_value(); }
        };
        const Unwinding unwinding = {unwound};
        started.set_value(gettid());
        operation();
        returned = true;
    });
    const pid_t thread = started.get_future().get();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!test::waitsIn(thread, test::kPauseCall) && !returned &&
           std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    const bool hung = test::waitsIn(thread, test::kPauseCall);
    pthread_kill(worker.native_handle(), SIGALRM);
    const bool ended =
        unwound.get_future().wait_for(std::chrono::seconds(20)) == std::future_status::ready;
    worker.join();
    return hung && ended && !returned;
}

TEST_F(Sensors, TransportErrorActionIsTheValueLastSet) {
    setTransportErrorAction(static_cast<TransportErrorAction>(1));
    setTransportErrorAction(static_cast<TransportErrorAction>(3));
    EXPECT_EQ(root_.read("/data/vendor/sensors/transport_error_action"), "3\n");
}

TEST_F(Sensors, BlocklistIsEmptyWithoutAFile) {
    ControllerWirelessFreqBlocklists ranges = {{1, 2}};
    EXPECT_TRUE(createControllerProvider()->getWirelessFreqBlocklists(ranges));
    EXPECT_THAT(ranges, IsEmpty());
}

TEST_F(Sensors, EmptyFileIsAnEmptyBlocklist) {
    root_.write(kBlocklist, "");
    ControllerWirelessFreqBlocklists ranges = {{1, 2}};
    EXPECT_TRUE(createControllerProvider()->getWirelessFreqBlocklists(ranges));
    EXPECT_THAT(ranges, IsEmpty());
}

TEST_F(Sensors, RangesKeepTheirOrderForEveryProvider) {
    EXPECT_TRUE(createControllerProvider()->setWirelessFreqBlocklists(
        {{2444, 2476}, {2425, 2427}, {0, 65535}}));
    EXPECT_EQ(root_.read(kBlocklist), "2444 2476\n2425 2427\n0 65535\n");
    ControllerWirelessFreqBlocklists ranges;
    EXPECT_TRUE(createControllerProvider()->getWirelessFreqBlocklists(ranges));
    EXPECT_THAT(ranges, ElementsAre(ControllerWirelessFreqBlocklist{2444, 2476},
                                    ControllerWirelessFreqBlocklist{2425, 2427},
                                    ControllerWirelessFreqBlocklist{0, 65535}));
}

TEST_F(Sensors, SetReplacesTheListAndClearEmptiesIt) {
    const std::unique_ptr<ControllerProvider> provider = createControllerProvider();
    EXPECT_TRUE(provider->setWirelessFreqBlocklists({{2402, 2430}, {2451, 2453}}));
    EXPECT_TRUE(provider->setWirelessFreqBlocklists({{2420, 2454}}));
    EXPECT_EQ(root_.read(kBlocklist), "2420 2454\n");
    EXPECT_TRUE(provider->clearWirelessFreqBlocklists());
    EXPECT_EQ(root_.read(kBlocklist), "");
    ControllerWirelessFreqBlocklists ranges;
    EXPECT_TRUE(provider->getWirelessFreqBlocklists(ranges));
    EXPECT_THAT(ranges, IsEmpty());
}

TEST_F(Sensors, NothingIsLeftBesideTheStateFiles) {
    createControllerProvider()->setWirelessFreqBlocklists({{2402, 2430}});
    createCameraProvider()->notifyMipiClock("worldTracking", 1);
    setTransportErrorAction(static_cast<TransportErrorAction>(3));
    EXPECT_THAT(stateFiles(), UnorderedElementsAre("controller_blocklist", "camera_clock",
                                                   "transport_error_action"));
}

TEST_F(Sensors, BlocklistFileThatDoesNotParseFailsAndLeavesTheListAlone) {
    for (const char* text : {"2402\n", "2402 2430 7\n", "2402  2430\n", "a b\n", "2402 70000\n",
                             "-1 5\n", "2402 2430\n\n2451 2453\n"}) {
        root_.write(kBlocklist, text);
        ControllerWirelessFreqBlocklists ranges = {{1, 2}};
        EXPECT_FALSE(createControllerProvider()->getWirelessFreqBlocklists(ranges)) << text;
        EXPECT_THAT(ranges, ElementsAre(ControllerWirelessFreqBlocklist{1, 2})) << text;
    }
}

TEST_F(Sensors, UnreadableBlocklistFails) {
    std::filesystem::create_directories(root_.path(kBlocklist));  // a folder in the file's place
    ControllerWirelessFreqBlocklists ranges;
    EXPECT_FALSE(createControllerProvider()->getWirelessFreqBlocklists(ranges));
    EXPECT_FALSE(createControllerProvider()->setWirelessFreqBlocklists({{2402, 2430}}));
    EXPECT_THAT(stateFiles(), ElementsAre("controller_blocklist"));
}

TEST_F(Sensors, EachClockNotificationAddsALine) {
    const std::unique_ptr<CameraProvider> provider = createCameraProvider();
    EXPECT_TRUE(provider->notifyMipiClock("worldTracking", 0));
    EXPECT_TRUE(createCameraProvider()->notifyMipiClock("worldTracking", 1));
    EXPECT_TRUE(provider->notifyMipiClock("eye", -1));
    EXPECT_EQ(root_.read("/data/vendor/sensors/camera_clock"),
              "worldTracking 0\nworldTracking 1\neye -1\n");
}

TEST_F(Sensors, ProviderIsNullIfThePropertySaysSo) {
    root_.setProperty("debug.sensors.controller.create", "null");
    root_.setProperty("debug.sensors.camera.create", "null");
    EXPECT_EQ(createControllerProvider(), nullptr);
    EXPECT_EQ(createCameraProvider(), nullptr);
}

TEST_F(Sensors, CallThatFailsByItsPropertyHasNoEffect) {
    const std::unique_ptr<ControllerProvider> provider = createControllerProvider();
    ASSERT_TRUE(provider->setWirelessFreqBlocklists({{2402, 2430}}));
    for (const char* operation : {"get", "set", "clear"}) {
        root_.setProperty(std::string("debug.sensors.controller.") + operation, "fail");
    }
    ControllerWirelessFreqBlocklists ranges = {{1, 2}};
    EXPECT_FALSE(provider->getWirelessFreqBlocklists(ranges));
    EXPECT_FALSE(provider->setWirelessFreqBlocklists({{2448, 2478}}));
    EXPECT_FALSE(provider->clearWirelessFreqBlocklists());
    EXPECT_THAT(ranges, ElementsAre(ControllerWirelessFreqBlocklist{1, 2}));
    EXPECT_EQ(root_.read(kBlocklist), "2402 2430\n");
}

TEST_F(Sensors, PropertyIsReadAtEachCall) {
    const std::unique_ptr<ControllerProvider> provider = createControllerProvider();
    root_.setProperty("debug.sensors.controller.set", "fail");
    EXPECT_FALSE(provider->setWirelessFreqBlocklists({{2402, 2430}}));
    root_.setProperty("debug.sensors.controller.set", "ok");
    EXPECT_TRUE(provider->setWirelessFreqBlocklists({{2402, 2430}}));
}

TEST_F(Sensors, UnknownValueOfAPropertyCountsAsOk) {
    root_.setProperty("debug.sensors.controller.create", "fail");
    root_.setProperty("debug.sensors.controller.set", "null");
    root_.setProperty("debug.sensors.camera.notify", "fail");
    EXPECT_TRUE(createControllerProvider()->setWirelessFreqBlocklists({}));
    EXPECT_TRUE(createCameraProvider()->notifyMipiClock("worldTracking", 0));
}

TEST_F(Sensors, HungCallIsEndedByPthreadExitAndHasNoEffect) {
    const std::shared_ptr<ControllerProvider> controllers = createControllerProvider();
    const std::shared_ptr<CameraProvider> cameras = createCameraProvider();
    ControllerWirelessFreqBlocklists ranges;
    const std::pair<const char*, std::function<void()>> operations[] = {
        {"controller.create", [] { createControllerProvider(); }},
        {"controller.get", [&] { controllers->getWirelessFreqBlocklists(ranges); }},
        {"controller.set",
         [&] {
             controllers->setWirelessFreqBlocklists({{2402, 2430}});
         }},
        {"controller.clear", [&] { controllers->clearWirelessFreqBlocklists(); }},
        {"camera.create", [] { createCameraProvider(); }},
        {"camera.notify", [&] { cameras->notifyMipiClock("worldTracking", 1); }},
    };
    for (const auto& [name, operation] : operations) {
        root_.setProperty(std::string("debug.sensors.") + name, "hang");
        EXPECT_TRUE(hangsUntilEnded(operation)) << name;
    }
    EXPECT_THAT(stateFiles(), IsEmpty());
}

}  // namespace
}  // namespace Ursa::Sensors
