#pragma once

#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/ControlSocket.h"
#include "sim/EventLoop.h"
#include "sim/RadioState.h"
#include "sim/Record.h"

namespace sim {

/** What a command is answered with in place of the supplicant's own answer. */
struct Reply {
    enum class How {
        Send,
        None,  ///< No answer.
        Reset  ///< The request fails at once, as when the connection is lost.
    } how = How::Send;
    std::string text;
    Duration after{0};  ///< Delay of the answer.
};

struct ReplyRule {
    std::string prefix;  ///< Of the commands that it is for.
    std::string on;      ///< Socket name; empty: every socket.
    int times = 0;       ///< How often it holds; 0: until it is removed.
    Reply reply;
};

/**
 * The supplicant's control sockets: answers commands from the radio's state, by rule or by script,
 * and delivers events to monitors. One UNIX datagram socket per interface, in `folder`, which must
 * exist. A send never blocks: events fill half of a socket's buffer and then wait, in order.
 * Dropped are monitors whose address is gone or that refuse eleven times in a row, and all that
 * wait when the buffer has not moved for five seconds. One thread.
 */
class FakeSupplicant {
  public:
    /** `folder` ends with a slash. */
    FakeSupplicant(EventLoop& loop, Recorder& recorder, const RadioState& radio,
                   std::string folder);
    /** Closes every socket and removes its file. */
    ~FakeSupplicant();
    FakeSupplicant(const FakeSupplicant&) = delete;
    FakeSupplicant& operator=(const FakeSupplicant&) = delete;

    /**
     * Makes the socket `name`; a socket file that nobody stands behind is replaced. Returns why
     * that was not possible, or an empty text.
     */
    std::string open(const std::string& name);
    /** Closes the socket; with `unlink`, its file goes too, also one that nobody stands behind. */
    void close(const std::string& name, bool unlink);
    bool isOpen(const std::string& name) const { return sockets_.count(name) != 0; }
    std::vector<std::string> names() const;
    size_t monitors(const std::string& name) const;

    /** Stops answering, as a stopped process does; resume() answers what came in meanwhile. */
    void suspend();
    void resume();

    /**
     * Sends one event line to every monitor of `name`. When each has taken it or was dropped,
     * `onDelivered` is called with the number that took it; at once if there is no such socket.
     */
    void send(const std::string& name, const std::string& text,
              std::function<void(size_t)> onDelivered = nullptr);
    /**
     * Sends `count` events on the open socket `name`, with their number for each "{n}" in `text`.
     * They are recorded once now and once when all are delivered.
     */
    void burst(const std::string& name, int count, const std::string& text);

    /** The newest rule that fits a command decides. */
    void addRule(ReplyRule rule) { rules_.push_front(std::move(rule)); }
    /** Removes the rules for exactly this beginning. */
    void removeRules(const std::string& prefix);
    /** Decides, ahead of the rules, about a request (ATTACH and DETACH too) unless it has no
     * value. */
    using Script = std::function<std::optional<Reply>(const std::string& command)>;
    void setScript(Script script) { script_ = std::move(script); }
    /** Makes what every monitor of `name` waits for fail. */
    void resetMonitors(const std::string& name);

  private:
    using Address = ControlSocket::Address;
    /** Its last owner is the last monitor that took it or was dropped. */
    struct Event {
        std::string text;
        std::function<void(size_t)> onDelivered;
        size_t taken = 0;

        Event(std::string line, std::function<void(size_t)> callback)
            : text(std::move(line)), onDelivered(std::move(callback)) {}
        ~Event();
        Event(const Event&) = delete;
        Event& operator=(const Event&) = delete;
    };
    struct Monitor {
        Address address;
        std::deque<std::shared_ptr<Event>> waiting;
        int refusals = 0;
    };
    struct Socket {
        std::string name;
        ControlSocket control;
        std::list<Monitor> monitors;
        EventLoop::TimerId retry = 0;
        /** When an event was last taken, or began to wait. */
        EventLoop::Clock::time_point lastTaken;
        /** A burst under way: what to tell when nothing waits any more. */
        int burst = 0;
    };

    void onReadable(const std::string& name);
    void handle(Socket& socket, const Address& from, const std::string& command);
    /** The supplicant's own answer, where no rule says another. */
    std::string answer(Socket& socket, const Address& from, const std::string& command);
    std::string attach(Socket& socket, const Address& from);
    std::string detach(Socket& socket, const Address& from);
    std::string signalPoll(const Socket& socket) const;
    std::string status(const Socket& socket) const;
    /** What script and rules say; no value: the supplicant's own answer. */
    std::optional<Reply> scripted(const Socket& socket, const std::string& command);
    void send(const std::string& name, const Address& to, const std::string& text);
    void queue(Socket& socket, const std::shared_ptr<Event>& event);
    /** Sends what waits as far as it is taken; arms the retry for the rest. */
    void flush(Socket& socket);
    /** Sends what waits for one monitor; false when it is to be dropped. */
    bool flush(Socket& socket, Monitor& monitor);
    std::string path(const std::string& name) const { return folder_ + name; }

    EventLoop& loop_;
    Recorder& recorder_;
    const RadioState& radio_;
    const std::string folder_;
    std::map<std::string, Socket> sockets_;
    std::list<ReplyRule> rules_;
    Script script_;
    bool suspended_ = false;
};

}  // namespace sim
