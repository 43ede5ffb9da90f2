#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <android-base/unique_fd.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace test {

/**
 * Plays a supplicant on one control socket: a Unix datagram socket with a thread of its own that
 * takes ATTACH and DETACH, answers commands, and sends events to whoever is attached.
 *
 * All functions may be called from any thread.
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

    /** Listens at `path`, in the place of whatever file is there. Commands are answered "OK\n". */
    explicit FakeControlSocket(std::string path);

    /** Stops listening and removes the file, unless crash() came first. */
    ~FakeControlSocket();

    FakeControlSocket(const FakeControlSocket&) = delete;
    FakeControlSocket& operator=(const FakeControlSocket&) = delete;

    /** Goes away like a killed process: nobody listens any more, the file stays. Once. */
    void crash();

    /** From now on. */
    void answerAttach(Attach how);
    void ignoreDetach();  ///< no reply
    void answerCommands(Answer answer);

    /**
     * From now on, a command for which this is true resets the connection that it came on: its
     * sender's request fails at once instead of waiting for a reply. Runs on the socket's thread.
     */
    void resetOnCommands(std::function<bool(const std::string& command)> which);

    /**
     * Sends one datagram, as it is, to every attached peer; waits while a peer's queue is full.
     * Returns how many got it. A peer that has gone, or reads nothing for 10 s, is dropped.
     */
    size_t sendEvent(std::string_view event);

    /** Makes the kernel report a reset connection, once, to every attached peer. */
    void resetConnections();

    /** Every command so far, in order; ATTACH and DETACH are not among them. */
    std::vector<std::string> commands() const;

    /** How many peers are attached now. */
    size_t attached() const;
    /** How many ATTACH and DETACH requests have come so far, whatever the answer. */
    size_t attachRequests() const;
    size_t detachRequests() const;

    /** These wait until it is so, and return false after half a minute. */
    bool waitForAttached(size_t count) const;
    bool waitForCommand(const std::string& command) const;

  private:
    struct Peer {
        sockaddr_un address;
        socklen_t length;

        bool operator==(const Peer& other) const;
    };

    void run_();
    void handle_(const std::string& request, const Peer& from);
    bool reset_(const std::string& request, const Peer& from);
    void attach_(const Peer& from);
    void reply_(const std::string& text, const Peer& to) const;
    void resetPeer_(const Peer& peer) const;
    void drop_(const Peer& peer);

    template <typename Condition>
    bool waitUntil_(Condition condition) const;

    const std::string path_;
    const sockaddr_un address_;
    const android::base::unique_fd socket_;
    const android::base::unique_fd stopEvent_;

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    Attach attachAnswer_ = Attach::Accept;
    bool ignoresDetach_ = false;
    Answer answer_;
    std::function<bool(const std::string&)> resets_;
    std::vector<Peer> peers_;
    std::vector<std::string> commands_;
    size_t attachRequests_ = 0;
    size_t detachRequests_ = 0;

    bool crashed_ = false;  ///< the test's thread only
    std::thread thread_;
};

}  // namespace test
