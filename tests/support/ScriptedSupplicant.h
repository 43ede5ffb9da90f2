#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/FakeControlSocket.h"

namespace test {

/**
 * A supplicant on one control socket that answers by a script. The script outlives a crash. A
 * command that the script does not name is answered "OK\n". Any thread, but for crash() and
 * restart().
 */
class ScriptedSupplicant {
  public:
    /** Nothing: the send fails. */
    using Reply = std::optional<std::string>;

    explicit ScriptedSupplicant(std::string path);

    /** From now on. `command` is the whole text of the command. */
    void answer(const std::string& command, const std::string& reply);
    /** Sends of such a command fail from now on, at once. */
    void fail(const std::string& command);
    /** The next ones are answered like this, in order (nothing: fails), the others as before. */
    void answerInTurn(const std::string& command, const std::vector<Reply>& replies);
    /** Every command fails from now on, or is answered again. */
    void failAll(bool fail);

    /** Sends an event to the attached: `event` begins with its name, the tag is put before it. */
    void sendEvent(const std::string& event);

    /** The commands so far, in order, from before a restart too; those with the prefix only. */
    std::vector<std::string> commands(const std::string& prefix = "") const;
    /** For a long run, in which they would add up. */
    void forgetCommands();
    /** Waits until there are at least `count` such commands. Returns false after half a minute. */
    bool waitForCommands(const std::string& prefix, size_t count) const;

    /** Its process is killed: every send fails, the file stays. */
    void crash();
    /** Makes the file anew and listens on it, after a crash() or in the place of a crash. */
    void restart();

    FakeControlSocket& socket() { return *socket_; }

  private:
    void listen_();
    Reply next_(const std::string& command);

    const std::string path_;
    mutable std::mutex mutex_;
    std::map<std::string, Reply> answers_;
    std::map<std::string, std::deque<Reply>> turns_;
    Reply reply_;  ///< to the command that is being handled; its socket's thread only
    bool failAll_ = false;
    std::vector<std::string> commands_;
    std::unique_ptr<FakeControlSocket> socket_;  // last: its thread uses the rest
};

}  // namespace test
