#pragma once

#include <string>
#include <string_view>
#include <thread>

#include "sim/ControlSocket.h"
#include "tests/support/TempFolder.h"

namespace corvid::benchmarks {

/** What the daemon waits for with a subscriber that acts on it. */
inline constexpr std::string_view kEventPrefix = "CTRL-EVENT-SCAN-RESULTS ";
inline constexpr std::string_view kEvent = "<3>CTRL-EVENT-SCAN-RESULTS ";
inline constexpr std::string_view kCommand = "SIGNAL_POLL";
inline constexpr std::string_view kReply = "RSSI=-50\nLINKSPEED=780\nNOISE=9999\nFREQUENCY=5180\n";

/**
 * The simulated supplicant's socket without its loop: the caller plays the supplicant, so that
 * nothing but the system calls is measured with the daemon, or serve() does on a thread.
 */
class Peer {
  public:
    using Request = sim::ControlSocket::Request;

    /** Binds `path`. */
    explicit Peer(std::string path);
    ~Peer();

    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    /** Waits for a request. */
    Request receive() const;
    void reply(const Request& request, std::string_view text) const;

    /** Waits for an ATTACH, accepts it and sends events to its sender from now on. */
    void acceptMonitor();

    /** Sends an event to the monitor, and waits while its queue is full. */
    void send(std::string_view event) const;

    /** Answers every request with kReply (ATTACH with "OK") on a thread, until stop() or the end.
     */
    void serve();
    void stop();

  private:
    const std::string path_;
    sim::ControlSocket socket_;
    Request monitor_;
    std::thread server_;
};

}  // namespace corvid::benchmarks
