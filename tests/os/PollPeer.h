#pragma once

#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include <android-base/unique_fd.h>
#include <sys/eventfd.h>

#include "os/Poll.h"

namespace Ursa::OS {

class PollTestPeer {
  public:
    static int epollFd(const Poll& poll) { return poll.epollFd_.get(); }
    static void setNextToken(Poll& poll, uint32_t next) { poll.state_.lock()->nextToken = next; }
    static size_t registrations(Poll& poll) { return poll.state_.lock()->callbacks.size(); }
    static float callbacksLoadFactor(Poll& poll) {
        return poll.state_.lock()->callbacks.max_load_factor();
    }
    static float fdMapLoadFactor(Poll& poll) { return poll.state_.lock()->fdMap.max_load_factor(); }
    static void dispatch(Poll& poll, uint64_t token, uint32_t events) {
        poll.dispatch(token, events);
    }
};

/** A descriptor that is ready when the test says so. */
class Source {
  public:
    int fd() const { return fd_.get(); }
    void signal() const { eventfd_write(fd_.get(), 1); }
    void drain() const {
        eventfd_t ignored = 0;
        eventfd_read(fd_.get(), &ignored);
    }
    void close() { fd_.reset(); }

  private:
    android::base::unique_fd fd_{eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)};
};

inline Poll::Callback counting(std::atomic<int>& calls, PollAction action = PollAction::Continue) {
    return [&calls, action](int, int) {
        ++calls;
        return action;
    };
}

}  // namespace Ursa::OS
