#pragma once

#include <chrono>
#include <deque>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <android-base/unique_fd.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "sim/EventLoop.h"
#include "sim/RadioState.h"
#include "sim/Record.h"

namespace sim {

/** How a command to the supplicant is answered. */
struct ReplyRule {
    std::string prefix;  ///< Of the commands that it is for.
    std::string on;      ///< Socket name; empty: every socket.
    bool none = false;   ///< No answer at all.
    std::string answer;
    int times = 0;      ///< How often it holds; 0: until it is removed.
    Duration after{0};  ///< Delay of the answer.
};

/**
 * The supplicant's control sockets: answers commands from the radio's state or by rule, keeps the
 * list of monitors per socket and delivers events to them. One UNIX datagram socket per interface,
 * named after it, in `folder`, which is not created here.
 *
 * A send never blocks. Events may fill half of a socket's send buffer, so that answers always find
 * room; the others wait, in order. A monitor is dropped when its address is gone and when it
 * refuses eleven times in a row. One that doesn't read keeps the buffer that all monitors of the
 * socket share: when it hasn't moved for five seconds, all that still wait for events are dropped.
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

    /** Sends one event line to every monitor of `name`; `detail` as in Record. */
    void send(const std::string& name, const std::string& text, bool detail = false);
    /**
     * Sends `count` events on the open socket `name`, with their number for each "{n}" in `text`.
     * They are recorded once now and once when all are delivered.
     */
    void burst(const std::string& name, int count, const std::string& text);

    /** The newest rule that fits a command decides. */
    void addRule(ReplyRule rule) { rules_.push_front(std::move(rule)); }
    /** Removes the rules for exactly this beginning. */
    void removeRules(const std::string& prefix);

  private:
    struct Address {
        sockaddr_un name{};
        socklen_t length = 0;
        std::string text() const;
        bool operator==(const Address& other) const;
    };
    struct Monitor {
        Address address;
        std::deque<std::shared_ptr<const std::string>> waiting;
        int refusals = 0;
    };
    struct Socket {
        std::string name;
        android::base::unique_fd fd;
        int eventRoom = 0;  ///< Bytes of the send buffer that events may fill.
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
    const ReplyRule* useRule(const Socket& socket, const std::string& command);
    void reply(const std::string& name, const Address& to, const std::string& text);
    void queue(Socket& socket, const std::shared_ptr<const std::string>& text);
    /** Sends what waits as far as it is taken; arms the retry for the rest. */
    void flush(Socket& socket);
    /** Sends what waits for one monitor; false when it is to be dropped. */
    bool flush(Socket& socket, Monitor& monitor);
    bool hasEventRoom(const Socket& socket) const;
    std::string path(const std::string& name) const { return folder_ + name; }

    EventLoop& loop_;
    Recorder& recorder_;
    const RadioState& radio_;
    const std::string folder_;
    std::map<std::string, Socket> sockets_;
    std::list<ReplyRule> rules_;
    ReplyRule usedRule_;
    bool suspended_ = false;
};

}  // namespace sim
