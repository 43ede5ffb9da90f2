#include "sim/Control.h"

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace sim {

Control::Control(EventLoop& loop, Recorder& recorder, Player& player, int input,
                 std::function<void()> onEnd)
    : mLoop(loop), mRecorder(recorder), mPlayer(player), mInput(input), mOnEnd(std::move(onEnd)) {
    mLoop.watch(mInput, [this] { onReadable(); });
}

Control::~Control() { mLoop.forget(mInput); }

void Control::onReadable() {
    char buffer[4096];
    const ssize_t length = read(mInput, buffer, sizeof(buffer));
    if (length > 0) {
        mUnread.append(buffer, static_cast<size_t>(length));
    } else if (length == 0 || errno != EINTR) {
        mLoop.forget(mInput);
        mInputEnded = true;
        if (!mUnread.empty() && mUnread.back() != '\n') {
            mUnread += '\n';
        }
    }
    playLines();
}

void Control::playLines() {
    size_t newline = 0;
    while (!mBusy && (newline = mUnread.find('\n')) != std::string::npos) {
        const std::string text = mUnread.substr(0, newline);
        mUnread.erase(0, newline + 1);
        const int line = ++mLine;
        try {
            const std::optional<Step> step = parseLine(text, line);
            if (!step) {
                answer(line, "");
                continue;
            }
            if (std::holds_alternative<End>(step->action)) {
                answer(line, "");
                mOnEnd();
                return;
            }
            mBusy = true;
            mPlayer.perform(*step, [this, line](const std::string& error) {
                answer(line, error);
                // Not from here: perform() may still be under way.
                mLoop.after({}, [this] {
                    mBusy = false;
                    playLines();
                });
            });
        } catch (const ScenarioError& error) {
            answer(line, error.what());
        }
    }
    if (mInputEnded && !mBusy) {
        mOnEnd();
    }
}

void Control::answer(int line, const std::string& error) {
    mRecorder.add(Record(error.empty() ? "ok" : "error", error).with("line", line));
}

}  // namespace sim
