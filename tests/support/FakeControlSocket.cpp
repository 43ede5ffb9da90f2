#include "tests/support/FakeControlSocket.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <memory>
#include <utility>

#include "tests/support/Patience.h"

namespace test {

using sim::Reply;

namespace {

size_t nameAt(const std::string& path) { return path.rfind('/') + 1; }

}  // namespace

FakeControlSocket::FakeControlSocket(const std::string& path)
    : name_(path.substr(nameAt(path))),
      answer_([](const std::string&) { return "OK\n"; }),
      supplicant_(thread_.loop(), recorder_, radio_, path.substr(0, nameAt(path))) {
    thread_.run([this] {
        recorder_.addSink([this](const sim::Record& record) {
            if (record.kind == "attach" || record.kind == "detach") {
                const std::lock_guard<std::mutex> lock(mutex_);
                attached_ = supplicant_.monitors(name_);
                changed_.notify_all();
            }
        });
        supplicant_.setScript([this](const std::string& command) { return script_(command); });
        if (const std::string error = supplicant_.open(name_); !error.empty()) {
            std::fprintf(stderr, "%s\n", error.c_str());
            std::abort();
        }
    });
}

FakeControlSocket::~FakeControlSocket() {
    thread_.run([this] {
        if (supplicant_.isOpen(name_)) {
            supplicant_.close(name_, true);
        }
    });
}

void FakeControlSocket::crash() {
    thread_.run([this] { supplicant_.close(name_, false); });
}

void FakeControlSocket::answerAttach(Attach how) {
    const std::lock_guard<std::mutex> lock(mutex_);
    attachAnswer_ = how;
}

void FakeControlSocket::ignoreDetach() {
    const std::lock_guard<std::mutex> lock(mutex_);
    ignoresDetach_ = true;
}

void FakeControlSocket::answerCommands(Answer answer) {
    const std::lock_guard<std::mutex> lock(mutex_);
    answer_ = std::move(answer);
}

void FakeControlSocket::resetOnCommands(std::function<bool(const std::string&)> which) {
    const std::lock_guard<std::mutex> lock(mutex_);
    resets_ = std::move(which);
}

size_t FakeControlSocket::sendEvent(std::string_view event) {
    if (thread_.isCurrent()) {
        supplicant_.send(name_, std::string(event));
        return supplicant_.monitors(name_);
    }
    std::promise<size_t> taken;
    thread_.run([&] {
        supplicant_.send(name_, std::string(event), [&](size_t count) { taken.set_value(count); });
    });
    return taken.get_future().get();
}

size_t FakeControlSocket::sendEvents(const std::vector<std::string>& events) {
    std::promise<size_t> taken;
    thread_.run([&] {
        auto left = std::make_shared<size_t>(events.size());
        auto total = std::make_shared<size_t>(0);
        for (const std::string& event : events) {
            supplicant_.send(name_, event, [&taken, left, total](size_t count) {
                *total += count;
                if (--*left == 0) {
                    taken.set_value(*total);
                }
            });
        }
    });
    return taken.get_future().get();
}

void FakeControlSocket::resetConnections() {
    thread_.run([this] { supplicant_.resetMonitors(name_); });
}

std::vector<std::string> FakeControlSocket::commands() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return commands_;
}

void FakeControlSocket::forgetCommands() {
    const std::lock_guard<std::mutex> lock(mutex_);
    commands_.clear();
}

size_t FakeControlSocket::attached() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return attached_;
}

size_t FakeControlSocket::attachRequests() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return attachRequests_;
}

size_t FakeControlSocket::detachRequests() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return detachRequests_;
}

bool FakeControlSocket::waitForAttached(size_t count) const {
    return waitUntil_([&] { return attached_ == count; });
}

bool FakeControlSocket::waitForCommand(const std::string& command) const {
    return waitUntil_(
        [&] { return std::find(commands_.begin(), commands_.end(), command) != commands_.end(); });
}

template <typename Condition>
bool FakeControlSocket::waitUntil_(Condition condition) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, kPatience, condition);
}

/** Decides about a request; nothing leaves it to the simulated supplicant. */
std::optional<Reply> FakeControlSocket::script_(const std::string& command) {
    if (command != "ATTACH" && command != "DETACH") {
        return commandReply_(command);
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    if (command == "DETACH") {
        ++detachRequests_;
        return ignoresDetach_ ? std::optional<Reply>({Reply::How::None, ""}) : std::nullopt;
    }
    ++attachRequests_;
    changed_.notify_all();
    switch (attachAnswer_) {
        case Attach::Accept:
            return std::nullopt;
        case Attach::Refuse:
            return Reply{Reply::How::Send, "FAIL\n"};
        case Attach::Ignore:
            break;
    }
    return Reply{Reply::How::None, ""};
}

Reply FakeControlSocket::commandReply_(const std::string& command) {
    Answer answer;
    std::function<bool(const std::string&)> resets;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        commands_.push_back(command);
        answer = answer_;
        resets = resets_;
    }
    changed_.notify_all();
    if (resets && resets(command)) {
        return {Reply::How::Reset, ""};
    }
    const std::optional<std::string> text = answer(command);
    return text ? Reply{Reply::How::Send, *text} : Reply{Reply::How::None, ""};
}

}  // namespace test
