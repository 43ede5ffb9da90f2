#include <unistd.h>

#include <thread>

#include <gtest/gtest.h>
#include <sys/wait.h>

#include "os/ThreadId.h"

namespace Ursa::OS {
namespace {

TEST(ThreadId, EachThreadHasItsOwnHoweverOftenItAsks) {
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(threadId(), gettid());
        std::thread([] {
            EXPECT_EQ(threadId(), gettid());
            EXPECT_EQ(threadId(), gettid());
        }).join();
    }
}

TEST(ThreadId, TheChildOfAForkHasAnother) {
    ASSERT_EQ(threadId(), gettid());
    std::thread([] {
        ASSERT_EQ(threadId(), gettid());
        const pid_t child = fork();
        if (child == 0) {
            _exit(threadId() == gettid() ? 0 : 1);
        }
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
        EXPECT_EQ(threadId(), gettid());
    }).join();
}

}  // namespace
}  // namespace Ursa::OS
