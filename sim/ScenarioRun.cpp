#include "sim/ScenarioRun.h"

#include <algorithm>
#include <type_traits>
#include <utility>
#include <variant>

namespace sim {

namespace {

template <typename T>
bool prepares(const Scenario& scenario) {
    return std::any_of(scenario.steps.begin(), scenario.steps.end(), [](const Step& step) {
        return step.prepare && std::holds_alternative<T>(step.action);
    });
}

Step ownStep(const char* text, Action action) {
    Step step;
    step.text = text;
    step.action = std::move(action);
    return step;
}

}  // namespace

void scaleTimes(Scenario& scenario, double speed) {
    const auto scale = [speed](Duration& time) {
        time = std::chrono::duration_cast<Duration>(time / speed);
    };
    for (Step& step : scenario.steps) {
        scale(step.at);
        std::visit(
            [&scale](auto& action) {
                using T = std::decay_t<decltype(action)>;
                if constexpr (std::is_same_v<T, SetRssi>) {
                    scale(action.over);
                } else if constexpr (std::is_same_v<T, P2pStart>) {
                    scale(action.upAfter);
                } else if constexpr (std::is_same_v<T, P2pStop>) {
                    scale(action.downAfter);
                } else if constexpr (std::is_same_v<T, ReplyRule>) {
                    scale(action.after);
                } else if constexpr (std::is_same_v<T, Expect>) {
                    scale(action.within);
                }
            },
            step.action);
    }
}

ScenarioRun::ScenarioRun(EventLoop& loop, Recorder& recorder, Player& player, Scenario scenario,
                         const Options& options, std::function<void(bool)> onEnd)
    : mLoop(loop),
      mRecorder(recorder),
      mPlayer(player),
      mScenario(std::move(scenario)),
      mOptions(options),
      mOnEnd(std::move(onEnd)) {
    scaleTimes(mScenario, mOptions.speed);
    mPlayer.onDaemonLost([this](const std::string& text) { fail(text + " on its own"); });
}

void ScenarioRun::start() { prepareFrom(0); }

void ScenarioRun::fail(const std::string& message) {
    mFailed = true;
    mRecorder.add(Record("error", message));
}

void ScenarioRun::prepareFrom(size_t index) {
    if (index == mScenario.steps.size() || !mScenario.steps[index].prepare) {
        startStats();
        return;
    }
    const Step& step = mScenario.steps[index];
    mPlayer.perform(step, [this, &step, index](const std::string& error) {
        if (!error.empty()) {
            fail(mScenario.name + ":" + std::to_string(step.line) + ": " + error);
            end();
            return;
        }
        prepareFrom(index + 1);
    });
}

void ScenarioRun::startStats() {
    if (!mOptions.startStats || prepares<StatsControl>(mScenario)) {
        startDaemon();
        return;
    }
    using What = StatsControl::What;
    mPlayer.perform(ownStep("stats start", StatsControl{What::Start}),
                    [this](const std::string& error) {
                        if (!error.empty()) {
                            // Worth playing all the same: the daemon lives without it.
                            mRecorder.add(Record("error", "no statistics service: " + error));
                        }
                        startDaemon();
                    });
}

void ScenarioRun::startDaemon() {
    // Time 0 is the daemon's start.
    mRecorder.restartClock();
    if (!mOptions.startDaemon || prepares<DaemonControl>(mScenario)) {
        playTimed();
        return;
    }
    using What = DaemonControl::What;
    mPlayer.perform(ownStep("daemon start", DaemonControl{What::Start, 0}),
                    [this](const std::string& error) {
                        if (!error.empty()) {
                            fail(error);
                            end();
                            return;
                        }
                        playTimed();
                    });
}

void ScenarioRun::playTimed() {
    const EventLoop::Clock::time_point start = EventLoop::Clock::now();
    for (const Step& step : mScenario.steps) {
        if (step.prepare) {
            continue;
        }
        ++mLeft;
        mLoop.at(start + step.at, [this, &step] {
            mPlayer.perform(step,
                            [this, &step](const std::string& error) { onStepDone(step, error); });
        });
    }
    if (mLeft == 0) {
        onAllDone();
    }
}

void ScenarioRun::onStepDone(const Step& step, const std::string& error) {
    if (!error.empty()) {
        fail(mScenario.name + ":" + std::to_string(step.line) + ": " + error);
    }
    if (--mLeft == 0) {
        onAllDone();
    }
}

void ScenarioRun::onAllDone() {
    if (!mOptions.dumpAtEnd || !mPlayer.daemonRuns()) {
        end();
        return;
    }
    mPlayer.perform(ownStep("dump", Call{{"dump"}}), [this](const std::string& error) {
        if (!error.empty()) {
            fail("no dump: " + error);
        }
        end();
    });
}

void ScenarioRun::end() {
    if (!std::exchange(mEnded, true)) {
        mPlayer.onDaemonLost(nullptr);
        mOnEnd(mFailed);
    }
}

}  // namespace sim
