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
 * A supplicant on one control socket with scripted answers, which survive a crash. Any other
 * command is answered "OK\n". Any thread, except crash() and restart().
 */
class ScriptedSupplicant {
  public:
    /** std::nullopt: the send fails. */
    using Reply = std::optional<std::string>;

    explicit ScriptedSupplicant(std::string path);

    /** Sets the reply from now on. `command` is the complete text of the command. */
    void answer(const std::string& command, const std::string& reply);
    /** Makes sends of this command fail at once from now on. */
    void fail(const std::string& command);
    /** The next such commands get these replies, in order; later ones are answered as before. */
    void answerInTurn(const std::string& command, const std::vector<Reply>& replies);
    /** Makes every command fail from now on, or be answered again. */
    void failAll(bool fail);

    /** Sends an event to the attached monitors. `event` is without its tag. */
    void sendEvent(const std::string& event);

    /** The commands so far that begin with `prefix`, in order, also those before a restart. */
    std::vector<std::string> commands(const std::string& prefix = "") const;
    /** Frees their memory in a long run. */
    void forgetCommands();
    /** Waits for at least `count` such commands. Returns false after kPatience. */
    bool waitForCommands(const std::string& prefix, size_t count) const;

    /** Like a killed process: every send fails, but the file stays. */
    void crash();
    /** Replaces the file and listens on it, with or without a crash() before. */
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
