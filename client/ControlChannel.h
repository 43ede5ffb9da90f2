#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include <wpa_ctrl.h>

namespace Ursa::OS::Wifi {

/** How a request ended. */
enum class RequestResult {
    Replied,
    NotSent,   ///< nobody listens any more, or does not read
    TimedOut,  ///< sent, but no reply in time
    Failed,    ///< sent, but then the connection failed
};

/**
 * One connection to a supplicant's control interface, opened and closed by the supplicant's client
 * library. Requests go past the library: its own restart their 10 s whenever another line arrives.
 * One thread at a time; open() of several objects may run at once.
 */
class ControlChannel {
  public:
    /** What is longer is cut off. */
    static constexpr size_t kMaxReply = 4095;

    /** False if nobody listens at `path`, or if it does not fit into a socket address. */
    bool open(const std::string& path);

    /** Also removes the file that the library made for this end. */
    void close() { connection_.reset(); }

    bool isOpen() const { return connection_ != nullptr; }
    int fd() const { return wpa_ctrl_get_fd(connection_.get()); }
    wpa_ctrl* get() const { return connection_.get(); }

    /**
     * Lets the kernel wait inside request(), up to `timeout`, which saves each request the wait of
     * its own. Reads of this connection block from then on.
     */
    void waitInReceive(std::chrono::milliseconds timeout);

    /** Whether something can be read, an error of the connection included. Does not wait. */
    bool hasUnread() const;

    /**
     * Sends a request and waits for its reply, `timeout` in all. Takes the first message for the
     * reply that is not an event ("<..." or "IFNAME=..."). A full queue at the other end is waited
     * for half of that time. Changes `reply` on success only.
     */
    RequestResult request(std::string_view command, std::string& reply,
                          std::chrono::milliseconds timeout);

    /** Sends without waiting, neither for room in the other end's queue nor for a reply. */
    void sendOnly(std::string_view command);

  private:
    using Clock = std::chrono::steady_clock;

    struct Closer {
        void operator()(wpa_ctrl* connection) const { wpa_ctrl_close(connection); }
    };

    bool send_(std::string_view command, Clock::time_point deadline);
    RequestResult receive_(std::string& reply, Clock::time_point deadline);
    /** Waits for one of `events`. False at the deadline, even if there is one. */
    bool wait_(short events, Clock::time_point deadline) const;

    std::unique_ptr<wpa_ctrl, Closer> connection_;
};

/**
 * The connection on which commands are sent. The supplicant's replies do not say which command they
 * belong to, so a connection on which an unread reply may still arrive is given up: the next
 * command opens another one, with an address of its own. One thread at a time.
 */
class CommandChannel {
  public:
    explicit CommandChannel(std::chrono::milliseconds replyTimeout) : timeout_(replyTimeout) {}

    /** See ControlChannel::open. Later connections are opened at the same path. */
    bool open(const std::string& path);
    void close();

    /** Between open() and close(), also while a connection that was given up is not replaced. */
    bool isOpen() const { return isOpen_; }

    /** As ControlChannel::request. NotSent also if a new connection cannot be opened. */
    RequestResult request(std::string_view command, std::string& reply);

  private:
    bool connect_();

    const std::chrono::milliseconds timeout_;
    std::string path_;
    bool isOpen_ = false;
    ControlChannel channel_;
};

}  // namespace Ursa::OS::Wifi
