#pragma once

#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <sys/un.h>
#include <ursa/os/EventFd.h>

#include "client/WpaSocket.h"
#include "os/Poll.h"
#include "tests/support/FakeControlSocket.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Patience.h"
#include "tests/support/TempFolder.h"

namespace Ursa::OS::Wifi {

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
    using Type = WifiClientCallbackType;

    /** Short enough that a test need not wait, with each phase to tell from the others. */
    static constexpr ReconnectDelays kQuick = {1, 2, 6, 3, 12};

    /** As quick, and attempts go on until one succeeds. */
    static constexpr ReconnectDelays kEndless = {1, 2, 60'000, 2, 60'000};

    WpaSocketTest() { eventFd_.open(); }

    std::shared_ptr<WpaSocket> makeSocket(NetInterfaceType type = NetInterfaceType::STA) {
        const std::set<int> before = timers();
        auto socket = WpaSocket::create(type, poll_, eventFd_, history_, kQuick);
        for (const int fd : timers()) {
            timer_ = before.count(fd) == 0 ? fd : timer_;
        }
        return socket;
    }

    /** Turns the loop until it is so. Returns false after test::kPatience. */
    template <typename Condition>
    bool turnUntil(Condition condition) {
        const auto end = std::chrono::steady_clock::now() + test::kPatience;
        while (!condition()) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            poll_->poll(10);
        }
        return true;
    }

    bool turnUntil(const std::shared_ptr<WpaSocket>& socket, State state) {
        return turnUntil([&] { return socket->state() == state; });
    }

    /** Our ends of the connections to path_, the oldest first: monitor, then command connection. */
    std::vector<int> connections() const {
        std::map<int, int> found;  // by the number that the library gave each
        const std::string prefix = "/tmp/wpa_ctrl_" + std::to_string(getpid()) + "-";
        for (int fd = 0; fd < 1024; ++fd) {
            const std::string own = addressOf(fd, getsockname);
            if (own.compare(0, prefix.size(), prefix) == 0 && addressOf(fd, getpeername) == path_) {
                found[std::stoi(own.substr(prefix.size()))] = fd;
            }
        }
        std::vector<int> descriptors;
        for (const auto& [number, fd] : found) {
            descriptors.push_back(fd);
        }
        return descriptors;
    }

    /** Of the socket that makeSocket() has made last. */
    bool timerIsArmed() const {
        itimerspec left = {};
        timerfd_gettime(timer_, &left);
        return left.it_value.tv_sec != 0 || left.it_value.tv_nsec != 0;
    }
    /** The time is up, and the loop has not noticed yet. */
    bool waitForTimer() const {
        pollfd readable = {timer_, POLLIN, 0};
        return ::poll(&readable, 1, 30'000) == 1;
    }

    /** Makes the event descriptor readable and lets the timer expire behind it, for one turn. */
    void makeReadyBeforeTimer(int events) {
        // On a busy machine it may have expired already, and would come first.
        setTimer_({});
        turn();
        eventfd_write(events, 1);
        setTimer_({0, 1});
        ASSERT_TRUE(waitForTimer());
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

    size_t count(int priority, const std::string& kind, const std::string& text) const {
        return log_.count(priority, "[WPA-" + kind + "] " + text);
    }
    size_t errors(const std::string& text) const { return count(ANDROID_LOG_ERROR, "STA", text); }
    size_t warnings(const std::string& text) const { return count(ANDROID_LOG_WARN, "STA", text); }
    size_t infos(const std::string& text) const { return count(ANDROID_LOG_INFO, "STA", text); }

  private:
    /** This process's timers; a FakeControlSocket has one too. */
    static std::set<int> timers() {
        std::set<int> found;
        for (int fd = 0; fd < 1024; ++fd) {
            itimerspec left = {};
            if (timerfd_gettime(fd, &left) == 0) {
                found.insert(fd);
            }
        }
        return found;
    }

    template <typename Ask>
    static std::string addressOf(int fd, Ask ask) {
        sockaddr_un address = {};
        socklen_t length = sizeof(address);
        const bool named = ask(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0 &&
                           address.sun_family == AF_UNIX;
        return named ? address.sun_path : "";
    }

    void setTimer_(const timespec& time) const {
        const itimerspec once = {{}, time};
        timerfd_settime(timer_, 0, &once, nullptr);
    }

    int timer_ = -1;

  protected:
    test::TempFolder folder_;
    const std::string path_ = folder_.file("wlan0");
    test::LogCapture log_;
    std::shared_ptr<Poll> poll_ = std::make_shared<Poll>();
    History history_;
    EventFd eventFd_{poll_};
};

}  // namespace Ursa::OS::Wifi
