#pragma once

#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

#include <android-base/unique_fd.h>
#include <sys/eventfd.h>

namespace Ursa::OS::Wifi::Tools {

/** Wakes a thread: signal it from any thread or signal handler, poll it for input. */
class WakeFd {
  public:
    WakeFd() : fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        if (fd_ < 0) {
            throw std::system_error(errno, std::generic_category(), "eventfd");
        }
    }

    void wake() const { wake(fd_); }
    static void wake(int fd) {
        const uint64_t one = 1;
        // It fails only after 2^64 wake-ups that nobody has read.
        [[maybe_unused]] const ssize_t written = ::write(fd, &one, sizeof(one));
    }
    int fd() const { return fd_; }

  private:
    ::android::base::unique_fd fd_;
};

}  // namespace Ursa::OS::Wifi::Tools
