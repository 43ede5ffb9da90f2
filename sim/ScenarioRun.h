#pragma once

#include <functional>
#include <string>
#include <vector>

#include "sim/EventLoop.h"
#include "sim/Record.h"
#include "sim/Scenario.h"
#include "sim/Simulation.h"

namespace sim {

/**
 * Plays a scenario from its first line to its last: the preparation one line after the other, then
 * the statistics service and the daemon, then the timed lines at their times, the start of the
 * daemon being 0, and the daemon's dump at the end. Behind a call, a line waits for its answer,
 * though not longer than until the next line with a later time is two seconds late.
 */
class ScenarioRun {
  public:
    struct Options {
        bool startStats = true;   ///< Unless the preparation does it.
        bool startDaemon = true;  ///< Unless the preparation does it.
        bool dumpAtEnd = true;    ///< When the daemon runs then.
    };

    /**
     * `onEnd(failed)`: a line failed, an expectation didn't come true, or the daemon ended. A
     * record of the kind "result" before it says which.
     */
    ScenarioRun(EventLoop& loop, Recorder& recorder, Simulation& simulation, Scenario scenario,
                const Options& options, std::function<void(bool failed)> onEnd);
    ScenarioRun(const ScenarioRun&) = delete;
    ScenarioRun& operator=(const ScenarioRun&) = delete;

    void start();

  private:
    void prepareFrom(size_t index);
    void startStats();
    void startDaemon();
    void startTimed();
    /** Plays the first timed line, once the daemon knows the supplicant that is there already. */
    void playFirst();
    bool daemonIsAttached() const;
    void playDue();
    /** Until when the lines wait for the call before them; the past if they need not. */
    EventLoop::Clock::time_point endOfWait() const;
    void onStepDone(const Step& step, const std::string& error);
    void onAllDone();
    void end();
    void fail(const std::string& message);
    void recordResult();

    EventLoop& loop_;
    Recorder& recorder_;
    Simulation& simulation_;
    const Scenario scenario_;
    const Options options_;
    const std::function<void(bool)> onEnd_;
    EventLoop::Clock::time_point start_;
    size_t next_ = 0;  ///< The timed line that is played next.
    size_t left_ = 0;  ///< Timed lines that are not done.
    /** The call whose end the lines below it wait for; null: they need not. */
    const Step* waitedFor_ = nullptr;
    int expected_ = 0;  ///< Expectations that are settled.
    int met_ = 0;
    std::vector<std::string> failures_;
    bool ended_ = false;
};

}  // namespace sim
