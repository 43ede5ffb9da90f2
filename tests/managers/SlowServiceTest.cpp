// What a worker's time-out does to a sensor service that is slow: its calls compute, allocate and
// use files when the signal comes, where a thread can't be ended without ending the process.

#include <fcntl.h>
#include <semaphore.h>
#include <signal.h>
#include <stdio.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/ucontext.h>
#include <sys/wait.h>
#include <vrsensors/Sensors.h>

#include "managers/support/BoundedWorker.h"
#include "tests/support/Counted.h"
#include "tests/support/Descriptors.h"
#include "tests/support/DeviceRoot.h"
#include "tests/support/Footprint.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/WaitsIn.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define SANITIZED 1
#endif
#endif

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define THREAD_SANITIZED 1
#endif
#endif

/**
 * A provider is not released if the signal comes between the library's return and the end of
 * mayHang(): docs/hung-calls.md. LeakSanitizer sees it; everything else must not leak.
 */
extern "C" const char* __lsan_default_suppressions();  // NOLINT: the sanitizer's name
extern "C" const char* __lsan_default_suppressions() { return "leak:Ursa::Sensors::make\n"; }

namespace {

/** A report, though it is suppressed, has ThreadSanitizer start a symbolizer, on two pipes' ends.
 */
#ifdef THREAD_SANITIZED
constexpr int kSanitizerDescriptors = 2;
#else
constexpr int kSanitizerDescriptors = 0;
#endif

/** Where a thread stops until it is told to go on. Usable in a signal handler. */
class Stop {
  public:
    Stop() {
        sem_init(&reached_, 0, 0);
        sem_init(&goOn_, 0, 0);
    }
    ~Stop() {
        sem_destroy(&reached_);
        sem_destroy(&goOn_);
    }
    Stop(const Stop&) = delete;
    Stop& operator=(const Stop&) = delete;

    /** On the thread. */
    void reach() {
        sem_post(&reached_);
        pass_(goOn_);
    }

    /** On another one. */
    void waitUntilReached() { pass_(reached_); }
    bool isReached() { return sem_trywait(&reached_) == 0; }
    void goOn() { sem_post(&goOn_); }

  private:
    static void pass_(sem_t& semaphore) {
        while (sem_wait(&semaphore) != 0) {
        }
    }

    sem_t reached_;
    sem_t goOn_;
};

thread_local Stop* stopInRename = nullptr;
#ifndef SANITIZED
thread_local Stop* stopInDelete = nullptr;
thread_local int deletesBeforeStop = 0;
#endif

}  // namespace

// In place of the C library's: that of the thread under test waits where it is told to.
extern "C" int rename(const char* from, const char* to) noexcept {
    if (Stop* const stop = std::exchange(stopInRename, nullptr)) {
        stop->reach();
    }
    return renameat(AT_FDCWD, from, AT_FDCWD, to);
}

#ifndef SANITIZED  // which have operators of their own
void operator delete(void* memory) noexcept {
    if (stopInDelete != nullptr && deletesBeforeStop-- == 0) {
        std::exchange(stopInDelete, nullptr)->reach();
    }
    free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept { operator delete(memory); }
#endif

namespace Ursa::OS::Wifi {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr int kTimeOuts = 1000;
/** For a call that is known to be held up. */
constexpr milliseconds kShort{0};
constexpr std::chrono::seconds kLong{30};

/** All that the managers call, as they do. */
bool useService(Sensors::ControllerWirelessFreqBlocklist added) {
    const auto camera = BoundedWorker::mayHang([] { return Sensors::createCameraProvider(); });
    if (camera == nullptr) {
        return false;
    }
    const std::string name = "worldTracking";
    BoundedWorker::mayHang([&] { return camera->notifyMipiClock(name, 1); });
    const auto controller =
        BoundedWorker::mayHang([] { return Sensors::createControllerProvider(); });
    Sensors::ControllerWirelessFreqBlocklists list;
    if (controller == nullptr ||
        !BoundedWorker::mayHang([&] { return controller->getWirelessFreqBlocklists(list); })) {
        return false;
    }
    list.push_back(added);
    return BoundedWorker::mayHang([&] { return controller->setWirelessFreqBlocklists(list); }) &&
           BoundedWorker::mayHang([&] { return controller->clearWirelessFreqBlocklists(); });
}

#if defined(__x86_64__) && !defined(SANITIZED)
/**
 * Runs one thread instruction by instruction, by the processor's trap flag, and stops it at the one
 * that is asked for. Instructions are counted apart for SIGALRM unblocked and blocked.
 */
class Stepper {
  public:
    struct Count {
        long unblocked = 0;
        long blocked = 0;
    };

    Stepper(Stop& stop, Count stopAt) : stop_(stop), stopAt_(stopAt) {
        current_ = this;
        struct sigaction action = {};
        action.sa_sigaction = onTrap_;
        action.sa_flags = SA_SIGINFO;
        sigfillset(&action.sa_mask);
        sigaction(SIGTRAP, &action, nullptr);
    }
    ~Stepper() { signal(SIGTRAP, SIG_DFL); }
    Stepper(const Stepper&) = delete;
    Stepper& operator=(const Stepper&) = delete;

    /** On the thread. */
    void begin() {
        isStepping_ = true;
        raise(SIGTRAP);
    }
    void end() { isStepping_ = false; }

    /** Instructions before the stop, or all of them. */
    Count count() const { return {unblocked_, blocked_}; }

  private:
    static void onTrap_(int /*signal*/, siginfo_t* /*info*/, void* context) {
        constexpr greg_t kTrapFlag = 0x100;
        auto* const interrupted = static_cast<ucontext_t*>(context);
        greg_t& flags = interrupted->uc_mcontext.gregs[REG_EFL];
        flags |= kTrapFlag;
        if (current_->isLast_(sigismember(&interrupted->uc_sigmask, SIGALRM) == 0)) {
            flags &= ~kTrapFlag;
        }
    }

    bool isLast_(bool isUnblocked) {
        if (!isStepping_) {
            return true;
        }
        std::atomic<long>& count = isUnblocked ? unblocked_ : blocked_;
        if (++count != (isUnblocked ? stopAt_.unblocked : stopAt_.blocked)) {
            return false;
        }
        stop_.reach();
        return true;
    }

    inline static Stepper* current_ = nullptr;

    Stop& stop_;
    const Count stopAt_;
    std::atomic<bool> isStepping_{false};
    std::atomic<long> unblocked_{0};
    std::atomic<long> blocked_{0};
};
#endif

class SlowService : public testing::Test {
  protected:
    std::string blocklistFile() const {
        return root_.path() + "/data/vendor/sensors/controller_blocklist";
    }

    void writeBlocklist(int ranges) const {
        std::filesystem::create_directories(root_.path() + "/data/vendor/sensors");
        std::ofstream file(blocklistFile());
        for (int i = 0; i < ranges; ++i) {
            file << 2402 + i % 20 << " " << 2430 + i % 20 << "\n";
        }
    }

    /** A worker whose closure is counted until it is gone. */
    BoundedWorker start(std::function<bool()> call) {
        return BoundedWorker([call = std::move(call), held = std::make_shared<test::Counted>(
                                                          closures_)] { return call(); });
    }

    /** Gives up `call` when it has reached `stop`, and lets it go on. */
    void giveUpAt(Stop& stop, std::function<bool()> call) {
        BoundedWorker worker = start(std::move(call));
        stop.waitUntilReached();
        EXPECT_EQ(worker.wait(kShort), std::nullopt);
        worker.giveUp();
        stop.goOn();
        expectEnded();
    }

    /** Gives up `call` after a time; returns whether it had not returned by then. */
    bool giveUpAfter(microseconds time, std::function<bool()> call) {
        bool isTimeOut = false;
        {
            BoundedWorker worker = start(std::move(call));
            // Shorter than wait()'s limits can be.
            const auto end = steady_clock::now() + time;
            while (steady_clock::now() < end) {
            }
            isTimeOut = !worker.wait(kShort);
        }
        expectEnded();
        return isTimeOut;
    }

    void expectEnded() {
        EXPECT_TRUE(test::waitUntil([&] { return closures_ == 0; })) << "a closure is left";
    }

    void expectNothingLeft(const test::Footprint& before) {
        EXPECT_TRUE(test::waitUntil([&] { return test::runningThreads() <= before.threads; }));
        const test::Footprint now;
        std::cout << "threads " << before.threads << " -> " << now.threads << ", descriptors "
                  << before.descriptors << " -> " << now.descriptors << ", bytes allocated "
                  << before.bytes << " -> " << now.bytes << "\n";
        EXPECT_LE(now.descriptors, before.descriptors + kSanitizerDescriptors);
        EXPECT_LT(now.grownSince(before), 64 * 1024);
    }

    test::DeviceRoot root_;
    std::atomic<int> closures_{0};
};

TEST_F(SlowService, TimeOutInRenameEndsTheThreadOnly) {
    const Sensors::ControllerWirelessFreqBlocklists list = {{2402, 2430}};
    const auto timeOut = [&] {
        Stop stop;
        giveUpAt(stop, [&] {
            const auto controller =
                BoundedWorker::mayHang([] { return Sensors::createControllerProvider(); });
            stopInRename = &stop;
            BoundedWorker::mayHang([&] { return controller->setWirelessFreqBlocklists(list); });
            ADD_FAILURE() << "it has been given up";
            return true;
        });
    };
    timeOut();
    const test::Footprint before;
    for (int i = 0; i < kTimeOuts; ++i) {
        timeOut();
    }
    expectNothingLeft(before);
}

TEST_F(SlowService, TimeOutInAFilesOpenEndsTheThreadOnly) {
    writeBlocklist(0);
    std::filesystem::remove(blocklistFile());
    ASSERT_EQ(mkfifo(blocklistFile().c_str(), 0600), 0);  // open() waits until somebody writes
    const auto timeOut = [&] {
        std::atomic<pid_t> thread{0};
        BoundedWorker worker = start([&] {
            const auto controller =
                BoundedWorker::mayHang([] { return Sensors::createControllerProvider(); });
            Sensors::ControllerWirelessFreqBlocklists list;
            thread = gettid();
            BoundedWorker::mayHang([&] { return controller->getWirelessFreqBlocklists(list); });
            ADD_FAILURE() << "it has been given up";
            return true;
        });
        EXPECT_TRUE(
            test::waitUntil([&] { return thread != 0 && test::waitsIn(thread, SYS_openat); }));
        EXPECT_EQ(worker.wait(kShort), std::nullopt);
        worker.giveUp();
        // Not only for writing, which would wait for a reader that has been ended.
        const int fifo = open(blocklistFile().c_str(), O_RDWR | O_CLOEXEC);
        EXPECT_EQ(write(fifo, "2402 2430\n", 10), 10);
        close(fifo);
        expectEnded();
    };
    timeOut();
    const test::Footprint before;
    for (int i = 0; i < kTimeOuts; ++i) {
        timeOut();
    }
    expectNothingLeft(before);
}

#ifndef SANITIZED
TEST_F(SlowService, TimeOutInADestructorEndsTheThreadOnly) {
    writeBlocklist(100);
    const auto timeOut = [&](int deletes) {
        Stop stop;
        giveUpAt(stop, [&] {
            const auto controller =
                BoundedWorker::mayHang([] { return Sensors::createControllerProvider(); });
            Sensors::ControllerWirelessFreqBlocklists list;
            deletesBeforeStop = deletes;
            stopInDelete = &stop;
            BoundedWorker::mayHang([&] { return controller->getWirelessFreqBlocklists(list); });
            ADD_FAILURE() << "it has been given up";
            return true;
        });
    };
    timeOut(0);
    const test::Footprint before;
    for (int i = 0; i < kTimeOuts; ++i) {
        timeOut(i % 100);
    }
    expectNothingLeft(before);
}
#endif

TEST_F(SlowService, TimeOutAnywhereInParsingAndFormattingEndsTheThreadOnly) {
    constexpr int kRanges = 300;
    std::minstd_rand random(1);
    const auto use = [] { return useService({2402, 2430}); };
    const auto timeInFull = [&] {
        writeBlocklist(kRanges);
        const auto begin = steady_clock::now();
        EXPECT_EQ(start(use).wait(kLong), true);
        return std::chrono::duration_cast<microseconds>(steady_clock::now() - begin);
    };
    timeInFull();
    const test::Footprint before;
    int timeOuts = 0;
    microseconds inFull{0};
    for (int i = 0; i < 10 * kTimeOuts && timeOuts < kTimeOuts; ++i) {
        if (i % 50 == 0) {
            inFull = timeInFull();  // what else the machine does changes it
        }
        writeBlocklist(kRanges);
        timeOuts += giveUpAfter(inFull * (random() % 1000) / 1000, use) ? 1 : 0;
    }
    EXPECT_EQ(timeOuts, kTimeOuts);
    expectNothingLeft(before);
}

TEST_F(SlowService, TimeOutOfAStoppedProcessEndsTheThreadOnly) {
    const milliseconds kLimit{2};
    int toParent[2];
    ASSERT_EQ(pipe(toParent), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        close(toParent[0]);
        const auto timeOut = [&] {
            BoundedWorker worker = start([kLimit] {
                const auto end = steady_clock::now() + kLimit / 2;
                while (steady_clock::now() < end && useService({2402, 2430})) {
                }
                return true;
            });
            EXPECT_EQ(write(toParent[1], "", 1), 1);
            const bool isTimeOut = !worker.wait(kLimit);
            worker.giveUp();
            expectEnded();
            return isTimeOut;
        };
        timeOut();
        const test::Footprint before;
        int timeOuts = 0;
        for (int i = 0; i < 10 * kTimeOuts && timeOuts < kTimeOuts; ++i) {
            timeOuts += timeOut() ? 1 : 0;
        }
        EXPECT_EQ(timeOuts, kTimeOuts);
        expectNothingLeft(before);
        std::cout << std::flush;
        _exit(HasFailure() ? 1 : 0);
    }
    close(toParent[1]);
    for (char begun; read(toParent[0], &begun, 1) == 1;) {
        kill(child, SIGSTOP);
        std::this_thread::sleep_for(2 * kLimit);
        kill(child, SIGCONT);
    }
    close(toParent[0]);
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "ended by signal " << WTERMSIG(status);
}

#if defined(__x86_64__) && !defined(SANITIZED)
TEST_F(SlowService, TimeOutAtAnyInstructionEndsTheThreadOnly) {
    if (CORVID_JUMP_TABLES) {
        GTEST_SKIP() << "calls go through tables whose entries glibc cannot unwind";
    }
    // The state files' work is left out by a failure: an instruction takes microseconds.
    root_.setProperty("debug.sensors.controller.get", "fail");
    root_.setProperty("debug.sensors.camera.notify", "hang");
    const std::string name = "worldTracking";
    const auto camera = Sensors::createCameraProvider();
    const auto controller = Sensors::createControllerProvider();
    Sensors::ControllerWirelessFreqBlocklists list;
    const std::pair<const char*, std::function<void()>> operations[] = {
        {"creating a provider",
         [] { BoundedWorker::mayHang([] { return Sensors::createControllerProvider(); }); }},
        {"an operation",
         [&] {
             BoundedWorker::mayHang([&] { return controller->getWirelessFreqBlocklists(list); });
         }},
        {"an operation that hangs",
         [&] { BoundedWorker::mayHang([&] { return camera->notifyMipiClock(name, 1); }); }},
    };
    // Steps through an operation and gives it up at an instruction, or at its end.
    const auto run = [&](const std::function<void()>& operation, Stepper::Count giveUpAt) {
        Stop stop;
        Stepper stepper(stop, giveUpAt);
        std::atomic<pid_t> thread{0};
        BoundedWorker worker = start([&] {
            thread = gettid();
            stepper.begin();
            operation();
            stepper.end();
            return true;
        });
        bool isStopped = false;
        EXPECT_TRUE(test::waitUntil([&] {
            isStopped = stop.isReached();
            return isStopped || closures_ == 0 ||
                   (thread != 0 && test::waitsIn(thread, test::kPauseCall));
        }));
        EXPECT_EQ(isStopped, giveUpAt.unblocked + giveUpAt.blocked != 0);
        worker.wait(kShort);
        worker.giveUp();
        stop.goOn();
        expectEnded();
        return stepper.count();
    };
    for (const auto& [what, operation] : operations) {
        run(operation, {});  // binds the functions that are called for the first time
        const Stepper::Count all = run(operation, {});
        std::cout << what << ": " << all.unblocked << " instructions with SIGALRM unblocked, "
                  << all.blocked << " with it blocked\n";
        EXPECT_GT(all.unblocked, 0);
        for (long i = 1; i <= all.unblocked; ++i) {
            run(operation, {i, 0});
        }
        for (long i = 1; i < all.blocked * 9 / 10; i += 150) {  // they are not always as many
            run(operation, {0, i});
        }
    }
}
#endif

}  // namespace
}  // namespace Ursa::OS::Wifi
