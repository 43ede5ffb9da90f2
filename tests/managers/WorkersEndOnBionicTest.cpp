// A worker that is given up where the C library does not unwind it (docs/bionic.md). What it holds
// is left behind; everything else goes on.

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "managers/support/BoundedWorker.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/WaitsIn.h"

namespace Ursa::OS::Wifi {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kShort{5};
constexpr std::chrono::seconds kLong{30};

std::atomic<int> threadLocals{0};
struct ThreadLocal {
    ThreadLocal() { ++threadLocals; }
    ~ThreadLocal() { --threadLocals; }
    void touch() {}
};
thread_local ThreadLocal threadLocal;

/** A worker in a call that hangs, with an object on its stack and one in its closure. */
struct HungWorker {
    explicit HungWorker(const std::shared_ptr<int>& held)
        : worker([this, held] {
              const std::shared_ptr<int> onTheStack = held;
              threadLocal.touch();
              thread = gettid();
              return BoundedWorker::mayHang([] {
                  pause();
                  return true;
              });
          }) {}

    bool hangs() {
        return test::waitUntil(
            [&] { return thread != 0 && test::waitsIn(thread, test::kPauseCall); });
    }
    bool isGone() const {
        return test::waitUntil([&] {
            return access(("/proc/self/task/" + std::to_string(thread)).c_str(), F_OK) != 0;
        });
    }

    std::atomic<pid_t> thread{0};
    BoundedWorker worker;
};

TEST(WorkersEndOnBionic, ThreadEndsAndWhatItHeldIsLeftBehind) {
    const auto held = std::make_shared<int>();
    HungWorker hung(held);
    ASSERT_TRUE(hung.hangs());
    EXPECT_EQ(hung.worker.wait(kShort), std::nullopt);
    const long onTheThread = held.use_count() - 1;
    EXPECT_GE(onTheThread, 2) << "closure and stack";
    hung.worker.giveUp();
    EXPECT_TRUE(hung.isGone());
    EXPECT_EQ(held.use_count() - 1, onTheThread) << "something was unwound";
}

TEST(WorkersEndOnBionic, ThreadLocalObjectsAreDestroyed) {
    HungWorker hung(nullptr);
    ASSERT_TRUE(hung.hangs());
    EXPECT_EQ(threadLocals, 1);
    hung.worker.giveUp();
    EXPECT_TRUE(test::waitUntil([] { return threadLocals == 0; }));
}

TEST(WorkersEndOnBionic, NextCallsAreMade) {
    for (int i = 0; i < 300; ++i) {
        HungWorker hung(nullptr);
        ASSERT_TRUE(hung.hangs()) << i;
        EXPECT_EQ(hung.worker.wait(milliseconds(0)), std::nullopt);
        hung.worker.giveUp();
        ASSERT_TRUE(hung.isGone()) << i;
        BoundedWorker next([] { return BoundedWorker::mayHang([] { return true; }); });
        ASSERT_EQ(next.wait(kLong), true) << i;
    }
}

TEST(WorkersEndOnBionic, WorkerThatIsGivenUpBetweenCallsEndsAtTheNext) {
    std::atomic<bool> isGivenUp{false};
    std::atomic<bool> wasCalled{false};
    std::atomic<pid_t> thread{0};
    BoundedWorker worker([&] {
        thread = gettid();
        test::waitUntil([&] { return isGivenUp.load(); });
        BoundedWorker::mayHang([&] { wasCalled = true; });
        return true;
    });
    EXPECT_EQ(worker.wait(kShort), std::nullopt);
    worker.giveUp();
    isGivenUp = true;
    EXPECT_TRUE(test::waitUntil([&] {
        return thread != 0 &&
               access(("/proc/self/task/" + std::to_string(thread)).c_str(), F_OK) != 0;
    }));
    EXPECT_FALSE(wasCalled);
}

}  // namespace
}  // namespace Ursa::OS::Wifi
