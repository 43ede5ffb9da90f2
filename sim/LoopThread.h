#pragma once

#include <functional>
#include <thread>

#include "sim/EventLoop.h"

namespace sim {

/** An event loop on a thread of its own, for peers that other threads drive. */
class LoopThread {
  public:
    LoopThread();
    /** Ends the thread; tasks that were not begun do not run. */
    ~LoopThread();
    LoopThread(const LoopThread&) = delete;
    LoopThread& operator=(const LoopThread&) = delete;

    /** For use on its thread, and to be handed to what run() makes there. */
    EventLoop& loop() { return loop_; }
    /** Runs `task` on the thread and waits until it has run; at once on the thread itself. */
    void run(const std::function<void()>& task);
    bool isCurrent() const { return std::this_thread::get_id() == thread_.get_id(); }

  private:
    EventLoop loop_;
    std::thread thread_;
};

}  // namespace sim
