#pragma once

#include <array>
#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "client/ControlChannel.h"

namespace Ursa::OS::Wifi {

/** How an attempt to connect ended. */
enum class ConnectResult : int {
    Connected = 0,
    CannotOpen = -1,
    CannotAttach = -2,
    NoService = -3,  ///< never produced
    HalfOpen = -4,   ///< an attempt failed half-way and close() did not follow
    NoPath = -5,
};

/** The reason for the log; empty for Connected. */
const char* toString(ConnectResult result);

/**
 * The two connections to one supplicant interface: the monitor, attached, on which events arrive,
 * and the command connection. open(), close() and receive() belong to one thread; request() may run
 * on any, but not during open() or close().
 */
class WpaConnection {
  public:
    /** For each reply that is waited for. */
    explicit WpaConnection(std::chrono::milliseconds replyTimeout);

    /** Opens both. After a failure close() must follow. */
    ConnectResult open(const std::string& path);

    /** Detaches and closes both; does nothing without a monitor. */
    void close();

    bool isOpen() const { return command_.isOpen(); }
    /** -1 when closed. */
    int monitorFd() const { return monitor_.isOpen() ? monitor_.fd() : -1; }

    /**
     * The next event, without its priority tag; empty for a message too short to have one. Nothing
     * on failure, of which errno tells the reason. Valid until the next call. Does not wait.
     */
    std::optional<std::string_view> receive();

    /**
     * The supplicant has said that it ends. It closes its socket a moment later with whatever it
     * has not read, so close() does not wait for a reply to DETACH: that would take the time-out.
     */
    void expectEnd() { ending_ = true; }

    /** See CommandChannel::request. */
    RequestResult request(std::string_view command, std::string& reply) {
        return command_.request(command, reply);
    }

  private:
    const std::chrono::milliseconds replyTimeout_;
    ControlChannel monitor_;
    CommandChannel command_;
    bool ending_ = false;
    std::array<char, 4096> buffer_;
};

}  // namespace Ursa::OS::Wifi
