#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <android-base/stringprintf.h>
#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <ursa/os/EventFd.h>

#include "client/WpaSocket.h"
#include "os/Poll.h"
#include "tests/support/FakeControlSocket.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TempFolder.h"

namespace Ursa::OS::Wifi {

/** The insides of a WpaSocket, for the test that turns its loop. */
class WpaSocketTestPeer {
  public:
    using Schedule = WpaSocket::ReconnectSchedule;

    static int connect(WpaSocket& socket) { return socket.connect_(); }
    static void disconnect(WpaSocket& socket) { socket.disconnect_(); }
    static void updateConnectError(WpaSocket& socket, int* last, int error) {
        socket.updateConnectError_(last, error);
    }
    static WpaSocket::State state(const WpaSocket& socket) { return socket.state_; }
    static WpaSocket::State previousState(const WpaSocket& socket) { return socket.previousState_; }
    static void updateState(WpaSocket& socket, WpaSocket::State state) {
        socket.updateState_(state);
    }
    static int64_t& accumulatedDelay(WpaSocket& socket) { return socket.accumulatedDelay_; }
    static const Schedule& schedule(const WpaSocket& socket) { return socket.schedule_; }

    static int timer(const WpaSocket& socket) { return socket.reconnectTimer_.get(); }
    static bool initTimer(WpaSocket& socket) { return socket.initWpaSocketReconnectTimer_(); }
    static bool setTimer(WpaSocket& socket, int64_t delayMs) {
        return socket.setWpaSocketReconnectTimer_(delayMs);
    }
    static PollAction onTimer(WpaSocket& socket, int events) {
        return socket.onReconnectTimerExpired_(socket.reconnectTimer_.get(), events);
    }
    /** Milliseconds until the timer expires, rounded up; 0 when it is not armed. */
    static int64_t timerLeft(const WpaSocket& socket) {
        itimerspec left = {};
        timerfd_gettime(timer(socket), &left);
        return left.it_value.tv_sec * 1000 + (left.it_value.tv_nsec + 999'999) / 1'000'000;
    }

    static PollAction onReady(WpaSocket& socket, int events) {
        return socket.onSocketReady_(-1, events);
    }
    static bool receive(WpaSocket& socket) { return socket.receiveEvent_(); }
    /** -1 when closed. */
    static int monitor(WpaSocket& socket) NO_THREAD_SAFETY_ANALYSIS {
        return socket.monitor_.isOpen() ? socket.monitor_.fd() : -1;
    }
    static bool hasCommand(WpaSocket& socket) NO_THREAD_SAFETY_ANALYSIS {
        return socket.command_.isOpen();
    }
    static void dropCommand(WpaSocket& socket) NO_THREAD_SAFETY_ANALYSIS {
        socket.command_.close();
    }
    /** Whether a thread holds the event mutex; not to be asked by that thread. */
    static bool eventMutexHeld(WpaSocket& socket) NO_THREAD_SAFETY_ANALYSIS {
        const bool free = socket.eventMutex_.try_lock();
        if (free) {
            socket.eventMutex_.unlock();
        }
        return !free;
    }
};

/** A subscriber that keeps what it is told, for use on the loop's thread. */
class Subscriber {
  public:
    std::vector<std::string> payloads;
    std::function<void(const std::string&)> callback = [this](const std::string& payload) {
        payloads.push_back(payload);
    };
};

/** A loop on a thread of its own. */
class LoopThread {
  public:
    explicit LoopThread(std::shared_ptr<Poll> poll) : poll_(std::move(poll)), wake_(poll_) {
        wake_.open();
        thread_ = std::thread([this] {
            while (running_) {
                poll_->poll(300'000);
            }
        });
    }
    ~LoopThread() {
        wake_.post([this] { running_ = false; });
        thread_.join();
    }
    LoopThread(const LoopThread&) = delete;
    LoopThread& operator=(const LoopThread&) = delete;

  private:
    std::shared_ptr<Poll> poll_;
    EventFd wake_;
    bool running_ = true;  ///< the loop's thread only
    std::thread thread_;
};

/**
 * A socket on a loop that the test itself turns, so that nothing happens between two of its steps,
 * and a folder for control sockets.
 */
class WpaSocketTest : public testing::Test {
  protected:
    using State = WpaSocket::State;
    using Peer = WpaSocketTestPeer;
    using Type = WifiClientCallbackType;

    /** Short enough that a test need not wait, with each phase to tell from the others. */
    static constexpr WpaSocket::ReconnectSchedule kQuick = {1, 2, 6, 3, 12};

    /** Replies are not waited for long either; attempts go on until one succeeds. */
    static constexpr WpaSocket::ReconnectSchedule kImpatient = {1, 2, 60'000, 2, 60'000, 20};

    WpaSocketTest() { eventFd_.open(); }

    std::shared_ptr<WpaSocket> makeSocket(NetInterfaceType type = NetInterfaceType::STA,
                                          const WpaSocket::ReconnectSchedule& schedule = kQuick) {
        return WpaSocket::create(type, poll_, eventFd_, schedule);
    }

    /** Turns the loop until it is so. Returns false after half a minute. */
    template <typename Condition>
    bool turnUntil(Condition condition) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            poll_->poll(10);
        }
        return true;
    }

    bool turnUntil(const std::shared_ptr<WpaSocket>& socket, State state) {
        // Both, so that the state's actions are done too.
        return turnUntil(
            [&] { return Peer::state(*socket) == state && Peer::previousState(*socket) == state; });
    }

    /** Runs what is ready or posted now, and what that posts. */
    void turn() {
        while (poll_->poll(0) > 0) {
        }
    }

    bool connect(const std::shared_ptr<WpaSocket>& socket) {
        socket->onSocketFileCreate(path_);
        // The file alone makes a connected socket connect anew.
        return turnUntil(socket, State::Idle) && turnUntil(socket, State::Connected);
    }

    size_t count(int priority, const char* kind, const std::string& text) const {
        return log_.count(priority, android::base::StringPrintf("[WPA-%s] %s", kind, text.c_str()));
    }
    size_t errors(const std::string& text) const { return count(ANDROID_LOG_ERROR, "STA", text); }
    size_t warnings(const std::string& text) const { return count(ANDROID_LOG_WARN, "STA", text); }
    size_t infos(const std::string& text) const { return count(ANDROID_LOG_INFO, "STA", text); }

    test::TempFolder folder_;
    const std::string path_ = folder_.file("wlan0");
    test::LogCapture log_;
    std::shared_ptr<Poll> poll_ = std::make_shared<Poll>();
    EventFd eventFd_{poll_};
};

}  // namespace Ursa::OS::Wifi
