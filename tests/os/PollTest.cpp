#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <functional>
#include <iomanip>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <android-base/unique_fd.h>
#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>

#include "os/Poll.h"
#include "tests/os/PollPeer.h"
#include "tests/support/Descriptors.h"
#include "tests/support/LogCapture.h"

namespace Ursa::OS {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

uint64_t token(uint32_t count, int fd) {
    return (static_cast<uint64_t>(count) << 32) | static_cast<uint32_t>(fd);
}

std::string notFoundLine(uint64_t value) {
    std::ostringstream line;
    line << "Unable to find callback for epoll_event token " << std::hex << std::setw(16)
         << std::setfill('0') << value;
    return line.str();
}

std::string notAddedLine(int fd) {
    return "cannot removeFd fd (" + std::to_string(fd) + "), not added or no longer in Poll";
}

TEST(Poll, WaitingForEverWithNothingRegisteredReturnsMinus22) {
    Poll poll;
    EXPECT_EQ(poll.poll(-1), -22);
}

TEST(Poll, TimeoutReturnsZeroAlsoWithNothingRegistered) {
    Poll poll;
    EXPECT_EQ(poll.poll(0), 0);
    EXPECT_EQ(poll.poll(1), 0);
    const Source source;
    std::atomic<int> calls{0};
    poll.addFd(source.fd(), EPOLLIN, counting(calls));
    EXPECT_EQ(poll.poll(1), 0);
    EXPECT_EQ(calls, 0);
}

TEST(Poll, ReadyDescriptorRunsItsCallbackWithTheDescriptorAndTheEvents) {
    Poll poll;
    const Source source;
    std::vector<std::pair<int, int>> calls;
    EXPECT_EQ(poll.addFd(source.fd(), EPOLLIN,
                         [&](int fd, int events) {
                             calls.emplace_back(fd, events);
                             return PollAction::Continue;
                         }),
              0);
    source.signal();
    EXPECT_EQ(poll.poll(-1), 1);
    EXPECT_THAT(calls, ElementsAre(std::make_pair(source.fd(), static_cast<int>(EPOLLIN))));
}

TEST(Poll, HangUpIsReportedToTheCallback) {
    Poll poll;
    std::array<int, 2> ends = {};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    const android::base::unique_fd reader(ends[0]);
    int seen = 0;
    poll.addFd(reader.get(), EPOLLIN, [&](int, int events) {
        seen = events;
        return PollAction::Continue;
    });
    close(ends[1]);
    EXPECT_EQ(poll.poll(-1), 1);
    EXPECT_EQ(seen, EPOLLHUP);
}

TEST(Poll, DescriptorThatStaysReadyIsReportedAgain) {
    Poll poll;
    const Source source;
    std::atomic<int> calls{0};
    poll.addFd(source.fd(), EPOLLIN, counting(calls));
    source.signal();
    EXPECT_EQ(poll.poll(-1), 1);
    EXPECT_EQ(poll.poll(-1), 1);
    EXPECT_EQ(calls, 2);
}

TEST(Poll, CallbackThatAnswersRemoveIsNotCalledAgain) {
    const test::LogCapture log;
    Poll poll;
    const Source source;
    std::atomic<int> calls{0};
    poll.addFd(source.fd(), EPOLLIN, counting(calls, PollAction::Remove));
    source.signal();
    EXPECT_EQ(poll.poll(-1), 1);
    EXPECT_EQ(poll.poll(0), 0);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(PollTestPeer::registrations(poll), 0u);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(Poll, CallbackThatRemovesItselfAndAnswersRemoveLogsOneErrorLineAndHasNoOtherEffect) {
    const test::LogCapture log;
    Poll poll;
    const Source source;
    const Source other;
    std::atomic<int> calls{0};
    std::atomic<int> otherCalls{0};
    poll.addFd(source.fd(), EPOLLIN, [&](int fd, int) {
        ++calls;
        poll.removeFd(fd);
        return PollAction::Remove;
    });
    poll.addFd(other.fd(), EPOLLIN, counting(otherCalls));
    source.signal();
    EXPECT_EQ(poll.poll(-1), 1);
    EXPECT_THAT(log.messages(ANDROID_LOG_ERROR), ElementsAre(notAddedLine(source.fd())));
    other.signal();
    EXPECT_EQ(poll.poll(-1), 1);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(otherCalls, 1);
}

TEST(Poll, CallbackThatRemovesItselfAndAnswersContinueIsGone) {
    Poll poll;
    const Source source;
    std::atomic<int> calls{0};
    poll.addFd(source.fd(), EPOLLIN, [&](int fd, int) {
        ++calls;
        poll.removeFd(fd);
        return PollAction::Continue;
    });
    source.signal();
    EXPECT_EQ(poll.poll(-1), 1);
    EXPECT_EQ(poll.poll(0), 0);
    EXPECT_EQ(calls, 1);
}

TEST(Poll, EventOfACallbackThatWasRemovedEarlierInTheBatchIsDroppedWithTheDebugLine) {
    const test::LogCapture log;
    Poll poll;
    const Source first;
    const Source second;
    std::atomic<int> secondCalls{0};
    poll.addFd(first.fd(), EPOLLIN, [&](int, int) {
        first.drain();
        poll.removeFd(second.fd());
        return PollAction::Continue;
    });
    poll.addFd(second.fd(), EPOLLIN, counting(secondCalls));
    first.signal();
    second.signal();
    EXPECT_EQ(poll.poll(-1), 2);
    EXPECT_EQ(secondCalls, 0);
    EXPECT_THAT(log.messages(ANDROID_LOG_DEBUG), ElementsAre(notFoundLine(token(2, second.fd()))));
}

TEST(Poll, StaleEventNeverReachesANewerCallbackOnTheSameDescriptorNumber) {
    const test::LogCapture log;
    Poll poll;
    const Source first;
    Source second;
    const int number = second.fd();
    const Source replacement;
    std::atomic<int> olderCalls{0};
    std::atomic<int> newerCalls{0};
    poll.addFd(first.fd(), EPOLLIN, [&](int, int) {
        first.drain();
        poll.removeFd(number);
        EXPECT_EQ(dup2(replacement.fd(), number), number);
        poll.addFd(number, EPOLLIN, counting(newerCalls));
        return PollAction::Continue;
    });
    poll.addFd(number, EPOLLIN, counting(olderCalls));
    first.signal();
    second.signal();
    EXPECT_EQ(poll.poll(-1), 2);
    EXPECT_EQ(olderCalls, 0);
    EXPECT_EQ(newerCalls, 0);
    EXPECT_EQ(log.count(ANDROID_LOG_DEBUG, notFoundLine(token(2, number))), 1u);

    replacement.signal();
    EXPECT_EQ(poll.poll(-1), 1);
    EXPECT_EQ(newerCalls, 1);
}

TEST(Poll, MoreThanTenReadyDescriptorsAreServedOverSuccessiveCalls) {
    Poll poll;
    const std::array<Source, 25> sources;
    std::vector<int> served;
    for (const Source& source : sources) {
        poll.addFd(source.fd(), EPOLLIN, [&](int fd, int) {
            source.drain();
            served.push_back(fd);
            return PollAction::Continue;
        });
        source.signal();
    }
    EXPECT_EQ(poll.poll(-1), 10);
    EXPECT_EQ(poll.poll(-1), 10);
    EXPECT_EQ(poll.poll(-1), 5);
    EXPECT_EQ(poll.poll(0), 0);
    std::vector<int> expected;
    expected.reserve(sources.size());
    for (const Source& source : sources) {
        expected.push_back(source.fd());
    }
    EXPECT_EQ(served, expected);
}

TEST(Poll, CallbackMayAddAndRemoveOthers) {
    Poll poll;
    const Source first;
    const Source second;
    std::atomic<int> secondCalls{0};
    poll.addFd(first.fd(), EPOLLIN, [&](int, int) {
        first.drain();
        poll.addFd(second.fd(), EPOLLIN, counting(secondCalls, PollAction::Remove));
        return PollAction::Continue;
    });
    second.signal();
    first.signal();
    EXPECT_EQ(poll.poll(-1), 1);
    EXPECT_EQ(poll.poll(-1), 1);
    EXPECT_EQ(secondCalls, 1);
}

TEST(Poll, CallbackBehindARemovalInTheSameBatchMayAddAndRemoveToo) {
    Poll poll;
    const std::array<Source, 3> sources;
    const Source added;
    std::atomic<int> addedCalls{0};
    poll.addFd(sources[0].fd(), EPOLLIN, [&](int, int) { return PollAction::Remove; });
    poll.addFd(sources[1].fd(), EPOLLIN, [&](int, int) {
        poll.addFd(added.fd(), EPOLLIN, counting(addedCalls, PollAction::Remove));
        return PollAction::Remove;
    });
    poll.addFd(sources[2].fd(), EPOLLIN, [&](int fd, int) {
        poll.removeFd(fd);
        return PollAction::Continue;
    });
    for (const Source& source : sources) {
        source.signal();
    }
    added.signal();
    EXPECT_EQ(poll.poll(-1), 3);
    EXPECT_EQ(PollTestPeer::registrations(poll), 1u);
    EXPECT_EQ(poll.poll(-1), 1);
    EXPECT_EQ(addedCalls, 1);
}

TEST(Poll, CallbackThatRemovedItselfIsNotFoundAgainWhileItStillRuns) {
    const test::LogCapture log;
    Poll poll;
    const Source source;
    std::atomic<int> calls{0};
    const uint64_t token = (1ULL << 32) | static_cast<uint64_t>(source.fd());
    poll.addFd(source.fd(), EPOLLIN, [&](int fd, int events) {
        ++calls;
        if (calls == 2) {
            poll.removeFd(fd);
            PollTestPeer::dispatch(poll, token, static_cast<uint32_t>(events));
        }
        return PollAction::Continue;
    });
    source.signal();
    EXPECT_EQ(poll.poll(-1), 1);
    EXPECT_EQ(poll.poll(-1), 1);
    EXPECT_EQ(calls, 2);
}

TEST(Poll, CallbackMayReplaceItsOwnRegistration) {
    Poll poll;
    const Source source;
    std::atomic<int> olderCalls{0};
    std::atomic<int> newerCalls{0};
    poll.addFd(source.fd(), EPOLLIN, [&](int fd, int) {
        ++olderCalls;
        poll.removeFd(fd);
        poll.addFd(fd, EPOLLIN, counting(newerCalls));
        return PollAction::Continue;
    });
    source.signal();
    EXPECT_EQ(poll.poll(-1), 1);
    EXPECT_EQ(poll.poll(-1), 1);
    EXPECT_EQ(olderCalls, 1);
    EXPECT_EQ(newerCalls, 1);
}

TEST(Poll, RunningCallbackStaysAliveWhenItRemovesItselfAndDiesAfterwards) {
    Poll poll;
    const Source source;
    auto held = std::make_shared<int>(7);
    const std::weak_ptr<int> weak = held;
    int seen = 0;
    poll.addFd(source.fd(), EPOLLIN, [&poll, &seen, held = std::move(held)](int fd, int) {
        poll.removeFd(fd);
        seen = *held;
        return PollAction::Continue;
    });
    source.signal();
    EXPECT_EQ(poll.poll(-1), 1);
    EXPECT_EQ(seen, 7);
    EXPECT_TRUE(weak.expired());
}

TEST(Poll, RemovedCallbackDiesWithItsRegistration) {
    Poll poll;
    const Source source;
    auto held = std::make_shared<int>(7);
    const std::weak_ptr<int> weak = held;
    poll.addFd(source.fd(), EPOLLIN,
               [held = std::move(held)](int, int) { return PollAction::Continue; });
    EXPECT_FALSE(weak.expired());
    poll.removeFd(source.fd());
    EXPECT_TRUE(weak.expired());
}

TEST(Poll, CallbackMayHoldSomethingThatUsesThePollWhileItIsDestroyed) {
    // The last reference to it goes in removeFd(), which must not hold its lock by then.
    Poll poll;
    const Source source;
    const Source owned;
    poll.addFd(owned.fd(), EPOLLIN, [](int, int) { return PollAction::Continue; });
    std::shared_ptr<int> held(new int, [&](const int* value) {
        delete value;
        poll.removeFd(owned.fd());
    });
    poll.addFd(source.fd(), EPOLLIN,
               [held = std::move(held)](int, int) { return PollAction::Continue; });
    poll.removeFd(source.fd());
    EXPECT_EQ(PollTestPeer::registrations(poll), 0u);
}

TEST(Poll, DestructionDropsEveryCallbackAndClosesTheEpollDescriptor) {
    const Source source;
    const int before = test::openDescriptors();
    auto held = std::make_shared<int>(7);
    const std::weak_ptr<int> weak = held;
    {
        Poll poll;
        EXPECT_EQ(test::openDescriptors(), before + 1);
        poll.addFd(source.fd(), EPOLLIN,
                   [held = std::move(held)](int, int) { return PollAction::Continue; });
    }
    EXPECT_TRUE(weak.expired());
    EXPECT_EQ(test::openDescriptors(), before);
}

TEST(Poll, EpollDescriptorIsNotInheritedByPrograms) {
    const Poll poll;
    EXPECT_EQ(fcntl(PollTestPeer::epollFd(poll), F_GETFD), FD_CLOEXEC);
}

TEST(Poll, BothTablesGrowAtALoadFactorOfOne) {
    Poll poll;
    EXPECT_EQ(PollTestPeer::callbacksLoadFactor(poll), 1.0F);
    EXPECT_EQ(PollTestPeer::fdMapLoadFactor(poll), 1.0F);
}

TEST(Poll, RegistrationCountWrapsSilently) {
    const test::LogCapture log;
    Poll poll;
    const Source first;
    const Source second;
    std::atomic<int> calls{0};
    PollTestPeer::setNextToken(poll, 0xFFFFFFFF);
    poll.addFd(first.fd(), EPOLLIN, counting(calls, PollAction::Remove));
    poll.addFd(second.fd(), EPOLLIN, counting(calls, PollAction::Remove));
    first.signal();
    second.signal();
    EXPECT_EQ(poll.poll(-1), 2);
    EXPECT_EQ(calls, 2);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(Poll, TokenIsTheRegistrationCountAboveTheDescriptor) {
    Poll poll;
    const Source first;
    const Source second;
    std::atomic<int> calls{0};
    poll.addFd(first.fd(), EPOLLIN, counting(calls));
    poll.addFd(second.fd(), EPOLLIN, counting(calls));
    PollTestPeer::dispatch(poll, token(1, first.fd()), EPOLLIN);
    PollTestPeer::dispatch(poll, token(2, second.fd()), EPOLLIN);
    EXPECT_EQ(calls, 2);
}

TEST(Poll, RemovingAnUnknownDescriptorIsLoggedAndTolerated) {
    const test::LogCapture log;
    Poll poll;
    poll.removeFd(4711);
    EXPECT_THAT(log.messages(ANDROID_LOG_ERROR), ElementsAre(notAddedLine(4711)));
    EXPECT_EQ(log.lines().at(0).tag, "CorvidWifi");
}

TEST(Poll, RemovingADescriptorThatWasClosedFirstIsLoggedAndTolerated) {
    const test::LogCapture log;
    Poll poll;
    Source source;
    const int number = source.fd();
    poll.addFd(number, EPOLLIN, [](int, int) { return PollAction::Continue; });
    source.close();
    poll.removeFd(number);
    EXPECT_THAT(log.messages(ANDROID_LOG_ERROR),
                ElementsAre("epoll_ctl returned EBADF; fd (" + std::to_string(number) +
                            ") closed before removing from epoll!"));
    EXPECT_EQ(PollTestPeer::registrations(poll), 0u);
}

TEST(Poll, FailedWaitIsLoggedAndReturnedAsANegativeErrno) {
    const test::LogCapture log;
    Poll poll;
    const Source notAnEpoll;
    ASSERT_NE(dup2(notAnEpoll.fd(), PollTestPeer::epollFd(poll)), -1);
    EXPECT_EQ(poll.poll(0), -EINVAL);
    EXPECT_THAT(log.messages(ANDROID_LOG_ERROR),
                ElementsAre("error in epoll_wait: Invalid argument"));
}

std::atomic<int> signalsHandled{0};

TEST(Poll, SignalDoesNotEndTheWait) {
    struct sigaction action = {};
    action.sa_handler = [](int) { ++signalsHandled; };  // without SA_RESTART
    struct sigaction before = {};
    ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);

    Poll poll;
    const Source source;
    std::atomic<int> calls{0};
    poll.addFd(source.fd(), EPOLLIN, counting(calls));
    std::atomic<int> result{-1};
    std::thread loop([&] { result = poll.poll(60'000); });
    for (int i = 0; i < 20; ++i) {
        const int handled = signalsHandled;
        pthread_kill(loop.native_handle(), SIGUSR1);
        while (signalsHandled == handled) {
            std::this_thread::yield();
        }
    }
    EXPECT_EQ(result, -1);
    source.signal();
    loop.join();
    EXPECT_EQ(result, 1);
    EXPECT_EQ(calls, 1);
    sigaction(SIGUSR1, &before, nullptr);
}

TEST(Poll, ExceptionOfACallbackLeavesPollAndTheLoopGoesOn) {
    Poll poll;
    const std::array<Source, 2> sources;
    std::atomic<int> calls{0};
    poll.addFd(sources[0].fd(), EPOLLIN, [&](int, int) -> PollAction {
        sources[0].drain();
        throw std::runtime_error("defect");
    });
    poll.addFd(sources[1].fd(), EPOLLIN, counting(calls));
    sources[0].signal();
    sources[1].signal();
    EXPECT_THROW(poll.poll(-1), std::runtime_error);
    EXPECT_EQ(poll.poll(-1), 1);
    EXPECT_EQ(calls, 1);
}

TEST(Poll, OtherThreadsAddAndRemoveWhileTheLoopRuns) {
    Poll poll;
    const Source stop;
    std::atomic<bool> running{true};
    poll.addFd(stop.fd(), EPOLLIN, [&](int, int) {
        running = false;
        return PollAction::Remove;
    });
    std::thread loop([&] {
        while (running) {
            poll.poll(-1);
        }
    });
    const auto churn = [&] {
        for (int i = 0; i < 300; ++i) {
            const auto source = std::make_shared<Source>();
            const auto calls = std::make_shared<std::atomic<int>>(0);
            poll.addFd(source->fd(), EPOLLIN, [source, calls](int, int) {
                source->drain();
                ++*calls;
                return PollAction::Continue;
            });
            source->signal();
            while (i % 3 == 0 && *calls == 0) {
                std::this_thread::yield();
            }
            poll.removeFd(source->fd());
        }
    };
    std::vector<std::thread> threads;
    threads.reserve(3);
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back(churn);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    stop.signal();
    loop.join();
    EXPECT_EQ(PollTestPeer::registrations(poll), 0u);
}

TEST(Poll, CallbackRemovedInItsBatchByAnotherThreadIsNotCalledAfterwards) {
    // The first callback waits until another thread has removed the second.
    Poll poll;
    const Source first;
    const Source second;
    std::atomic<int> secondCalls{0};
    poll.addFd(first.fd(), EPOLLIN, [&](int, int) {
        first.drain();
        std::thread([&] { poll.removeFd(second.fd()); }).join();
        return PollAction::Continue;
    });
    poll.addFd(second.fd(), EPOLLIN, counting(secondCalls));
    first.signal();
    second.signal();
    EXPECT_EQ(poll.poll(-1), 2);
    EXPECT_EQ(secondCalls, 0);
}

class PollDeathTest : public testing::Test {
  protected:
    // Each statement runs in a process of its own that holds no other test's threads.
    PollDeathTest() { testing::GTEST_FLAG(death_test_style) = "threadsafe"; }

    const testing::KilledBySignal aborted{SIGABRT};
};

TEST_F(PollDeathTest, SecondRegistrationOfADescriptorAborts) {
    Poll poll;
    const Source source;
    const auto callback = [](int, int) { return PollAction::Continue; };
    poll.addFd(source.fd(), EPOLLIN, callback);
    EXPECT_EXIT(poll.addFd(source.fd(), EPOLLIN, callback), aborted,
                "fd \\([0-9]+\\) is already added to Poll");
}

TEST_F(PollDeathTest, DescriptorThatEpollRefusesAborts) {
    Poll poll;
    const android::base::unique_fd file(open("/proc/self/exe", O_RDONLY | O_CLOEXEC));
    EXPECT_EXIT(poll.addFd(file.get(), EPOLLIN, [](int, int) { return PollAction::Continue; }),
                aborted, "error adding fd \\([0-9]+\\) to epoll: Operation not permitted");
}

TEST_F(PollDeathTest, RemovingADescriptorThatIsAnotherFileByNowAborts) {
    Poll poll;
    const Source source;
    const Source other;
    poll.addFd(source.fd(), EPOLLIN, [](int, int) { return PollAction::Continue; });
    EXPECT_EXIT(
        {
            dup2(other.fd(), source.fd());
            poll.removeFd(source.fd());
        },
        aborted, "error removing fd \\([0-9]+\\) from epoll: : No such file or directory");
}

TEST_F(PollDeathTest, ProcessWithoutADescriptorToSpareAborts) {
    EXPECT_EXIT(
        {
            const test::DescriptorLimit limit(0);
            const Poll poll;
        },
        aborted, "error creating epoll fd: Too many open files");
}

}  // namespace
}  // namespace Ursa::OS
