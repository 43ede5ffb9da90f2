#include "sim/ScenarioRun.h"

#include <algorithm>
#include <utility>

namespace sim {

namespace {

/** Does a line of the preparation begin with `verb`? */
bool prepares(const Scenario& scenario, std::string_view verb) {
    return std::any_of(scenario.steps.begin(), scenario.steps.end(), [verb](const Step& step) {
        return step.prepare && step.verb->name == verb;
    });
}

}  // namespace

ScenarioRun::ScenarioRun(EventLoop& loop, Recorder& recorder, Simulation& simulation,
                         Scenario scenario, const Options& options, std::function<void(bool)> onEnd)
    : loop_(loop),
      recorder_(recorder),
      simulation_(simulation),
      scenario_(std::move(scenario)),
      options_(options),
      onEnd_(std::move(onEnd)) {
    simulation_.programs.onDaemonLost(
        [this](const std::string& text) { fail(text + " on its own"); });
}

void ScenarioRun::start() { prepareFrom(0); }

void ScenarioRun::fail(const std::string& message) {
    failed_ = true;
    recorder_.add(Record("error", message));
}

void ScenarioRun::prepareFrom(size_t index) {
    if (index == scenario_.steps.size() || !scenario_.steps[index].prepare) {
        next_ = index;
        startStats();
        return;
    }
    const Step& step = scenario_.steps[index];
    simulation_.perform(step, [this, &step, index](const std::string& error) {
        if (!error.empty()) {
            fail(scenario_.name + ":" + std::to_string(step.line) + ": " + error);
            end();
            return;
        }
        prepareFrom(index + 1);
    });
}

void ScenarioRun::startStats() {
    if (!options_.startStats || prepares(scenario_, "stats")) {
        startDaemon();
        return;
    }
    simulation_.perform(*parseLine("stats start", 0), [this](const std::string& error) {
        if (!error.empty()) {
            // Worth playing all the same: the daemon lives without it.
            recorder_.add(Record("error", "no statistics service: " + error));
        }
        startDaemon();
    });
}

void ScenarioRun::startDaemon() {
    // Time 0 is the daemon's start.
    recorder_.restartClock();
    if (!options_.startDaemon || prepares(scenario_, "daemon")) {
        startTimed();
        return;
    }
    simulation_.perform(*parseLine("daemon start", 0), [this](const std::string& error) {
        if (!error.empty()) {
            fail(error);
            end();
            return;
        }
        startTimed();
    });
}

void ScenarioRun::startTimed() {
    start_ = EventLoop::Clock::now();
    left_ = scenario_.steps.size() - next_;
    if (left_ == 0) {
        onAllDone();
        return;
    }
    // In a turn of its own, as every later line.
    loop_.after({}, [this] { playDue(); });
}

void ScenarioRun::playDue() {
    const auto dueAt = [this] { return start_ + simulation_.scaled(scenario_.steps[next_].at); };
    while (next_ < scenario_.steps.size() && dueAt() <= EventLoop::Clock::now()) {
        const Step& step = scenario_.steps[next_++];
        simulation_.perform(step,
                            [this, &step](const std::string& error) { onStepDone(step, error); });
    }
    if (next_ < scenario_.steps.size()) {
        loop_.at(dueAt(), [this] { playDue(); });
    }
}

void ScenarioRun::onStepDone(const Step& step, const std::string& error) {
    if (!error.empty()) {
        fail(scenario_.name + ":" + std::to_string(step.line) + ": " + error);
    }
    if (--left_ == 0) {
        onAllDone();
    }
}

void ScenarioRun::onAllDone() {
    if (!options_.dumpAtEnd || !simulation_.programs.daemonRuns()) {
        end();
        return;
    }
    simulation_.perform(*parseLine("dump", 0), [this](const std::string& error) {
        if (!error.empty()) {
            fail("no dump: " + error);
        }
        end();
    });
}

void ScenarioRun::end() {
    if (!std::exchange(ended_, true)) {
        simulation_.programs.onDaemonLost(nullptr);
        onEnd_(failed_);
    }
}

}  // namespace sim
