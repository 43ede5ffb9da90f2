#include "sim/ScenarioRun.h"

#include <algorithm>
#include <utility>

namespace sim {

namespace {

/** How late a line may be because the call before it has no answer. */
constexpr std::chrono::seconds kLatestBehindACall{2};

/** How long a busy machine may take to start the daemon, beyond the time of the first line. */
constexpr std::chrono::seconds kLatestStart{3};
constexpr std::chrono::milliseconds kBetweenLooks{20};

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
    failures_.push_back(message);
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
    loop_.at(start_ + simulation_.scaled(scenario_.steps[next_].at), [this] { playFirst(); });
}

bool ScenarioRun::daemonIsAttached() const {
    const std::vector<std::string> sockets = simulation_.supplicant.names();
    return !simulation_.programs.daemonRuns() ||
           std::all_of(sockets.begin(), sockets.end(), [this](const std::string& socket) {
               return simulation_.supplicant.monitors(socket) > 0;
           });
}

void ScenarioRun::playFirst() {
    const auto due = start_ + simulation_.scaled(scenario_.steps[next_].at);
    const auto late = EventLoop::Clock::now() - due;
    if (!daemonIsAttached() && late < kLatestStart) {
        loop_.after(kBetweenLooks, [this] { playFirst(); });
        return;
    }
    if (late > kBetweenLooks) {
        start_ += late;  // and so is everything that follows
    }
    playDue();
}

EventLoop::Clock::time_point ScenarioRun::endOfWait() const {
    if (waitedFor_ == nullptr) {
        return EventLoop::Clock::time_point::min();
    }
    const auto later = std::find_if(scenario_.steps.begin() + static_cast<std::ptrdiff_t>(next_),
                                    scenario_.steps.end(),
                                    [this](const Step& step) { return step.at > waitedFor_->at; });
    return later == scenario_.steps.end()
               ? EventLoop::Clock::time_point::max()
               : start_ + simulation_.scaled(later->at) + kLatestBehindACall;
}

void ScenarioRun::playDue() {
    const auto& steps = scenario_.steps;
    const auto dueAt = [this](const Step& step) { return start_ + simulation_.scaled(step.at); };
    while (next_ < steps.size() && dueAt(steps[next_]) <= EventLoop::Clock::now()) {
        if (const auto end = endOfWait(); EventLoop::Clock::now() < end) {
            if (end != EventLoop::Clock::time_point::max()) {
                loop_.at(end, [this] { playDue(); });
            }
            return;
        }
        waitedFor_ = nullptr;
        const Step& step = steps[next_++];
        if (step.verb->waitedFor) {
            waitedFor_ = &step;
        }
        simulation_.perform(step,
                            [this, &step](const std::string& error) { onStepDone(step, error); });
    }
    if (next_ < steps.size()) {
        loop_.at(dueAt(steps[next_]), [this] { playDue(); });
    }
}

void ScenarioRun::onStepDone(const Step& step, const std::string& error) {
    if (step.verb->effect == Verb::Effect::Expects) {
        ++expected_;
        met_ += error.empty() ? 1 : 0;
    }
    if (!error.empty()) {
        fail(scenario_.name + ":" + std::to_string(step.line) + ": " + error);
    }
    if (--left_ == 0) {
        onAllDone();
    } else if (waitedFor_ == &step) {
        waitedFor_ = nullptr;
        // Not from here: perform() may still be under way.
        loop_.after({}, [this] { playDue(); });
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
        recordResult();
        onEnd_(!failures_.empty());
    }
}

void ScenarioRun::recordResult() {
    std::string text = expected_ == 0
                           ? "played to the end; nothing was expected"
                           : std::to_string(met_) +
                                 (met_ == expected_ ? "" : " of " + std::to_string(expected_)) +
                                 (expected_ == 1 ? " expectation met" : " expectations met");
    if (!failures_.empty()) {
        text += "; what failed:";
    }
    for (const std::string& failure : failures_) {
        text += "\n  " + failure;
    }
    recorder_.add(Record("result", text).with("met", met_).with("expected", expected_));
}

}  // namespace sim
