#include "client/WpaSocket.h"

#include <cerrno>
#include <cstring>
#include <exception>
#include <optional>
#include <utility>

#include <sys/epoll.h>

#include "client/WithoutSecrets.h"
#include "client/WpaLog.h"
#include "os/Trace.h"

namespace Ursa::OS::Wifi {

std::shared_ptr<WpaSocket> WpaSocket::create(NetInterfaceType type, std::shared_ptr<Poll> poll,
                                             EventFd& eventFd, History& history,
                                             const ReconnectDelays& delays,
                                             std::chrono::milliseconds replyTimeout) {
    auto socket = std::make_shared<WpaSocket>(Passkey{}, type, std::move(poll), eventFd, history,
                                              delays, replyTimeout);
    // Not in the constructor: the timer's callback needs a weak reference to the finished object.
    socket->watchTimer_();
    return socket;
}

WpaSocket::WpaSocket(Passkey, NetInterfaceType type, std::shared_ptr<Poll> poll, EventFd& eventFd,
                     History& history, const ReconnectDelays& delays,
                     std::chrono::milliseconds replyTimeout)
    : type_(type),
      poll_(std::move(poll)),
      eventFd_(eventFd),
      schedule_(delays),
      timer_(type),
      stats_(type, history),
      connection_(replyTimeout) {
    for (int i = 0; i < kWifiClientCallbackTypeCount; ++i) {
        callbacks_[static_cast<WifiClientCallbackType>(i)] =
            std::make_shared<CallbackMap<const std::string&>>();
    }
}

WpaSocket::~WpaSocket() {
    if (timer_.fd() >= 0) {
        poll_->removeFd(timer_.fd());
        WPA_LOG(I, type_, "Deinitialized wpa socket reconnect timer");
    }
    if (watchedFd_ >= 0) {
        poll_->removeFd(watchedFd_);
    }
}

void WpaSocket::onSocketFileCreate(const std::string& path) {
    MutexLock lock(socketMutex_);
    path_ = path;
    WPA_LOG(I, type_, "Update wpa socket file path: %s", path_.c_str());
    stats_.setPath(path_);
    post_(State::Idle);
}

void WpaSocket::onSocketFileDelete() {
    MutexLock lock(socketMutex_);
    path_.clear();
    WPA_LOG(I, type_, "Reset wpa socket file path");
    stats_.setPath({});
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
    const TraceSlice slice([&] { return TraceName(toString(type_), withoutSecrets(cmd)); });
    const int64_t startNs = Moment::monotonicNow();
    const CommandOutcome outcome = exchange_(cmd, reply, startNs);
    stats_.addCommand(cmd, outcome, reply, startNs);
    return outcome == CommandOutcome::Answered;
}

CommandOutcome WpaSocket::exchange_(const std::string& cmd, std::string& reply, int64_t startNs) {
    if (state_ != State::Connected || !connection_.isOpen()) {
        reply = "ERROR: NOT-CONNECTED";
        return CommandOutcome::NotConnected;
    }
    const PendingText::Scope pending = stats_.pending(cmd, startNs);
    const std::chrono::steady_clock::time_point start{std::chrono::nanoseconds(startNs)};
    switch (connection_.request(cmd, reply, start)) {
        case RequestResult::Replied:
            break;
        case RequestResult::TimedOut:
            reply = "ERROR: TIMEOUT";
            return CommandOutcome::TimedOut;
        case RequestResult::NotSent:
            reply = "ERROR: SEND-RECV";
            return CommandOutcome::NotSent;
        case RequestResult::Failed:
            reply = "ERROR: SEND-RECV";
            return CommandOutcome::Failed;
    }
    if (reply.size() > ControlChannel::kMaxReply) {
        reply = "ERROR: REPLY-TOO-LONG";
        return CommandOutcome::ReplyTooLong;
    }
    return CommandOutcome::Answered;
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
        WPA_LOG(D, type_, "Enter new wpa client state '%s' (old '%s')", toString_(newState),
                toString_(previousState_));
        switch (newState) {
            case State::Stopped:
            case State::Idle:
                WPA_LOG(I, type_, "Disconnecting supplicant socket");
                timer_.set(-1);
                disconnect_();
                break;
            case State::Connecting:
                if (previousState_ != State::Idle) {
                    WPA_LOG(W, type_,
                            "Cannot enter Connecting from non-Idle states. Revert back to old "
                            "state: %s",
                            toString_(previousState_));
                    state_ = previousState_;
                    return;
                }
                startConnecting_();
                break;
            case State::Connected: {
                MutexLock lock(socketMutex_);
                WPA_LOG(I, type_, "Connected to supplicant socket: %s", path_.c_str());
                break;
            }
        }
        previousState_ = newState;
        stats_.setState(toString_(newState), newState == State::Connected);
    }
    // Every request of Idle, repeated ones included, leads to Connecting in the next loop turn.
    if (newState == State::Idle) {
        post_(State::Connecting);
    }
}

void WpaSocket::startConnecting_() {
    const int64_t delay = schedule_.begin();
    stats_.beginConnecting();
    timer_.set(delay);
    WPA_LOG(I, type_, "Start connecting to supplicant in %ld ms", static_cast<long>(delay));
}

void WpaSocket::watchTimer_() {
    if (!timer_.init()) {
        return;
    }
    poll_->addFd(timer_.fd(), EPOLLIN, [weak = weak_from_this()](int /*fd*/, int events) {
        const auto self = weak.lock();
        // A destroyed socket has removed its descriptor already; by now the number may be reused.
        return self ? self->onReconnectTimerExpired_(events) : PollAction::Continue;
    });
    WPA_LOG(I, type_, "Initialized wpa socket reconnect timer");
}

PollAction WpaSocket::onReconnectTimerExpired_(int events) {
    switch (timer_.take(events)) {
        case ReconnectTimer::Wake::Broken:
            return PollAction::Remove;
        case ReconnectTimer::Wake::Nothing:
            return PollAction::Continue;
        case ReconnectTimer::Wake::Expired:
            break;
    }
    if (state_ != State::Connecting) {
        WPA_LOG(I, type_,
                "onReconnectTimerFire_: exit timer since it is no longer in Connecting state");
        timer_.set(-1);
    } else if (schedule_.isOver()) {
        postFrom_(State::Connecting, State::Stopped);
        WPA_LOG(E, type_, "Failed to connect to supplicant after timeout %ld ms => stop",
                static_cast<long>(schedule_.giveUpAfter()));
    } else {
        tryToConnect_();
    }
    return PollAction::Continue;
}

void WpaSocket::tryToConnect_() {
    const ConnectResult result = connect_();
    stats_.addAttempt();
    if (result == ConnectResult::Connected) {
        postFrom_(State::Connecting, State::Connected);
        return;
    }
    WPA_LOG(E, type_, "%s", toString(result));
    stats_.setError(toString(result));
    disconnect_();
    timer_.set(schedule_.next());
}

ConnectResult WpaSocket::connect_() {
    MutexLock lock(socketMutex_);
    const ConnectResult result = connection_.open(path_);
    if (result == ConnectResult::Connected && watchedFd_ < 0) {
        const int fd = connection_.monitorFd();
        poll_->addFd(fd, EPOLLIN, [weak = weak_from_this()](int /*fd*/, int events) {
            const auto self = weak.lock();
            return self ? self->onSocketReady_(events) : PollAction::Continue;
        });
        watchedFd_ = fd;
    }
    return result;
}

void WpaSocket::closeSockets_() {
    MutexLock lock(socketMutex_);
    if (watchedFd_ >= 0) {
        poll_->removeFd(watchedFd_);
        watchedFd_ = -1;
    }
    connection_.close();
}

void WpaSocket::disconnect_() {
    closeSockets_();
    // Sent even if nothing was open; subscribers tolerate repeats.
    handleEventCallback_(WifiClientCallbackType::WPA_SOCKET_DISCONNECTED,
                         std::string("sockettype=") + toString(type_));
}

PollAction WpaSocket::onSocketReady_(int events) {
    if (state_ == State::Connecting) {
        // Connected is posted but not entered. The event stays unread until then: a subscriber
        // could not send a command yet, and CTRL-EVENT-TERMINATING would be ignored. The loop
        // returns here at once, and runs the posted task no later.
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
        WPA_LOG(E, type_, "onSocketReady_: unexpected poll error: 0x%08x", events);
    }
    if (state_ == State::Connected) {
        postFrom_(State::Connected, State::Stopped);
    }
    return PollAction::Continue;
}

bool WpaSocket::receiveEvent_() {
    WpaConnection& connection = monitor_();
    const std::optional<std::string_view> line = connection.receive();
    if (!line) {
        const int error = errno;
        WPA_LOG(E, type_, "Failed to receive supplicant control interface message: %s",
                strerror(error));
        stats_.setError(std::string("Failed to receive an event: ") + strerror(error));
        return false;
    }
    if (line->empty()) {
        return true;
    }
    if (type_ != NetInterfaceType::STA && type_ != NetInterfaceType::P2P) {
        WPA_LOG(E, type_, "receiveEvent_: unrecognized socket type %d", static_cast<int>(type_));
        return false;
    }
    const WpaEvent event = readWpaEvent(type_, *line);
    switch (event.meaning) {
        case WpaEvent::Meaning::None:
            break;
        case WpaEvent::Meaning::Terminating:
            WPA_LOG(I, type_, "Supplicant exited gracefully");
            stats_.setError("Supplicant exited gracefully");
            connection.expectEnd();
            return false;
        case WpaEvent::Meaning::Notification: {
            MutexLock lock(eventMutex_);
            notifyEvent_(event);
            break;
        }
    }
    return true;
}

void WpaSocket::notifyEvent_(const WpaEvent& event) {
    const TraceSlice slice =
        TraceSlice::outermost([&] { return TraceName(toString(type_), eventName(event.type)); });
    stats_.addEvent(event.type, event.payload);
    handleEventCallback_(event.type, std::string(event.payload));
}

void WpaSocket::handleEventCallback_(WifiClientCallbackType type, const std::string& payload) {
    auto* const map = findCallbackMap_(type);
    if (map == nullptr) {
        return;
    }
    try {
        map->trigger(payload);
    } catch (const std::exception& error) {
        // One subscriber's exception must not end the loop that serves all of them.
        WPA_LOG(E, type_, "A subscriber of type %d failed: %s", static_cast<int>(type),
                error.what());
    }
}

CallbackMap<const std::string&>* WpaSocket::findCallbackMap_(WifiClientCallbackType type) {
    const auto found = callbacks_.find(type);
    if (found == callbacks_.end()) {
        WPA_LOG(W, type_, "Failed to find a callback map with type %d", static_cast<int>(type));
        return nullptr;
    }
    return found->second.get();
}

}  // namespace Ursa::OS::Wifi
