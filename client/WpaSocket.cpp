#include "client/WpaSocket.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <exception>
#include <utility>

#include <sys/epoll.h>
#include <sys/timerfd.h>

#include "client/BssEventFilter.h"
#include "os/Log.h"

// This class's lines begin with the interface kind instead of the source name.
#define WPA_LOG(level, format, ...) ALOG##level("[WPA-%s] " format, toString(type_), ##__VA_ARGS__)

namespace Ursa::OS::Wifi {

namespace {

constexpr std::string_view kTerminating = "CTRL-EVENT-TERMINATING ";

bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

}  // namespace

std::shared_ptr<WpaSocket> WpaSocket::create(NetInterfaceType type, std::shared_ptr<Poll> poll,
                                             EventFd& eventFd, ReconnectSchedule schedule) {
    auto socket = std::make_shared<WpaSocket>(Passkey{}, type, std::move(poll), eventFd, schedule);
    // Not in the constructor: the timer's callback needs a weak reference to the finished object.
    socket->initWpaSocketReconnectTimer_();
    return socket;
}

std::shared_ptr<WpaSocket> WpaSocket::create(NetInterfaceType type, std::shared_ptr<Poll> poll,
                                             EventFd& eventFd) {
    return create(type, std::move(poll), eventFd, ReconnectSchedule{});
}

WpaSocket::WpaSocket(Passkey, NetInterfaceType type, std::shared_ptr<Poll> poll, EventFd& eventFd,
                     ReconnectSchedule schedule)
    : type_(type),
      schedule_(schedule),
      poll_(std::move(poll)),
      eventFd_(eventFd),
      command_(std::chrono::milliseconds(schedule.replyTimeout)) {
    for (int i = 0; i < kWifiClientCallbackTypeCount; ++i) {
        callbacks_[static_cast<WifiClientCallbackType>(i)] =
            std::make_shared<CallbackMap<const std::string&>>();
    }
}

WpaSocket::~WpaSocket() {
    if (reconnectTimer_ >= 0) {
        poll_->removeFd(reconnectTimer_.get());
        reconnectTimer_.reset();
        WPA_LOG(I, "Deinitialized wpa socket reconnect timer");
    }
    MutexLock lock(socketMutex_);
    if (monitor_.isOpen()) {
        // No DETACH is sent; but nobody would read the descriptor any more.
        poll_->removeFd(monitor_.fd());
    }
}

void WpaSocket::onSocketFileCreate(const std::string& path) {
    MutexLock lock(socketMutex_);
    path_ = path;
    WPA_LOG(I, "Update wpa socket file path: %s", path_.c_str());
    post_(State::Idle);
}

void WpaSocket::onSocketFileDelete() {
    MutexLock lock(socketMutex_);
    path_.clear();
    WPA_LOG(I, "Reset wpa socket file path");
    post_(State::Stopped);
}

int WpaSocket::registerEventCallback(WifiClientCallbackType type,
                                     std::function<void(const std::string&)>& callback) {
    auto* const map = findCallbackMap_(type);
    return map == nullptr ? -1 : map->registerCallback(callback);
}

bool WpaSocket::unregisterEventCallback(WifiClientCallbackType type, int handle) {
    auto* const map = findCallbackMap_(type);
    return map != nullptr && map->unregisterCallback(handle);
}

bool WpaSocket::sendCtrlCmd(const std::string& cmd, std::string& reply) {
    MutexLock lock(socketMutex_);
    if (state_ != State::Connected || !command_.isOpen()) {
        reply = "ERROR: NOT-CONNECTED";
        return false;
    }
    switch (command_.request(cmd, reply)) {
        case RequestResult::Replied:
            break;
        case RequestResult::TimedOut:
            reply = "ERROR: TIMEOUT";
            return false;
        case RequestResult::NotSent:
        case RequestResult::Failed:
            reply = "ERROR: SEND-RECV";
            return false;
    }
    if (reply.size() > ControlChannel::kMaxReply) {
        reply = "ERROR: REPLY-TOO-LONG";
        return false;
    }
    return true;
}

const char* WpaSocket::toString_(State state) {
    switch (state) {
        case State::Stopped:
            return "Stopped";
        case State::Idle:
            return "Idle";
        case State::Connecting:
            return "Connecting";
        case State::Connected:
            return "Connected";
    }
    return "Unknown";
}

void WpaSocket::post_(State state) {
    eventFd_.post([weak = weak_from_this(), state] {
        if (const auto self = weak.lock()) {
            self->updateState_(state);
        }
    });
}

void WpaSocket::postFrom_(State from, State state) {
    eventFd_.post([weak = weak_from_this(), from, state] {
        const auto self = weak.lock();
        if (self != nullptr && self->state_ == from) {
            self->updateState_(state);
        }
    });
}

void WpaSocket::updateState_(State newState) {
    state_ = newState;
    if (previousState_ != newState) {
        for (const State state : {newState, previousState_}) {
            if (state < State::Stopped || state > State::Connected) {
                WPA_LOG(E, "Wpa socket in wrong state %d", static_cast<int>(state));
            }
        }
        WPA_LOG(D, "Enter new wpa client state '%s' (old '%s')", toString_(newState),
                toString_(previousState_));

        switch (newState) {
            case State::Stopped:
            case State::Idle:
                WPA_LOG(I, "Disconnecting supplicant socket");
                setWpaSocketReconnectTimer_(-1);
                disconnect_();
                break;
            case State::Connecting:
                if (previousState_ != State::Idle) {
                    WPA_LOG(W,
                            "Cannot enter Connecting from non-Idle states. Revert back to old "
                            "state: %s",
                            toString_(previousState_));
                    state_ = previousState_;
                    return;
                }
                accumulatedDelay_ = 0;
                setWpaSocketReconnectTimer_(schedule_.firstDelay);
                WPA_LOG(I, "Start connecting to supplicant in %ld ms",
                        static_cast<long>(schedule_.firstDelay));
                break;
            case State::Connected: {
                MutexLock lock(socketMutex_);
                WPA_LOG(I, "Connected to supplicant socket: %s", path_.c_str());
                break;
            }
        }
        previousState_ = newState;
    }
    // Every entry into Idle, and every repeated request of it, leads one loop turn later to
    // Connecting.
    if (newState == State::Idle) {
        post_(State::Connecting);
    }
}

bool WpaSocket::initWpaSocketReconnectTimer_() {
    if (reconnectTimer_ >= 0) {
        WPA_LOG(E,
                "Cannot initialize wpa socket reconnect timer due to the unexpected file "
                "descriptor");
        return false;
    }
    reconnectTimer_.reset(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
    if (reconnectTimer_ < 0) {
        WPA_LOG(E, "Failed to init wpa socket reconnect timer: err %d", errno);
        return false;
    }
    poll_->addFd(reconnectTimer_.get(), EPOLLIN, [weak = weak_from_this()](int fd, int events) {
        const auto self = weak.lock();
        // A socket that has gone has left the loop itself; by now the number may be another's.
        return self ? self->onReconnectTimerExpired_(fd, events) : PollAction::Continue;
    });
    WPA_LOG(I, "Initialized wpa socket reconnect timer");
    return true;
}

bool WpaSocket::setWpaSocketReconnectTimer_(int64_t delayMs) {
    if (reconnectTimer_ < 0) {
        WPA_LOG(W, "Failed to config wpa socket reconnect timer due to no valid fd");
        return false;
    }
    itimerspec expiry = {};  // one-shot; all zero disarms
    if (delayMs == 0) {
        expiry.it_value.tv_nsec = 1;
    } else if (delayMs > 0) {
        expiry.it_value.tv_sec = delayMs / 1000;
        expiry.it_value.tv_nsec = (delayMs % 1000) * 1'000'000;
    }
    if (timerfd_settime(reconnectTimer_.get(), 0, &expiry, nullptr) != 0) {
        WPA_LOG(E, "Failed to config wpa socket reconnect timer with delay = %ld ms: err %d",
                static_cast<long>(delayMs), errno);
        return false;
    }
    return true;
}

PollAction WpaSocket::onReconnectTimerExpired_(int fd, int events) {
    if ((events & (EPOLLERR | EPOLLHUP)) != 0) {
        WPA_LOG(E, "onReconnectTimerFire_: unexpected poll error: 0x%08x", events);
        return PollAction::Remove;
    }
    if ((events & EPOLLIN) == 0) {
        return PollAction::Continue;
    }
    uint64_t expiries = 0;
    if (read(fd, &expiries, sizeof(expiries)) < 1 || expiries == 0) {
        WPA_LOG(E, "onReconnectTimerFire_: no valid reconnect timer event");
        return PollAction::Continue;
    }
    if (state_ != State::Connecting) {
        WPA_LOG(I, "onReconnectTimerFire_: exit timer since it is no longer in Connecting state");
        setWpaSocketReconnectTimer_(-1);
        return PollAction::Continue;
    }
    if (accumulatedDelay_ >= schedule_.giveUpAfter) {
        postFrom_(State::Connecting, State::Stopped);
        WPA_LOG(E, "Failed to connect to supplicant after timeout %ld ms => stop",
                static_cast<long>(schedule_.giveUpAfter));
        return PollAction::Continue;
    }

    int lastError = kConnected;  // of this attempt, so that every failing attempt tells its reason
    const int error = connect_();
    updateConnectError_(&lastError, error);
    if (error != kConnected) {
        disconnect_();
        const int64_t delay =
            accumulatedDelay_ < schedule_.fastPhase ? schedule_.fastDelay : schedule_.slowDelay;
        accumulatedDelay_ += delay;
        setWpaSocketReconnectTimer_(delay);
    } else {
        accumulatedDelay_ = 0;
        postFrom_(State::Connecting, State::Connected);
    }
    return PollAction::Continue;
}

int WpaSocket::connect_() {
    MutexLock lock(socketMutex_);
    if (monitor_.isOpen() && command_.isOpen()) {
        return kConnected;
    }
    if (monitor_.isOpen() || command_.isOpen()) {
        return kHalfOpen;
    }
    if (path_.empty()) {
        return kNoPath;
    }
    if (!monitor_.open(path_)) {
        return kCannotOpen;
    }
    terminating_ = false;
    std::string reply;
    if (monitor_.request("ATTACH", reply, std::chrono::milliseconds(schedule_.replyTimeout)) !=
            RequestResult::Replied ||
        reply != "OK\n") {
        monitor_.close();
        return kCannotAttach;
    }
    dropBssEvents(monitor_.fd());
    poll_->addFd(monitor_.fd(), EPOLLIN, [weak = weak_from_this()](int readyFd, int events) {
        const auto self = weak.lock();
        return self ? self->onSocketReady_(readyFd, events) : PollAction::Continue;
    });
    if (!command_.open(path_)) {
        return kCannotOpen;  // the monitor is closed by the disconnect_() that follows
    }
    return kConnected;
}

void WpaSocket::updateConnectError_(int* lastError, int error) {
    if (error != *lastError) {
        switch (error) {
            case kNoPath:
                WPA_LOG(E, "Wpa socket file path is not ready");
                break;
            case kHalfOpen:
                WPA_LOG(E, "Unexpected non-empty pointers to supplicant hal/death/ctrl interfaces");
                break;
            case kNoService:
                WPA_LOG(E, "Failed to get ISupplicant service");
                break;
            case kCannotAttach:
                WPA_LOG(E,
                        "Failed to register as event monitor for wpa_supplicant control "
                        "interface.");
                break;
            case kCannotOpen:
                WPA_LOG(E, "Failed to open wpa_supplicant control interface.");
                break;
            default:
                break;
        }
    }
    *lastError = error;
}

void WpaSocket::closeSockets_() {
    MutexLock lock(socketMutex_);
    if (monitor_.isOpen()) {
        poll_->removeFd(monitor_.fd());
        if (terminating_) {
            monitor_.sendOnly("DETACH");
        } else {
            std::string reply;
            monitor_.request("DETACH", reply, std::chrono::milliseconds(schedule_.replyTimeout));
        }
        monitor_.close();
    }
    command_.close();
}

void WpaSocket::disconnect_() {
    closeSockets_();
    // Whether or not anything was open; subscribers tolerate repeats.
    handleEventCallback_(WifiClientCallbackType::WPA_SOCKET_DISCONNECTED,
                         std::string("sockettype=") + toString(type_));
}

PollAction WpaSocket::onSocketReady_(int /*fd*/, int events) {
    if (state_ == State::Connecting) {
        // The attempt has succeeded, and its Connected is posted. What comes ahead of that stays
        // unread until then: a subscriber could not send a command yet, and a supplicant's end
        // would stop nothing. The loop comes back here at once, and runs the posted task no later.
        return PollAction::Continue;
    }
    constexpr int kErrors = EPOLLERR | EPOLLHUP;
    if ((events & EPOLLIN) != 0) {
        const bool ok = receiveEvent_();
        if (ok && (events & kErrors) == 0) {
            return PollAction::Continue;
        }
    } else if ((events & kErrors) == 0) {
        return PollAction::Continue;
    }
    if ((events & EPOLLIN) == 0 || (events & kErrors) != 0) {
        WPA_LOG(E, "onSocketReady_: unexpected poll error: 0x%08x", events);
    }
    if (state_ == State::Connected) {
        postFrom_(State::Connected, State::Stopped);
    }
    return PollAction::Continue;
}

bool WpaSocket::receiveEvent_() {
    size_t length = receiveBuffer_.size() - 1;
    if (wpa_ctrl_recv(monitor_.get(), receiveBuffer_.data(), &length) != 0) {
        WPA_LOG(E, "Failed to receive supplicant control interface message: %s", strerror(errno));
        return false;
    }
    receiveBuffer_[length] = '\0';
    constexpr size_t kTagLength = 3;  // the priority, a digit in angle brackets: dropped unseen
    if (length <= kTagLength) {
        return true;
    }
    // An event is text: what follows a NUL is not part of it.
    const std::string_view event(receiveBuffer_.data() + kTagLength);
    switch (type_) {
        case NetInterfaceType::STA:
            return staEventHandler_(event);
        case NetInterfaceType::P2P:
            return p2pEventHandler_(event);
    }
    WPA_LOG(E, "receiveEvent_: unrecognized socket type %d", static_cast<int>(type_));
    return false;
}

bool WpaSocket::staEventHandler_(std::string_view event) {
    static constexpr EventTable<6> kTable = {{
        {"CTRL-EVENT-SCAN-RESULTS ", WifiClientCallbackType::WPA_STA_SCAN_RESULTS},
        {"CTRL-EVENT-CHANNEL-SWITCH ", WifiClientCallbackType::WPA_STA_CHANNEL_SWITCH},
        {"CTRL-EVENT-ASSOC-STARTED ", WifiClientCallbackType::WPA_STA_ASSOC_STARTED},
        {"CTRL-EVENT-CONNECTED ", WifiClientCallbackType::WPA_STA_CONNECTED},
        {"CTRL-EVENT-DISCONNECTED ", WifiClientCallbackType::WPA_STA_DISCONNECTED},
        {"CTRL-EVENT-REGDOM-CHANGE ", WifiClientCallbackType::WPA_REGDOM_CHANGE},
    }};
    return eventHandler_(event, kTable);
}

bool WpaSocket::p2pEventHandler_(std::string_view event) {
    static constexpr EventTable<4> kTable = {{
        {"AP-CSA-FINISHED ", WifiClientCallbackType::WPA_P2P_CSA_FINISHED},
        {"P2P-GROUP-REMOVED ", WifiClientCallbackType::WPA_P2P_GROUP_REMOVED},
        {"P2P-GROUP-STARTED ", WifiClientCallbackType::WPA_P2P_GROUP_STARTED},
        {"CTRL-EVENT-REGDOM-CHANGE ", WifiClientCallbackType::WPA_REGDOM_CHANGE},
    }};
    return eventHandler_(event, kTable);
}

template <size_t N>
bool WpaSocket::eventHandler_(std::string_view event, const EventTable<N>& table) {
    if (isBssEvent(event)) {
        return true;
    }
    if (startsWith(event, kTerminating)) {
        WPA_LOG(I, "Supplicant exited gracefully");
        terminating_ = true;
        return false;
    }
    for (const EventKind& kind : table) {
        if (startsWith(event, kind.prefix)) {
            MutexLock lock(eventMutex_);
            handleEventCallback_(kind.type, std::string(event.substr(kind.prefix.size())));
            return true;
        }
    }
    return true;
}

void WpaSocket::handleEventCallback_(WifiClientCallbackType type, const std::string& payload) {
    auto* const map = findCallbackMap_(type);
    if (map == nullptr) {
        return;
    }
    try {
        map->trigger(payload);
    } catch (const std::exception& error) {
        // A subscriber's defect must not end the loop that every other one lives on.
        WPA_LOG(E, "A subscriber of type %d failed: %s", static_cast<int>(type), error.what());
    }
}

CallbackMap<const std::string&>* WpaSocket::findCallbackMap_(WifiClientCallbackType type) {
    const auto found = callbacks_.find(type);
    if (found == callbacks_.end()) {
        WPA_LOG(W, "Failed to find a callback map with type %d", static_cast<int>(type));
        return nullptr;
    }
    return found->second.get();
}

}  // namespace Ursa::OS::Wifi
