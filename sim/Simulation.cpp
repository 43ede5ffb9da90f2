#include "sim/Simulation.h"

#include <stdexcept>
#include <utility>

#include <nlohmann/json.hpp>

namespace sim {

Simulation::Simulation(EventLoop& eventLoop, Recorder& records, ProgramPaths paths)
    : loop(eventLoop),
      recorder(records),
      expectations(loop, recorder),
      files(loop, recorder),
      supplicant(loop, recorder, radio, DeviceFiles::socketFolder()),
      kernel(loop, recorder, radio, DeviceFiles::nl80211Path()),
      headset(loop, supplicant, radio),
      programs(loop, recorder, files, std::move(paths)) {
    if (const std::string error = kernel.listen(); !error.empty()) {
        throw std::runtime_error(error);
    }
}

void Simulation::perform(const Step& step, Done done) {
    if (step.verb->effect == Verb::Effect::Changes) {
        expectations.mark();
    }
    if (step.verb->effect != Verb::Effect::Expects) {
        recorder.add(Record("line", step.text).with("line", step.line));
    }
    for (const std::string& warning : step.warnings) {
        recorder.add(Record("warning", warning).with("line", step.line));
    }
    step.action(*this, std::move(done));
}

void Simulation::recordState() {
    Record record("state", programs.daemonRuns() ? "the daemon runs" : "the daemon does not run");
    Json monitors = Json::object();
    for (const std::string& name : supplicant.names()) {
        monitors[name] = supplicant.monitors(name);
    }
    record.withJson("monitors", monitors);
    if (radio.sta) {
        record.with("frequency", radio.sta->frequencyMHz);
        record.with("rssi", radio.signal.dbm(EventLoop::Clock::now()));
    }
    if (radio.group) {
        record.with("group", radio.group->ifname);
        record.with("groupFrequency", radio.group->frequencyMHz);
    }
    if (programs.daemonRuns()) {
        record.with("daemonPid", programs.daemonPid());
    }
    recorder.add(std::move(record));
}

}  // namespace sim
