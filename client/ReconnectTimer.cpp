#include "client/ReconnectTimer.h"

#include <unistd.h>

#include <cerrno>
#include <ctime>

#include <sys/epoll.h>
#include <sys/timerfd.h>

#include "client/WpaLog.h"

namespace Ursa::OS::Wifi {

bool ReconnectTimer::init() {
    if (fd_ >= 0) {
        WPA_LOG(E, type_,
                "Cannot initialize wpa socket reconnect timer due to the unexpected file "
                "descriptor");
        return false;
    }
    fd_.reset(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
    if (fd_ < 0) {
        WPA_LOG(E, type_, "Failed to init wpa socket reconnect timer: err %d", errno);
        return false;
    }
    return true;
}

bool ReconnectTimer::set(int64_t delayMs) {
    if (fd_ < 0) {
        WPA_LOG(W, type_, "Failed to config wpa socket reconnect timer due to no valid fd");
        return false;
    }
    itimerspec expiry = {};  // one-shot; all zero disarms
    if (delayMs == 0) {
        expiry.it_value.tv_nsec = 1;
    } else if (delayMs > 0) {
        expiry.it_value.tv_sec = static_cast<time_t>(delayMs / 1000);
        expiry.it_value.tv_nsec = static_cast<long>(delayMs % 1000) * 1'000'000;
    }
    if (timerfd_settime(fd_.get(), 0, &expiry, nullptr) != 0) {
        WPA_LOG(E, type_, "Failed to config wpa socket reconnect timer with delay = %ld ms: err %d",
                static_cast<long>(delayMs), errno);
        return false;
    }
    return true;
}

ReconnectTimer::Wake ReconnectTimer::take(int events) {
    if ((events & (EPOLLERR | EPOLLHUP)) != 0) {
        WPA_LOG(E, type_, "onReconnectTimerFire_: unexpected poll error: 0x%08x", events);
        return Wake::Broken;
    }
    if ((events & EPOLLIN) == 0) {
        return Wake::Nothing;
    }
    uint64_t expiries = 0;
    if (read(fd_.get(), &expiries, sizeof(expiries)) < 1 || expiries == 0) {
        WPA_LOG(E, type_, "onReconnectTimerFire_: no valid reconnect timer event");
        return Wake::Nothing;
    }
    return Wake::Expired;
}

}  // namespace Ursa::OS::Wifi
