#include "sim/Control.h"

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace sim {

Control::Control(EventLoop& loop, Recorder& recorder, Simulation& simulation, int input,
                 std::function<void()> onEnd)
    : loop_(loop),
      recorder_(recorder),
      simulation_(simulation),
      input_(input),
      onEnd_(std::move(onEnd)) {
    loop_.watch(input_, [this] { onReadable(); });
}

Control::~Control() { loop_.forget(input_); }

void Control::onReadable() {
    char buffer[4096];
    const ssize_t length = read(input_, buffer, sizeof(buffer));
    if (length > 0) {
        unread_.append(buffer, static_cast<size_t>(length));
    } else if (length == 0 || errno != EINTR) {
        loop_.forget(input_);
        inputEnded_ = true;
        if (!unread_.empty() && unread_.back() != '\n') {
            unread_ += '\n';
        }
    }
    playLines();
}

void Control::playLines() {
    size_t newline = 0;
    while (!busy_ && (newline = unread_.find('\n')) != std::string::npos) {
        const std::string text = unread_.substr(0, newline);
        unread_.erase(0, newline + 1);
        const int line = ++line_;
        try {
            const std::optional<Step> step = parseLine(text, line);
            if (!step) {
                answer(line, "");
                continue;
            }
            if (step->verb->name == "end") {
                answer(line, "");
                onEnd_();
                return;
            }
            busy_ = true;
            simulation_.perform(*step, [this, line](const std::string& error) {
                answer(line, error);
                // Not from here: perform() may still be under way.
                loop_.after({}, [this] {
                    busy_ = false;
                    playLines();
                });
            });
        } catch (const ScenarioError& error) {
            answer(line, error.what());
        }
    }
    if (inputEnded_ && !busy_) {
        onEnd_();
    }
}

void Control::answer(int line, const std::string& error) {
    recorder_.add(Record(error.empty() ? "ok" : "error", error).with("line", line));
}

}  // namespace sim
