#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>

#include "managers/support/BoundedWorker.h"
#include "tests/support/Counted.h"
#include "tests/support/Descriptors.h"
#include "tests/support/Footprint.h"
#include "tests/support/LogCapture.h"
#include "tests/support/NoNewThreads.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/WaitsIn.h"

namespace Ursa::OS::Wifi {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

/** Long enough for whatever is not to be given up. */
constexpr seconds kLong{30};
/** For what hangs: nothing else depends on it. */
constexpr milliseconds kShort{1};

[[noreturn]] void hang() {
    while (true) {
        pause();
    }
}

/** A gate that starts closed. */
class Gate {
  public:
    Gate() { sem_init(&open_, 0, 0); }
    ~Gate() { sem_destroy(&open_); }
    Gate(const Gate&) = delete;
    Gate& operator=(const Gate&) = delete;

    void open() { sem_post(&open_); }
    void pass() {
        while (sem_wait(&open_) != 0) {
        }
    }

  private:
    sem_t open_;
};

/**
 * Waits until the thread sleeps in that system call: ThreadSanitizer may lose a signal that comes
 * in the moment in which a thread enters a blocking call.
 */
bool waitUntilItIsIn(long systemCall, const std::atomic<pid_t>& thread) {
    return test::waitUntil([&] { return thread != 0 && test::waitsIn(thread, systemCall); });
}

bool waitUntilItHangs(const std::atomic<pid_t>& thread) {
    return waitUntilItIsIn(test::kPauseCall, thread);
}

/** Returns the mask as it was. */
sigset_t blockAlarm() {
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &alarm, &before);
    return before;
}

bool isGone(pid_t thread) {
    return access(("/proc/self/task/" + std::to_string(thread)).c_str(), F_OK) != 0;
}

/** A call hangs, is waited for in vain, and leaves nothing behind. */
void expectAHungCallToBeEnded() {
    std::atomic<int> counted{0};
    {
        std::atomic<pid_t> thread{0};
        BoundedWorker worker([&thread, held = std::make_shared<test::Counted>(counted)] {
            thread = gettid();
            BoundedWorker::mayHang([] { hang(); });
            return true;
        });
        EXPECT_TRUE(waitUntilItHangs(thread));
        EXPECT_EQ(worker.wait(kShort), std::nullopt);
    }
    EXPECT_TRUE(test::waitUntil([&] { return counted == 0; }));
}

TEST(BoundedWorker, ResultInTimeIsReturned) {
    for (const bool result : {true, false}) {
        BoundedWorker worker([result] { return result; });
        EXPECT_EQ(worker.wait(kLong), result);
    }
}

TEST(BoundedWorker, CallRunsOnAThreadOfItsOwnThatHasEndedWhenTheResultIsThere) {
    pid_t thread = 0;
    BoundedWorker worker([&] {
        thread = gettid();
        return true;
    });
    ASSERT_TRUE(worker.wait(kLong));
    EXPECT_NE(thread, gettid());
    EXPECT_TRUE(test::waitUntil([&] { return isGone(thread); }));
}

TEST(BoundedWorker, HungCallThatIsGivenUpIsUnwoundAndItsThreadEnds) {
    std::atomic<int> counted{0};
    std::atomic<pid_t> thread{0};
    auto held = std::make_shared<test::Counted>(counted);
    BoundedWorker worker([&, held] {
        const test::Counted onTheStack(counted);
        thread = gettid();
        BoundedWorker::mayHang([] { hang(); });
        return true;
    });
    held.reset();
    ASSERT_TRUE(waitUntilItHangs(thread));

    EXPECT_EQ(worker.wait(kShort), std::nullopt);
    worker.giveUp();

    EXPECT_TRUE(test::waitUntil([&] { return isGone(thread); }));
    EXPECT_EQ(counted, 0) << "the stack or the closure was left behind";
}

TEST(BoundedWorker, WorkerWithoutAThreadHasNoResultAndLogsWhy) {
    const test::LogCapture log;
    std::atomic<int> counted{0};
    bool called = false;
    {
        const test::NoNewThreads limit;
        BoundedWorker worker([&, held = std::make_shared<test::Counted>(counted)] {
            called = true;
            return true;
        });
        EXPECT_FALSE(worker.isStarted());
        EXPECT_EQ(worker.wait(kLong), std::nullopt);
        worker.giveUp();
    }
    EXPECT_FALSE(called);
    EXPECT_EQ(counted, 0);
    EXPECT_THAT(log.messages(ANDROID_LOG_ERROR),
                testing::ElementsAre("BoundedWorker: Failed to start a thread: " +
                                     test::NoNewThreads::refusal()));
    BoundedWorker worker([] { return true; });
    EXPECT_TRUE(worker.isStarted());
    EXPECT_EQ(worker.wait(kLong), true);
}

TEST(BoundedWorker, WaitForAHungCallLastsAsLongAsTheLimit) {
    BoundedWorker worker([] {
        BoundedWorker::mayHang([] { hang(); });
        return true;
    });
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(worker.wait(milliseconds(200)), std::nullopt);
    EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(200));
}

TEST(BoundedWorker, DestructorOfAWorkerWhoseCallHangsGivesItUp) {
    std::atomic<int> counted{0};
    {
        std::atomic<pid_t> thread{0};
        BoundedWorker worker([&thread, held = std::make_shared<test::Counted>(counted)] {
            thread = gettid();
            BoundedWorker::mayHang([] { hang(); });
            return true;
        });
        EXPECT_TRUE(waitUntilItHangs(thread));
    }
    EXPECT_TRUE(test::waitUntil([&] { return counted == 0; }));
}

TEST(BoundedWorker, WorkerGivenUpBeforeItsCallFinishesItsOwnWorkAndMakesNoCall) {
    std::atomic<bool> worked{false};
    std::atomic<bool> called{false};
    std::atomic<int> counted{0};
    Gate givenUp;
    BoundedWorker worker([&, held = std::make_shared<test::Counted>(counted)] {
        givenUp.pass();  // returns early if a signal's handler ran
        worked = true;
        BoundedWorker::mayHang([&] { called = true; });
        return true;
    });
    EXPECT_EQ(worker.wait(kShort), std::nullopt);
    worker.giveUp();
    givenUp.open();

    EXPECT_TRUE(test::waitUntil([&] { return counted == 0; }));
    EXPECT_TRUE(worked);
    EXPECT_FALSE(called) << "it was given up, and called the service all the same";
}

TEST(BoundedWorker, WorkerGivenUpBetweenTwoCallsFinishesItsOwnWorkAndMakesNoSecondCall) {
    std::atomic<bool> worked{false};
    std::atomic<bool> calledAgain{false};
    std::atomic<int> counted{0};
    Gate returned;
    Gate givenUp;
    BoundedWorker worker([&, held = std::make_shared<test::Counted>(counted)] {
        BoundedWorker::mayHang([] {});
        returned.open();
        givenUp.pass();
        worked = true;
        BoundedWorker::mayHang([&] { calledAgain = true; });
        return true;
    });
    returned.pass();
    EXPECT_EQ(worker.wait(kShort), std::nullopt);
    worker.giveUp();
    givenUp.open();

    EXPECT_TRUE(test::waitUntil([&] { return counted == 0; }));
    EXPECT_TRUE(worked);
    EXPECT_FALSE(calledAgain);
}

TEST(BoundedWorker, GivenUpCallThatKeepsTheAlarmOutEndsWhenItLetsItIn) {
    std::atomic<bool> computed{false};
    std::atomic<bool> returned{false};
    std::atomic<int> counted{0};
    Gate computing;
    Gate givenUp;
    BoundedWorker worker([&, held = std::make_shared<test::Counted>(counted)] {
        BoundedWorker::mayHang([&] {
            const sigset_t before = blockAlarm();
            computing.open();
            givenUp.pass();
            computed = true;
            pthread_sigmask(SIG_SETMASK, &before, nullptr);
            returned = true;
        });
        return true;
    });
    computing.pass();
    EXPECT_EQ(worker.wait(kShort), std::nullopt);
    worker.giveUp();
    givenUp.open();

    EXPECT_TRUE(test::waitUntil([&] { return counted == 0; }));
    EXPECT_TRUE(computed);
    EXPECT_FALSE(returned);
}

TEST(BoundedWorker, AlarmFromOutsideDoesNotEndACallThatWasNotGivenUp) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    std::atomic<pid_t> thread{0};
    BoundedWorker worker([&] {
        thread = gettid();
        char byte = 0;
        return BoundedWorker::mayHang([&] { return read(ends[0], &byte, 1); }) == 1;
    });
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(waitUntilItIsIn(SYS_read, thread));
        EXPECT_EQ(syscall(SYS_tgkill, getpid(), thread.load(), SIGALRM), 0);
    }
    ASSERT_TRUE(waitUntilItIsIn(SYS_read, thread));
    EXPECT_EQ(write(ends[1], "", 1), 1);
    EXPECT_EQ(worker.wait(kLong), true);
    close(ends[0]);
    close(ends[1]);
}

TEST(BoundedWorker, AlarmFromOutsideDoesNotKeepGivingUpFromEndingACall) {
    std::atomic<int> counted{0};
    std::atomic<pid_t> thread{0};
    BoundedWorker worker([&thread, held = std::make_shared<test::Counted>(counted)] {
        thread = gettid();
        BoundedWorker::mayHang([] { hang(); });
        return true;
    });
    ASSERT_TRUE(waitUntilItHangs(thread));
    EXPECT_EQ(syscall(SYS_tgkill, getpid(), thread.load(), SIGALRM), 0);
    ASSERT_TRUE(waitUntilItHangs(thread));
    EXPECT_EQ(counted, 1);
    EXPECT_EQ(worker.wait(kShort), std::nullopt);
    worker.giveUp();
    EXPECT_TRUE(test::waitUntil([&] { return counted == 0; }));
}

TEST(BoundedWorker, CallHandsItsResultOver) {
    const auto check = [] {
        bool called = false;
        BoundedWorker::mayHang([&] { called = true; });
        const auto owned = BoundedWorker::mayHang([] { return std::make_unique<int>(7); });
        return called && *owned == 7 && BoundedWorker::mayHang([] { return 8; }) == 8;
    };
    EXPECT_TRUE(check());
    BoundedWorker worker(check);
    EXPECT_EQ(worker.wait(kLong), true);
}

TEST(BoundedWorker, CallOnAThreadThatIsNoWorkerLeavesTheSignalsMaskAlone) {
    const sigset_t before = blockAlarm();
    sigset_t inside;
    BoundedWorker::mayHang([&] { pthread_sigmask(SIG_BLOCK, nullptr, &inside); });
    sigset_t after;
    pthread_sigmask(SIG_SETMASK, &before, &after);
    EXPECT_EQ(sigismember(&inside, SIGALRM), 1);
    EXPECT_EQ(sigismember(&after, SIGALRM), 1);
}

TEST(BoundedWorker, CallThatThrowsIsLoggedAndCountsAsFalse) {
    const test::LogCapture log;
    BoundedWorker worker([] {
        return BoundedWorker::mayHang([]() -> bool { throw std::runtime_error("broken"); });
    });
    EXPECT_EQ(worker.wait(seconds(30)), std::optional(false));
    EXPECT_THAT(log.messages(ANDROID_LOG_ERROR),
                testing::ElementsAre("BoundedWorker: A call failed: broken"));
}

TEST(BoundedWorker, ResultAfterTheLimitIsLost) {
    std::atomic<int> counted{0};
    Gate givenUp;
    {
        BoundedWorker worker([&, held = std::make_shared<test::Counted>(counted)] {
            givenUp.pass();
            return true;
        });
        EXPECT_EQ(worker.wait(kShort), std::nullopt);
    }
    givenUp.open();  // what it returns to has been destroyed
    EXPECT_TRUE(test::waitUntil([&] { return counted == 0; }));
}

TEST(BoundedWorker, CallThatReturnsWhileItIsGivenUpLeavesNoThread) {
    // The limit is about what the call takes, so that both are first many times.
    int returned = 0;
    int late = 0;
    const auto before = test::runningThreads();
    for (int i = 0; i < 400; ++i) {
        auto value = std::make_shared<std::atomic<int>>(0);
        BoundedWorker worker([value, i] {
            BoundedWorker::mayHang([&] { usleep(static_cast<useconds_t>(900 + i % 200)); });
            ++*value;
            return true;
        });
        if (const auto result = worker.wait(milliseconds(1))) {
            EXPECT_EQ(*value, 1);
            ++returned;
        } else {
            worker.giveUp();
            ++late;
        }
    }
    std::cout << returned << " returned, " << late << " were given up\n";
    EXPECT_TRUE(test::waitUntil([&] { return test::runningThreads() <= before; }));
}

TEST(BoundedWorker, AlarmOnAThreadThatIsNoWorkerDoesNothing) {
    BoundedWorker worker([] { return true; });
    ASSERT_TRUE(worker.wait(kLong));
    EXPECT_EQ(pthread_kill(pthread_self(), SIGALRM), 0);  // would end the process, or this thread
    BoundedWorker::mayHang([] {});
    sigset_t now;
    pthread_sigmask(SIG_BLOCK, nullptr, &now);
    EXPECT_EQ(sigismember(&now, SIGALRM), 0);
}

TEST(BoundedWorker, HungCallIsEndedInAProcessThatBlocksTheSignal) {
    const sigset_t before = blockAlarm();
    expectAHungCallToBeEnded();
    sigset_t now;
    pthread_sigmask(SIG_SETMASK, &before, &now);
    EXPECT_EQ(sigismember(&now, SIGALRM), 1) << "the caller's own mask was changed";
}

TEST(BoundedWorker, HungCallIsEndedWhereAnotherHandlerWasInstalled) {
    signal(SIGALRM, SIG_IGN);
    expectAHungCallToBeEnded();
}

TEST(BoundedWorker, ThousandTimeOutsOfHungCallsLeaveNothingBehind) {
    std::atomic<int> counted{0};
    std::atomic<int> hung{0};
    constexpr int kBytes = 4096;
    const auto timeOut = [&] {
        std::atomic<pid_t> thread{0};
        BoundedWorker worker([&, held = std::make_shared<test::Counted>(counted),
                              memory = std::vector<char>(kBytes)] {
            std::array<char, kBytes> stack;
            stack.fill(memory.front());
            ++hung;
            thread = gettid();
            BoundedWorker::mayHang([] { hang(); });
            return stack.back() == '\0';
        });
        ASSERT_TRUE(waitUntilItHangs(thread));
        EXPECT_EQ(worker.wait(kShort), std::nullopt);
        worker.giveUp();
    };
    for (int i = 0; i < 50; ++i) {  // the first threads leave stacks and arenas to be used again
        timeOut();
    }
    // A sanitizer may have a thread of its own.
    EXPECT_TRUE(test::waitUntil([&] { return counted == 0 && test::runningThreads() <= 2; }));
    const test::Footprint before;
    hung = 0;

    for (int i = 0; i < 1000; ++i) {
        timeOut();
    }

    EXPECT_TRUE(test::waitUntil([&] { return counted == 0; })) << counted;
    EXPECT_TRUE(test::waitUntil([&] { return test::runningThreads() <= before.threads; }));
    const test::Footprint now;
    std::cout << "after 1000 time-outs, " << hung << " of them inside the call: " << before.threads
              << " threads before, " << now.threads << " now; " << before.descriptors
              << " descriptors before, " << now.descriptors << " now; " << now.grownSince(before)
              << " more bytes allocated\n";
    EXPECT_EQ(now.descriptors, before.descriptors);
    // Under a sanitizer these are other allocators' figures, and 0.
    EXPECT_LT(now.grownSince(before), 64 * 1024) << "one closure in 64 was left behind, or more";
}

}  // namespace

}  // namespace Ursa::OS::Wifi
