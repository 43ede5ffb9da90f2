#pragma once

#include <deque>
#include <functional>
#include <list>
#include <string>

#include "sim/EventLoop.h"
#include "sim/Record.h"
#include "sim/Scenario.h"

namespace sim {

/**
 * The "expect" lines under way. What a line waits for counts from the last line that did something
 * (mark()), so that an answer that came before the expectation was read isn't missed.
 */
class Expectations {
  public:
    /** `failure` is empty when the expectation came true. */
    using OnSettled = std::function<void(const std::string& failure)>;

    /** `loop` and `recorder` must outlive this. */
    Expectations(EventLoop& loop, Recorder& recorder);
    Expectations(const Expectations&) = delete;
    Expectations& operator=(const Expectations&) = delete;

    void mark() { mRecent.clear(); }
    /** Calls `onSettled` once, perhaps before it returns. */
    void add(const Expect& expect, OnSettled onSettled);
    bool empty() const { return mPending.empty(); }

  private:
    struct Pending {
        Expect expect;
        OnSettled onSettled;
        EventLoop::TimerId deadline = 0;
    };

    static bool matches(const Expect& expect, const Record& record);
    static std::string text(const Expect& expect);
    void onRecord(const Record& record);
    void settle(std::list<Pending>::iterator pending, const std::string& failure);

    EventLoop& mLoop;
    std::deque<Record> mRecent;
    std::list<Pending> mPending;
};

}  // namespace sim
