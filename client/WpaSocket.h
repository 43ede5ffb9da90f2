#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include <android-base/unique_fd.h>
#include <ursa/os/EventFd.h>

#include "client/CallbackMap.h"
#include "client/ControlChannel.h"
#include "client/NetInterfaceType.h"
#include "client/WifiClientCallbackType.h"
#include "os/Mutex.h"
#include "os/Poll.h"

namespace Ursa::OS::Wifi {

/**
 * The daemon's connection to one supplicant control interface: a monitor connection, attached, on
 * which events arrive, and a command connection beside it. It follows the appearance and
 * disappearance of the socket file with a state machine, reconnects with a growing delay, and hands
 * the supplicant's events to subscribers.
 *
 *     Stopped --file created--> Idle --> Connecting --> Connected
 *        ^                                   |              |
 *        +---- file deleted, one hour in vain, supplicant gone
 *
 * The hour is that of the pauses between the attempts. What the attempts themselves take comes on
 * top: nothing while nobody listens, the time-out of a request each with a supplicant that hangs.
 *
 * States change on the loop thread only, by tasks posted to it; every subscriber runs there too.
 * Posted tasks and loop callbacks hold the socket weakly, so it may be released on any thread.
 */
class WpaSocket : public std::enable_shared_from_this<WpaSocket> {
    struct Passkey {};

  public:
    enum class State { Stopped = 0, Idle = 1, Connecting = 2, Connected = 3 };

    /** When to try to connect, and how long to wait there. All in milliseconds. */
    struct ReconnectSchedule {
        int64_t firstDelay = 25;          ///< from entering Connecting to the first attempt
        int64_t fastDelay = 50;           ///< between attempts, at first
        int64_t fastPhase = 5'000;        ///< until this much delay has accumulated
        int64_t slowDelay = 5'000;        ///< between attempts from then on
        int64_t giveUpAfter = 3'600'000;  ///< delays that add up to this: the socket is given up
        int64_t replyTimeout = 10'000;    ///< for the reply to a command, ATTACH and DETACH too
    };

    /**
     * `poll` is the owner's loop and `eventFd`, which must outlive the socket, posts to it. Begins
     * in Stopped and does nothing until onSocketFileCreate().
     */
    static std::shared_ptr<WpaSocket> create(NetInterfaceType type, std::shared_ptr<Poll> poll,
                                             EventFd& eventFd, ReconnectSchedule schedule);
    static std::shared_ptr<WpaSocket> create(NetInterfaceType type, std::shared_ptr<Poll> poll,
                                             EventFd& eventFd);

    /** For create(). */
    WpaSocket(Passkey, NetInterfaceType type, std::shared_ptr<Poll> poll, EventFd& eventFd,
              ReconnectSchedule schedule);

    /** Leaves the loop. Sends the supplicant nothing; its connections close behind it. */
    ~WpaSocket();

    WpaSocket(const WpaSocket&) = delete;
    WpaSocket& operator=(const WpaSocket&) = delete;

    /** The socket file has appeared at `path`: (re)connects. Any thread. */
    void onSocketFileCreate(const std::string& path);

    /** The socket file has gone: disconnects and stops. Any thread. */
    void onSocketFileDelete();

    /**
     * Subscribes `callback`, which the subscriber keeps in place, to one kind of event. A kind that
     * this socket never produces is accepted and never fires. Returns the handle, or -1. Any
     * thread.
     */
    int registerEventCallback(WifiClientCallbackType type,
                              std::function<void(const std::string&)>& callback);

    /** Ends a subscription; see CallbackMap::unregisterCallback. Any thread. */
    bool unregisterEventCallback(WifiClientCallbackType type, int handle);

    /**
     * Sends a command and waits for its reply, 10 seconds at most. On success `reply` is exactly
     * what came back, its newline included. On failure it is "ERROR: " and NOT-CONNECTED, TIMEOUT,
     * SEND-RECV or REPLY-TOO-LONG. A reply that comes too late is never another command's. Any
     * thread, one command at a time; a subscriber may send from inside its callback.
     */
    bool sendCtrlCmd(const std::string& cmd, std::string& reply);

  private:
    friend class WpaSocketTestPeer;

    /** Results of connect_(). */
    enum ConnectError : int {
        kConnected = 0,
        kCannotOpen = -1,
        kCannotAttach = -2,
        kNoService = -3,  ///< never produced
        kHalfOpen = -4,
        kNoPath = -5,
    };

    /** An event's prefix, its blank included, and what it becomes. */
    struct EventKind {
        std::string_view prefix;
        WifiClientCallbackType type;
    };
    template <size_t N>
    using EventTable = std::array<EventKind, N>;

    static constexpr size_t kBufferSize = 4096;

    static const char* toString_(State state);

    /** Runs updateState_(state) on the loop thread, unless the socket has gone by then. */
    void post_(State state);
    /**
     * The same, if the socket is still in `from` by then. What an attempt or an event has led to in
     * one state must not undo the news of the socket file that came in between.
     */
    void postFrom_(State from, State state);
    void updateState_(State newState);

    bool initWpaSocketReconnectTimer_();
    /** Milliseconds; negative disarms. */
    bool setWpaSocketReconnectTimer_(int64_t delayMs);
    PollAction onReconnectTimerExpired_(int fd, int events);

    int connect_() EXCLUDES(socketMutex_);
    void disconnect_() EXCLUDES(socketMutex_);
    void closeSockets_() EXCLUDES(socketMutex_);
    void updateConnectError_(int* lastError, int error);

    PollAction onSocketReady_(int fd, int events);
    /**
     * Reads monitor_ without its mutex, which a command may hold for seconds: only this thread,
     * the loop's, ever changes it.
     */
    bool receiveEvent_() NO_THREAD_SAFETY_ANALYSIS;
    bool staEventHandler_(std::string_view event);
    bool p2pEventHandler_(std::string_view event);
    template <size_t N>
    bool eventHandler_(std::string_view event, const EventTable<N>& table) EXCLUDES(eventMutex_);
    void handleEventCallback_(WifiClientCallbackType type, const std::string& payload);

    /** Null, with a warning, for a type outside the enumeration. */
    CallbackMap<const std::string&>* findCallbackMap_(WifiClientCallbackType type);

    Mutex socketMutex_;  ///< held while a command waits for its reply
    Mutex eventMutex_;   ///< held while one event's subscribers run, deliberately

    const NetInterfaceType type_;
    const ReconnectSchedule schedule_;
    std::string path_ GUARDED_BY(socketMutex_);  ///< empty when unknown
    const std::shared_ptr<Poll> poll_;
    EventFd& eventFd_;

    State previousState_ = State::Stopped;      ///< loop thread only
    std::atomic<State> state_{State::Stopped};  ///< written on the loop thread only
    int64_t accumulatedDelay_ = 0;              ///< milliseconds; loop thread only
    /**
     * The supplicant behind monitor_ has said that it ends. It closes its socket a moment later
     * with whatever it has not read, so DETACH is sent but not waited for: that would hold the
     * loop, and with it the other socket's events, for 10 s. Loop thread only.
     */
    bool terminating_ = false;
    android::base::unique_fd reconnectTimer_;

    /** Changed on the loop thread only, under the mutex; the loop thread reads it without. */
    ControlChannel monitor_ GUARDED_BY(socketMutex_);
    std::array<char, kBufferSize> receiveBuffer_;  ///< loop thread only
    CommandChannel command_ GUARDED_BY(socketMutex_);

    /** One per type, all made in the constructor; the map itself never changes. */
    std::map<WifiClientCallbackType, std::shared_ptr<CallbackMap<const std::string&>>> callbacks_;
};

}  // namespace Ursa::OS::Wifi
