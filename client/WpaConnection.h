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

/** The failure's text for the log; empty for Connected. */
const char* toString(ConnectResult result);

/**
 * The two connections to one supplicant interface: the attached monitor, on which events arrive,
 * and the command connection. open(), close() and receive() belong to one thread; request() may run
 * on any thread, one at a time, but not during open() or close().
 */
class WpaConnection {
  public:
    /** `replyTimeout` limits the wait for each reply. */
    explicit WpaConnection(std::chrono::milliseconds replyTimeout);

    /** Opens and attaches the monitor, and opens the command connection. Close after a failure. */
    ConnectResult open(const std::string& path);

    /** Detaches the monitor, waiting for the reply, and closes both connections. */
    void close();

    bool isOpen() const { return command_.isOpen(); }
    /** -1 when closed. */
    int monitorFd() const { return monitor_.isOpen() ? monitor_.fd() : -1; }

    /**
     * The next event without its priority tag; an empty text for a message too short to have one;
     * std::nullopt on failure, with errno set. Valid until the next call. Does not wait.
     */
    std::optional<std::string_view> receive();

    /**
     * Call it after CTRL-EVENT-TERMINATING: close() then does not wait for the reply to DETACH. The
     * supplicant closes its socket without reading any more, so the wait would time out.
     */
    void expectEnd() { ending_ = true; }

    /** See CommandChannel::request. */
    RequestResult request(std::string_view command, std::string& reply,
                          std::chrono::steady_clock::time_point start) {
        return command_.request(command, reply, start);
    }

  private:
    const std::chrono::milliseconds replyTimeout_;
    ControlChannel monitor_;
    CommandChannel command_;
    bool ending_ = false;
    std::array<char, 4096> buffer_;
};

}  // namespace Ursa::OS::Wifi
