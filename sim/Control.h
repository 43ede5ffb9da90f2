#pragma once

#include <functional>
#include <string>

#include "sim/EventLoop.h"
#include "sim/Record.h"
#include "sim/Simulation.h"

namespace sim {

/**
 * Plays lines read from a descriptor, each at once, and answers each with one JSON line of kind
 * "ok" or "error" that has the line's number. The next line is read after that answer, so the
 * records of what a line did come before its answer.
 */
class Control {
  public:
    /** `onEnd` is called at the end of the input or at the line "end". */
    Control(EventLoop& loop, Recorder& recorder, Simulation& simulation, int input,
            std::function<void()> onEnd);
    ~Control();
    Control(const Control&) = delete;
    Control& operator=(const Control&) = delete;

  private:
    void onReadable();
    void playLines();
    void answer(int line, const std::string& error);

    EventLoop& loop_;
    Recorder& recorder_;
    Simulation& simulation_;
    const int input_;
    const std::function<void()> onEnd_;
    std::string unread_;
    int line_ = 0;
    bool busy_ = false;
    bool inputEnded_ = false;
};

}  // namespace sim
