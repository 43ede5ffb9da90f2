#pragma once

#include <deque>
#include <functional>
#include <list>
#include <string>

#include "sim/EventLoop.h"
#include "sim/Record.h"

namespace sim {

/** A record that must come, or must not. */
struct Expectation {
    std::string kind;
    std::string text;  ///< Part of the record's socket and text, with a blank between them.
    bool unwanted = false;
    Duration within{0};
};

/**
 * The pending "expect" lines. A record matches if it came after mark(), the last line that did
 * something, so an answer that came before the "expect" line was read is not missed.
 */
class Expectations {
  public:
    /** `failure` is empty if the expectation was met. */
    using OnSettled = std::function<void(const std::string& failure)>;

    /** `loop` and `recorder` must outlive this. */
    Expectations(EventLoop& loop, Recorder& recorder);
    Expectations(const Expectations&) = delete;
    Expectations& operator=(const Expectations&) = delete;

    void mark() { recent_.clear(); }
    /** Calls `onSettled` once, perhaps before it returns. */
    void add(const Expectation& expectation, OnSettled onSettled);
    bool empty() const { return pending_.empty(); }

  private:
    struct Pending {
        Expectation expectation;
        OnSettled onSettled;
        EventLoop::TimerId deadline = 0;
    };

    static bool matches(const Expectation& expectation, const Record& record);
    static std::string text(const Expectation& expectation);
    void onRecord(const Record& record);
    void settle(std::list<Pending>::iterator pending, const std::string& failure);

    EventLoop& loop_;
    std::deque<Record> recent_;
    std::list<Pending> pending_;
};

}  // namespace sim
