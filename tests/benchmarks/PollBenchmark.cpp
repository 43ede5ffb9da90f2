// The event loop against what it is made of: epoll_wait and the callback's own read.

#include <unistd.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include <android-base/unique_fd.h>
#include <event2/event.h>
#include <event2/thread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>

#include "Compare.h"
#include "os/Poll.h"

namespace corvid::benchmarks {
namespace {

using android::base::unique_fd;
using Ursa::OS::Poll;
using Ursa::OS::PollAction;

constexpr int kBatch = 10;  // as many events as one wait of the Poll fetches

/** Descriptors that are ready for ever: each read takes one off a huge count. */
std::vector<unique_fd> readyDescriptors(int count) {
    std::vector<unique_fd> descriptors;
    for (int i = 0; i < count; ++i) {
        descriptors.emplace_back(eventfd(0, EFD_SEMAPHORE | EFD_NONBLOCK | EFD_CLOEXEC));
        eventfd_write(descriptors.back().get(), 1ULL << 60);
    }
    return descriptors;
}

uint64_t readOnce(int fd) {
    uint64_t value = 0;
    benchmark::DoNotOptimize(read(fd, &value, sizeof(value)));
    return value;
}

/** epoll_wait, then a read of each ready descriptor. */
class BareLoop {
  public:
    BareLoop(int count, int timeoutMs)
        : timeoutMs_(timeoutMs),
          epoll_(epoll_create1(EPOLL_CLOEXEC)),
          descriptors_(readyDescriptors(count)) {
        for (const unique_fd& fd : descriptors_) {
            epoll_event event = {};
            event.events = EPOLLIN;
            event.data.fd = fd.get();
            epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd.get(), &event);
        }
    }

    void operator()() {
        epoll_event ready[kBatch];
        const int count = epoll_wait(epoll_.get(), ready, kBatch, timeoutMs_);
        for (int i = 0; i < count; ++i) {
            sum_ += readOnce(ready[i].data.fd);
        }
    }

  private:
    const int timeoutMs_;
    unique_fd epoll_;
    std::vector<unique_fd> descriptors_;
    uint64_t sum_ = 0;
};

class PollLoop {
  public:
    PollLoop(int count, int timeoutMs)
        : timeoutMs_(timeoutMs), descriptors_(readyDescriptors(count)) {
        for (const unique_fd& fd : descriptors_) {
            poll_.addFd(fd.get(), EPOLLIN, [this](int readyFd, int) {
                sum_ += readOnce(readyFd);
                return PollAction::Continue;
            });
        }
    }

    void operator()() { poll_.poll(timeoutMs_); }

  private:
    const int timeoutMs_;
    std::vector<unique_fd> descriptors_;
    Poll poll_;
    uint64_t sum_ = 0;
};

struct EventFree {
    void operator()(event* e) const { event_free(e); }
    void operator()(event_base* base) const { event_base_free(base); }
};

/**
 * libevent with its locks, as a loop that other threads may add to needs them. Without a time-out,
 * for which libevent would keep a timer.
 */
class LibeventLoop {
  public:
    LibeventLoop(int count, int /*timeoutMs*/) : descriptors_(readyDescriptors(count)) {
        evthread_use_pthreads();
        base_.reset(event_base_new());
        const auto callback = [](evutil_socket_t fd, short, void* self) {
            static_cast<LibeventLoop*>(self)->sum_ += readOnce(fd);
        };
        for (const unique_fd& fd : descriptors_) {
            events_.emplace_back(
                event_new(base_.get(), fd.get(), EV_READ | EV_PERSIST, callback, this));
            event_add(events_.back().get(), nullptr);
        }
    }

    void operator()() { event_base_loop(base_.get(), EVLOOP_ONCE); }

  private:
    std::vector<unique_fd> descriptors_;
    std::unique_ptr<event_base, EventFree> base_;
    std::vector<std::unique_ptr<event, EventFree>> events_;
    uint64_t sum_ = 0;
};

constexpr int kOperations = 2000;

constexpr int kForEver = -1;
constexpr int kListenerTimeoutMs = 300'000;  // the daemon's; nothing here waits

template <typename Baseline>
void comparePoll(benchmark::State& state, const std::string& name, double max, int timeoutMs) {
    const int descriptors = static_cast<int>(state.range(0));
    PollLoop subject(descriptors, timeoutMs);
    Baseline baseline(descriptors, timeoutMs);
    compare(
        state, "Poll, " + std::to_string(descriptors) + " ready / " + name, max, Clock::ThreadCpu,
        kOperations / descriptors, [&] { subject(); }, [&] { baseline(); });
}

void pollBare(benchmark::State& state) {
    comparePoll<BareLoop>(state, "bare epoll loop", state.range(0) == 1 ? 1.06 : 1.20,
                          kListenerTimeoutMs);
}
BENCHMARK(pollBare)->UseManualTime()->Arg(1)->Arg(kBatch);

void pollForEver(benchmark::State& state) {
    comparePoll<BareLoop>(state, "bare epoll loop, for ever", state.range(0) == 1 ? 1.06 : 1.20,
                          kForEver);
}
BENCHMARK(pollForEver)->UseManualTime()->Arg(1)->Arg(kBatch);

void pollLibevent(benchmark::State& state) {
    comparePoll<LibeventLoop>(state, "libevent with locks", 1.00, kForEver);
}
BENCHMARK(pollLibevent)->UseManualTime()->Arg(1)->Arg(kBatch);

}  // namespace
}  // namespace corvid::benchmarks
