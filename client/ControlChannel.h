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
    NotSent,   ///< the supplicant is gone, or its receive queue stayed full
    TimedOut,  ///< sent, but no reply in time
    Failed,    ///< sent, but then the connection failed
};

/**
 * One connection to a supplicant's control interface, opened and closed by the supplicant's client
 * library. Requests bypass the library, whose own restart their 10 s time-out at every message that
 * arrives. One thread at a time; different objects may be opened concurrently.
 */
class ControlChannel {
  public:
    /** Bytes; a longer reply is cut off. */
    static constexpr size_t kMaxReply = 4095;

    /** Returns false if nobody listens at `path`, or if it does not fit into a socket address. */
    bool open(const std::string& path);

    /** Also removes the socket file that the library made for this end. */
    void close() { connection_.reset(); }

    bool isOpen() const { return connection_ != nullptr; }
    int fd() const { return wpa_ctrl_get_fd(connection_.get()); }
    wpa_ctrl* get() const { return connection_.get(); }

    /**
     * Makes the socket blocking with a receive time-out, from 1 us, so that request() waits inside
     * recv() and saves a poll() per reply.
     */
    void waitInReceive(std::chrono::microseconds timeout);

    /** Whether a message or a socket error is waiting. Does not block. */
    bool hasUnread() const;

    /**
     * Sends a request and waits for its reply, `timeout` in all, of which at most half is spent
     * waiting for room in the supplicant's receive queue. The reply is the first message that is
     * not an event ("<..." or "IFNAME=..."). Changes `reply` on success only.
     */
    RequestResult request(
        std::string_view command, std::string& reply, std::chrono::milliseconds timeout,
        std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now());

    /** Sends without waiting for room in the supplicant's queue or for a reply. Ignores failure. */
    void sendOnly(std::string_view command);

  private:
    using Clock = std::chrono::steady_clock;

    struct Closer {
        void operator()(wpa_ctrl* connection) const { wpa_ctrl_close(connection); }
    };

    bool send_(std::string_view command, Clock::time_point deadline);
    RequestResult receive_(std::string& reply, Clock::time_point deadline);
    /** Waits for one of `events`. Returns false once the deadline has passed. */
    bool wait_(short events, Clock::time_point deadline) const;

    std::unique_ptr<wpa_ctrl, Closer> connection_;
};

/**
 * The connection on which commands are sent. A reply does not say which command it belongs to, so a
 * connection on which a late reply may still arrive is closed; the next command opens another one,
 * with an address of its own. One thread at a time.
 */
class CommandChannel {
  public:
    explicit CommandChannel(std::chrono::milliseconds replyTimeout) : timeout_(replyTimeout) {}

    /** See ControlChannel::open. Reconnects use the same path. */
    bool open(const std::string& path);
    void close();

    /** True between open() and close(), also while a closed connection is not yet replaced. */
    bool isOpen() const { return isOpen_; }

    /** See ControlChannel::request. NotSent also if a new connection cannot be opened. */
    RequestResult request(
        std::string_view command, std::string& reply,
        std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now());

  private:
    bool connect_();

    const std::chrono::milliseconds timeout_;
    std::string path_;
    bool isOpen_ = false;
    ControlChannel channel_;
};

}  // namespace Ursa::OS::Wifi
