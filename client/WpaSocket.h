#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include <ursa/os/EventFd.h>

#include "client/CallbackMap.h"
#include "client/NetInterfaceType.h"
#include "client/ReconnectSchedule.h"
#include "client/ReconnectTimer.h"
#include "client/SocketStats.h"
#include "client/WifiClientCallbackType.h"
#include "client/WpaConnection.h"
#include "client/WpaEvents.h"
#include "os/Mutex.h"
#include "os/Poll.h"

namespace Ursa::OS::Wifi {

/**
 * Keeps a WpaConnection to one supplicant interface while its socket file exists, and passes the
 * supplicant's events to subscribers, which run on the loop thread. State changes on that thread.
 *
 *     Stopped --file created--> Idle --> Connecting --> Connected
 *        ^                                   |              |
 *        +-- file deleted, schedule over, supplicant gone --+
 */
class WpaSocket : public std::enable_shared_from_this<WpaSocket> {
    struct Passkey {};

  public:
    enum class State { Stopped = 0, Idle = 1, Connecting = 2, Connected = 3 };

    /** The longest wait for the reply to a command, ATTACH or DETACH. */
    static constexpr std::chrono::milliseconds kReplyTimeout = std::chrono::seconds(10);

    /**
     * `poll` is the owner's loop; `eventFd` posts to it. `eventFd` and `history` must outlive the
     * socket. Starts in Stopped and does nothing until onSocketFileCreate(). May be released on any
     * thread: tasks on the loop hold it weakly.
     */
    static std::shared_ptr<WpaSocket> create(
        NetInterfaceType type, std::shared_ptr<Poll> poll, EventFd& eventFd, History& history,
        const ReconnectDelays& delays = {}, std::chrono::milliseconds replyTimeout = kReplyTimeout);

    /** For create(). */
    WpaSocket(Passkey, NetInterfaceType type, std::shared_ptr<Poll> poll, EventFd& eventFd,
              History& history, const ReconnectDelays& delays,
              std::chrono::milliseconds replyTimeout);

    /** Leaves the loop and closes the connections without a DETACH. */
    ~WpaSocket();

    WpaSocket(const WpaSocket&) = delete;
    WpaSocket& operator=(const WpaSocket&) = delete;

    /** The socket file has appeared at `path`: (re)connects. Any thread. */
    void onSocketFileCreate(const std::string& path);

    /** The socket file has gone: disconnects and stops. Any thread. */
    void onSocketFileDelete();

    /** Any thread. */
    State state() const { return state_; }

    /**
     * Subscribes `callback`, which must not move until it is unregistered, to one kind of event. A
     * kind that this socket never produces is accepted and never fires. Returns the handle; -1 for
     * a type outside the enumeration and when 64 are registered. Any thread.
     */
    int registerEventCallback(WifiClientCallbackType type,
                              std::function<void(const std::string&)>& callback);

    /** Ends a subscription; see CallbackMap::unregisterCallback. Any thread. */
    bool unregisterEventCallback(WifiClientCallbackType type, int handle);

    /**
     * Sends a command and waits for its reply, 10 s at most. On success `reply` is the unchanged
     * reply, trailing newline included; on failure it is "ERROR: " followed by NOT-CONNECTED,
     * TIMEOUT, SEND-RECV or REPLY-TOO-LONG. Any thread, also inside a subscriber's callback;
     * commands run one at a time.
     */
    bool sendCtrlCmd(const std::string& cmd, std::string& reply);

    /** For reports. Does not wait for a running command. Any thread. */
    const SocketStats& stats() const { return stats_; }

  private:
    static const char* toString_(State state);

    /** Runs updateState_(state) on the loop thread, unless the socket is destroyed by then. */
    void post_(State state);
    /**
     * As post_(), but ignored if the socket has left `from` by then, so that a stale result cannot
     * override a newer change of the socket file.
     */
    void postFrom_(State from, State state);
    void updateState_(State newState);
    void startConnecting_();

    void watchTimer_();
    PollAction onReconnectTimerExpired_(int events);
    void tryToConnect_();

    ConnectResult connect_() EXCLUDES(socketMutex_);
    void closeSockets_() EXCLUDES(socketMutex_);
    void disconnect_() EXCLUDES(socketMutex_);

    PollAction onSocketReady_(int events);
    /** Reads and delivers one event. Returns false if the connection is to be closed. */
    bool receiveEvent_();
    /**
     * The connection, for its monitor only. Needs no mutex, which a command may hold for seconds:
     * only the loop thread changes the monitor.
     */
    WpaConnection& monitor_() NO_THREAD_SAFETY_ANALYSIS { return connection_; }
    void notifyEvent_(const WpaEvent& event) REQUIRES(eventMutex_);
    void handleEventCallback_(WifiClientCallbackType type, const std::string& payload);

    /** sendCtrlCmd() without noting the outcome. `reply` is set according to it. */
    CommandOutcome exchange_(const std::string& cmd, std::string& reply, int64_t startNs)
        REQUIRES(socketMutex_);

    /** Null, with a warning, for a type outside the enumeration. */
    CallbackMap<const std::string&>* findCallbackMap_(WifiClientCallbackType type);

    Mutex socketMutex_;  ///< held while a command waits for its reply
    Mutex eventMutex_;   ///< held while one event's subscribers run

    const NetInterfaceType type_;
    std::string path_ GUARDED_BY(socketMutex_);  ///< empty when unknown
    const std::shared_ptr<Poll> poll_;
    EventFd& eventFd_;

    State previousState_ = State::Stopped;      ///< loop thread only
    std::atomic<State> state_{State::Stopped};  ///< written on the loop thread only
    ReconnectSchedule schedule_;                ///< loop thread only
    ReconnectTimer timer_;                      ///< loop thread after create()
    int watchedFd_ = -1;                        ///< monitor that the loop watches; loop thread only

    SocketStats stats_;
    WpaConnection connection_ GUARDED_BY(socketMutex_);

    /** One per type, all made in the constructor; the map itself never changes. */
    std::map<WifiClientCallbackType, std::shared_ptr<CallbackMap<const std::string&>>> callbacks_;
};

}  // namespace Ursa::OS::Wifi
