// Not in PollTest.cpp, which a device runs too: memory can be refused on a host only.

#include <atomic>
#include <cstddef>
#include <new>

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>

#include "os/Poll.h"
#include "tests/os/PollPeer.h"
#include "tests/support/LogCapture.h"
#include "tests/support/RefusedMemory.h"

namespace Ursa::OS {
namespace {

using ::testing::SizeIs;

TEST(Poll, DescriptorWhoseRegistrationWasRefusedMemoryIsNotRegistered) {
    test::LogCapture log;
    Poll poll;
    const Source source;
    source.signal();
    std::atomic<int> calls{0};
    bool happened = true;
    int number = 1;
    for (; happened; ++number) {
        log.clear();
        {
            const test::RefusedMemory refused(number);
            try {
                poll.addFd(source.fd(), EPOLLIN, counting(calls));
            } catch (const std::bad_alloc&) {
            }
            happened = refused.happened();
        }
        const int registered = happened ? 0 : 1;
        EXPECT_EQ(PollTestPeer::registrations(poll), static_cast<size_t>(registered));
        EXPECT_EQ(poll.poll(0), registered);
        EXPECT_EQ(calls, registered);
        poll.removeFd(source.fd());
        EXPECT_THAT(log.messages(ANDROID_LOG_ERROR), SizeIs(happened ? 1 : 0));
    }
    EXPECT_GT(number, 3) << "hardly anything was refused";
}

}  // namespace
}  // namespace Ursa::OS
