#pragma once

#include <functional>
#include <string>

#include "sim/EventLoop.h"
#include "sim/Player.h"
#include "sim/Record.h"
#include "sim/Scenario.h"

namespace sim {

/**
 * Plays a scenario from its first line to its last: the preparation one line after the other, then
 * the statistics service and the daemon, then the timed lines at their times, the start of the
 * daemon being 0, and the daemon's dump at the end.
 */
class ScenarioRun {
  public:
    struct Options {
        bool startStats = true;   ///< Unless the preparation does it.
        bool startDaemon = true;  ///< Unless the preparation does it.
        bool dumpAtEnd = true;    ///< When the daemon runs then.
        double speed = 1;         ///< How many scenario seconds pass in a second.
    };

    /** `onEnd(failed)`: a line failed, an expectation didn't come true, or the daemon ended. */
    ScenarioRun(EventLoop& loop, Recorder& recorder, Player& player, Scenario scenario,
                const Options& options, std::function<void(bool failed)> onEnd);
    ScenarioRun(const ScenarioRun&) = delete;
    ScenarioRun& operator=(const ScenarioRun&) = delete;

    void start();

  private:
    void prepareFrom(size_t index);
    void startStats();
    void startDaemon();
    void playTimed();
    void onStepDone(const Step& step, const std::string& error);
    void onAllDone();
    void end();
    void fail(const std::string& message);

    EventLoop& mLoop;
    Recorder& mRecorder;
    Player& mPlayer;
    Scenario mScenario;
    const Options mOptions;
    const std::function<void(bool)> mOnEnd;
    size_t mLeft = 0;
    bool mFailed = false;
    bool mEnded = false;
};

/** Divides every time of the scenario by `speed`. */
void scaleTimes(Scenario& scenario, double speed);

}  // namespace sim
