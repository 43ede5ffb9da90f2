#pragma once

#include <functional>
#include <string>

#include "sim/EventLoop.h"
#include "sim/Player.h"
#include "sim/Record.h"

namespace sim {

/**
 * Plays lines that come on a descriptor, each at once, and answers each with one JSON line of kind
 * "ok" or "error" that carries the line's number. A line is read only after the answer to the one
 * before, so what a line did stands before its answer.
 */
class Control {
  public:
    /** `onEnd` is called at the end of the input or at the line "end". */
    Control(EventLoop& loop, Recorder& recorder, Player& player, int input,
            std::function<void()> onEnd);
    ~Control();
    Control(const Control&) = delete;
    Control& operator=(const Control&) = delete;

  private:
    void onReadable();
    void playLines();
    void answer(int line, const std::string& error);

    EventLoop& mLoop;
    Recorder& mRecorder;
    Player& mPlayer;
    const int mInput;
    const std::function<void()> mOnEnd;
    std::string mUnread;
    int mLine = 0;
    bool mBusy = false;
    bool mInputEnded = false;
};

}  // namespace sim
