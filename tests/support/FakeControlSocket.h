#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/FakeSupplicant.h"
#include "sim/LoopThread.h"
#include "sim/RadioState.h"
#include "sim/Record.h"

namespace test {

/**
 * A simulated supplicant with one control socket, on a thread of its own. The test sets its
 * answers; it records the commands. Any thread.
 */
class FakeControlSocket {
  public:
    enum class Attach {
        Accept,  ///< "OK", and events from then on
        Refuse,  ///< "FAIL"
        Ignore,  ///< no reply
    };

    /** The reply to a command, or nothing to leave it unanswered. Runs on the socket's thread. */
    using Answer = std::function<std::optional<std::string>(const std::string& command)>;

    /** Listens at `path`, replacing a file there. Commands are answered "OK\n". */
    explicit FakeControlSocket(const std::string& path);

    /** Stops listening and removes the file, unless crash() came first. */
    ~FakeControlSocket();

    FakeControlSocket(const FakeControlSocket&) = delete;
    FakeControlSocket& operator=(const FakeControlSocket&) = delete;

    /** Like a killed process: nobody listens any more, but the file stays. Once. */
    void crash();

    // These apply from now on.
    void answerAttach(Attach how);
    void ignoreDetach();  ///< no reply
    void answerCommands(Answer answer);

    /**
     * A command for which `which` returns true resets its connection: the sender's request fails at
     * once instead of waiting for a reply. `which` runs on the socket's thread.
     */
    void resetOnCommands(std::function<bool(const std::string& command)> which);

    /**
     * Sends one datagram, as it is, to every attached peer, and waits until each has taken it
     * (not on the socket's thread). Returns how many did. A peer that has gone, or reads nothing
     * for 5 s, is dropped.
     */
    size_t sendEvent(std::string_view event);

    /**
     * The same for several datagrams, with one change of threads (not on the socket's thread).
     * Returns how many were taken in all. Not more than fit into a peer's queue (10 by default).
     */
    size_t sendEvents(const std::vector<std::string>& events);

    /** Makes the kernel report a reset connection, once, to every attached peer. */
    void resetConnections();

    /** Every command so far, in order; ATTACH and DETACH are not among them. */
    std::vector<std::string> commands() const;
    /** Frees their memory in a long run. */
    void forgetCommands();

    /** How many peers are attached now. */
    size_t attached() const;
    /** How many ATTACH and DETACH requests have come so far, whatever the answer. */
    size_t attachRequests() const;
    size_t detachRequests() const;

    // These wait, at most for kPatience, and return whether it came true.
    bool waitForAttached(size_t count) const;
    bool waitForCommand(const std::string& command) const;

  private:
    std::optional<sim::Reply> script_(const std::string& command);
    sim::Reply commandReply_(const std::string& command);

    template <typename Condition>
    bool waitUntil_(Condition condition) const;

    const std::string name_;

    mutable std::mutex mutex_;  // for everything down to the peers
    mutable std::condition_variable changed_;
    Attach attachAnswer_ = Attach::Accept;
    bool ignoresDetach_ = false;
    Answer answer_;
    std::function<bool(const std::string&)> resets_;
    std::vector<std::string> commands_;
    size_t attached_ = 0;
    size_t attachRequests_ = 0;
    size_t detachRequests_ = 0;

    sim::LoopThread thread_;  // the rest is for this thread only
    const sim::RadioState radio_;
    sim::Recorder recorder_;
    sim::FakeSupplicant supplicant_;
};

}  // namespace test
