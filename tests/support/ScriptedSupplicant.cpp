#include "tests/support/ScriptedSupplicant.h"

#include <utility>

#include "tests/support/WaitUntil.h"

namespace test {

ScriptedSupplicant::ScriptedSupplicant(std::string path) : path_(std::move(path)) { listen_(); }

void ScriptedSupplicant::answer(const std::string& command, const std::string& reply) {
    const std::lock_guard<std::mutex> lock(mutex_);
    answers_[command] = reply;
}

void ScriptedSupplicant::fail(const std::string& command) {
    const std::lock_guard<std::mutex> lock(mutex_);
    answers_[command] = std::nullopt;
}

void ScriptedSupplicant::answerInTurn(const std::string& command,
                                      const std::vector<Reply>& replies) {
    const std::lock_guard<std::mutex> lock(mutex_);
    turns_[command].insert(turns_[command].end(), replies.begin(), replies.end());
}

void ScriptedSupplicant::failAll(bool fail) {
    const std::lock_guard<std::mutex> lock(mutex_);
    failAll_ = fail;
}

void ScriptedSupplicant::sendEvent(const std::string& event) { socket_->sendEvent("<3>" + event); }

std::vector<std::string> ScriptedSupplicant::commands(const std::string& prefix) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> found;
    for (const std::string& command : commands_) {
        if (command.compare(0, prefix.size(), prefix) == 0) {
            found.push_back(command);
        }
    }
    return found;
}

void ScriptedSupplicant::forgetCommands() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        commands_.clear();
    }
    socket_->forgetCommands();
}

bool ScriptedSupplicant::waitForCommands(const std::string& prefix, size_t count) const {
    return waitUntil([&] { return commands(prefix).size() >= count; });
}

void ScriptedSupplicant::crash() { socket_->crash(); }

void ScriptedSupplicant::restart() {
    socket_->crash();
    listen_();
}

void ScriptedSupplicant::listen_() {
    socket_ = std::make_unique<FakeControlSocket>(path_);
    // Asked first, for every command.
    socket_->resetOnCommands([this](const std::string& command) {
        reply_ = next_(command);
        return !reply_.has_value();
    });
    socket_->answerCommands([this](const std::string&) { return reply_; });
}

ScriptedSupplicant::Reply ScriptedSupplicant::next_(const std::string& command) {
    const std::lock_guard<std::mutex> lock(mutex_);
    commands_.push_back(command);
    if (failAll_) {
        return std::nullopt;
    }
    if (const auto turn = turns_.find(command); turn != turns_.end() && !turn->second.empty()) {
        Reply reply = std::move(turn->second.front());
        turn->second.pop_front();
        return reply;
    }
    const auto found = answers_.find(command);
    return found != answers_.end() ? found->second : "OK\n";
}

}  // namespace test
