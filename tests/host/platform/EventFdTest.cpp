#include <atomic>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <new>
#include <stdexcept>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ursa/os/EventFd.h>

#include "os/Poll.h"
#include "tests/support/RefusedMemory.h"

namespace Ursa::OS {
namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;

class EventFdTest : public testing::Test {
  protected:
    EventFdTest() { eventFd_->open(); }

    /** A task that writes `number` down. */
    std::function<void()> note(int number) {
        return [this, number] { notes_.push_back(number); };
    }

    /** Dispatches until nothing is ready; ends the test when that does not come. */
    void drain() {
        for (int wakeUps = 0; poll_->poll(0) != 0; wakeUps++) {
            ASSERT_LT(wakeUps, 1000);
        }
    }

    std::shared_ptr<Poll> poll_ = std::make_shared<Poll>();
    std::unique_ptr<EventFd> eventFd_ = std::make_unique<EventFd>(poll_);
    std::vector<int> notes_;
};

TEST_F(EventFdTest, TasksRunInOrderOnThePollingThread) {
    std::thread::id runner;
    std::thread poster([this, &runner] {
        eventFd_->post(note(1));
        eventFd_->post(note(2));
        eventFd_->post([&runner] { runner = std::this_thread::get_id(); });
        eventFd_->post(note(3));
    });
    poster.join();
    EXPECT_THAT(notes_, IsEmpty());
    EXPECT_EQ(poll_->poll(10000), 1);
    EXPECT_THAT(notes_, ElementsAre(1, 2, 3));
    EXPECT_EQ(runner, std::this_thread::get_id());
}

TEST_F(EventFdTest, TasksQueuedTogetherTakeOneWakeUp) {
    for (int i = 0; i < 100; i++) {
        eventFd_->post(note(i));
    }
    EXPECT_EQ(poll_->poll(0), 1);
    EXPECT_EQ(notes_.size(), 100U);
    EXPECT_EQ(poll_->poll(0), 0);
}

TEST_F(EventFdTest, PostWakesAWaitingLoop) {
    std::atomic<bool> ran = false;
    std::thread loop([this, &ran] {
        while (!ran) {
            poll_->poll(-1);
        }
    });
    eventFd_->post([&ran] { ran = true; });
    loop.join();
    EXPECT_TRUE(ran);
}

TEST_F(EventFdTest, LoopIsNotWokenWithoutATask) { EXPECT_EQ(poll_->poll(0), 0); }

TEST_F(EventFdTest, EmptyFunctionIsIgnored) {
    eventFd_->post(nullptr);
    EXPECT_EQ(poll_->poll(0), 0);
}

TEST_F(EventFdTest, TaskPostedBeforeOpenRunsAfterIt) {
    EventFd late(poll_);
    late.post(note(1));
    EXPECT_EQ(poll_->poll(0), 0);
    late.open();
    drain();
    EXPECT_THAT(notes_, ElementsAre(1));
}

TEST_F(EventFdTest, SecondOpenAndSecondCloseDoNothing) {
    eventFd_->open();
    eventFd_->post(note(1));
    drain();
    eventFd_->close();
    eventFd_->close();
    EXPECT_THAT(notes_, ElementsAre(1));
}

TEST_F(EventFdTest, TaskPostedByATaskRunsAtTheNextWakeUp) {
    eventFd_->post([this] {
        notes_.push_back(1);
        eventFd_->post(note(3));
    });
    eventFd_->post(note(2));
    EXPECT_EQ(poll_->poll(0), 1);
    EXPECT_THAT(notes_, ElementsAre(1, 2));
    EXPECT_EQ(poll_->poll(0), 1);
    EXPECT_THAT(notes_, ElementsAre(1, 2, 3));
    EXPECT_EQ(poll_->poll(0), 0);
}

TEST_F(EventFdTest, TaskThatPostsItselfDoesNotStarveOtherDescriptors) {
    EventFd other(poll_);
    other.open();
    bool stopped = false;
    std::function<void()> again = [&] {
        if (!stopped) {
            eventFd_->post(again);
        }
    };
    eventFd_->post(again);
    other.post([&] { stopped = true; });
    drain();
    EXPECT_TRUE(stopped);
}

TEST_F(EventFdTest, TasksLeftAtCloseAreDestroyedWithoutRunning) {
    const auto held = std::make_shared<int>(0);
    eventFd_->post([this, held] { notes_.push_back(1); });
    EXPECT_EQ(held.use_count(), 2);
    eventFd_->close();
    EXPECT_EQ(held.use_count(), 1);
    drain();
    EXPECT_THAT(notes_, IsEmpty());
}

TEST_F(EventFdTest, TaskPostedAfterCloseIsDestroyedWithoutRunning) {
    const auto held = std::make_shared<int>(0);
    eventFd_->close();
    eventFd_->post([this, held] { notes_.push_back(1); });
    EXPECT_EQ(held.use_count(), 1);
    drain();
    EXPECT_THAT(notes_, IsEmpty());
}

TEST_F(EventFdTest, ClosedEventFdOpenedAgainRunsTasks) {
    eventFd_->post(note(1));
    eventFd_->close();
    eventFd_->open();
    eventFd_->post(note(2));
    drain();
    EXPECT_THAT(notes_, ElementsAre(2));
}

TEST_F(EventFdTest, NoTaskRunsAfterOneThatCloses) {
    const auto held = std::make_shared<int>(0);
    eventFd_->post([this] {
        notes_.push_back(1);
        eventFd_->close();
    });
    eventFd_->post([this, held] { notes_.push_back(2); });
    drain();
    EXPECT_THAT(notes_, ElementsAre(1));
    EXPECT_EQ(held.use_count(), 1);
}

TEST_F(EventFdTest, TasksBehindOneThatClosesAndReopensAreDestroyed) {
    eventFd_->post([this] {
        eventFd_->close();
        eventFd_->open();
        eventFd_->post(note(2));
    });
    eventFd_->post(note(1));
    drain();
    EXPECT_THAT(notes_, ElementsAre(2));
}

TEST_F(EventFdTest, TaskMayDestroyTheEventFd) {
    eventFd_->post([this] {
        notes_.push_back(1);
        eventFd_.reset();
    });
    eventFd_->post(note(2));
    drain();
    EXPECT_THAT(notes_, ElementsAre(1));
}

TEST_F(EventFdTest, QueuedTasksAreDestroyedWithTheEventFd) {
    const auto held = std::make_shared<int>(0);
    eventFd_->post([this, held] { notes_.push_back(1); });
    eventFd_.reset();
    EXPECT_EQ(held.use_count(), 1);
    drain();
    EXPECT_THAT(notes_, IsEmpty());
}

TEST_F(EventFdTest, QueuedTasksAreDestroyedWithAnEventFdThatWasNeverOpened) {
    const auto held = std::make_shared<int>(0);
    auto never = std::make_unique<EventFd>(poll_);
    never->post([held] {});
    never.reset();
    EXPECT_EQ(held.use_count(), 1);
}

TEST_F(EventFdTest, TaskMayPostWhileItIsDestroyed) {
    struct Poster {
        EventFd& eventFd;
        ~Poster() {
            eventFd.post([] {});
        }
    };
    eventFd_->post([held = std::make_shared<Poster>(Poster{*eventFd_})] {});
    eventFd_->close();
    drain();
}

TEST_F(EventFdTest, TasksBehindOneThatThrowsRunAtTheNextPoll) {
    eventFd_->post(note(1));
    eventFd_->post([this] {
        eventFd_->post(note(4));
        throw std::runtime_error("task");
    });
    eventFd_->post(note(2));
    eventFd_->post(note(3));
    EXPECT_THROW(poll_->poll(0), std::runtime_error);
    EXPECT_THAT(notes_, ElementsAre(1));
    drain();
    EXPECT_THAT(notes_, ElementsAre(1, 2, 3, 4));
}

TEST_F(EventFdTest, TaskThatClosesAndThrowsLeavesNoTasks) {
    const auto held = std::make_shared<int>(0);
    eventFd_->post([this] {
        eventFd_->close();
        throw std::runtime_error("task");
    });
    eventFd_->post([held] {});
    EXPECT_THROW(poll_->poll(0), std::runtime_error);
    EXPECT_EQ(held.use_count(), 1);
    eventFd_->open();
    drain();
}

TEST_F(EventFdTest, MemoryRefusedWhileTasksRunDelaysThem) {
    notes_.reserve(10);
    bool happened = true;
    for (int number = 1; happened; ++number) {
        notes_.clear();
        eventFd_->post(note(1));
        eventFd_->post([this] { eventFd_->post(note(3)); });
        eventFd_->post(note(2));
        {
            const test::RefusedMemory refused(number);
            try {
                poll_->poll(0);
            } catch (const std::bad_alloc&) {
            }
            happened = refused.happened();
        }
        drain();
        // The task that posts may itself be the one that fails.
        EXPECT_THAT(notes_, AnyOf(ElementsAre(1, 2, 3), ElementsAre(1, 2))) << number;
        eventFd_->post(note(4));
        drain();
        EXPECT_EQ(notes_.back(), 4) << number;
    }
    EXPECT_THAT(notes_, ElementsAre(1, 2, 3, 4)) << "nothing was refused";
}

TEST_F(EventFdTest, TasksPostedBySeveralThreadsAllRun) {
    constexpr int kThreads = 4;
    constexpr int kTasks = 5000;
    std::vector<int> last(kThreads, -1);
    int count = 0;
    bool ordered = true;
    std::vector<std::thread> posters;
    for (size_t thread = 0; thread < kThreads; thread++) {
        posters.emplace_back([&, thread] {
            for (int i = 0; i < kTasks; i++) {
                eventFd_->post([&, thread, i] {
                    ordered = ordered && last[thread] == i - 1;
                    last[thread] = i;
                    count++;
                });
            }
        });
    }
    while (count < kThreads * kTasks) {
        ASSERT_GT(poll_->poll(30000), 0) << count << " tasks ran";
    }
    EXPECT_TRUE(ordered);
    for (std::thread& poster : posters) {
        poster.join();
    }
}

TEST_F(EventFdTest, CloseAndOpenWhileOthersPostAndPollLoseNothing) {
    std::atomic<bool> done = false;
    std::atomic<int> ran = 0;
    std::thread poster([&] {
        while (!done) {
            eventFd_->post([&ran] { ran++; });
        }
    });
    std::thread loop([&] {
        while (!done) {
            poll_->poll(1);
        }
    });
    for (int i = 0; i < 300 || ran == 0; i++) {
        eventFd_->close();
        eventFd_->open();
    }
    done = true;
    poster.join();
    loop.join();
    const int before = ran;
    eventFd_->close();
    eventFd_->open();
    eventFd_->post([&ran] { ran++; });
    drain();
    EXPECT_EQ(ran, before + 1);
}

TEST_F(EventFdTest, EventFdDestroyedWhileTheLoopRunsItsTasksEndsCleanly) {
    std::atomic<bool> done = false;
    std::thread loop([&] {
        while (!done) {
            poll_->poll(1);
        }
    });
    for (int i = 0; i < 500; i++) {
        auto shortLived = std::make_unique<EventFd>(poll_);
        shortLived->open();
        const auto ran = std::make_shared<std::atomic<int>>(0);
        for (int task = 0; task < 20; task++) {
            shortLived->post([ran] { (*ran)++; });
        }
        while (i % 2 == 0 && *ran == 0) {
            std::this_thread::yield();
        }
        shortLived.reset();
    }
    done = true;
    loop.join();
}

TEST_F(EventFdTest, ManyEventFdsLeaveNoDescriptor) {
    const auto descriptors = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                             std::filesystem::directory_iterator());
    };
    const auto before = descriptors();
    for (int i = 0; i < 10000; i++) {
        EventFd shortLived(poll_);
        shortLived.open();
        shortLived.post([] {});
    }
    EXPECT_EQ(descriptors(), before);
}

}  // namespace
}  // namespace Ursa::OS
