#pragma once

#include <functional>
#include <string>

#include "sim/DeviceFiles.h"
#include "sim/EventLoop.h"
#include "sim/Expectations.h"
#include "sim/FakeNl80211Kernel.h"
#include "sim/FakeSupplicant.h"
#include "sim/Headset.h"
#include "sim/Programs.h"
#include "sim/RadioState.h"
#include "sim/Record.h"
#include "sim/Scenario.h"

namespace sim {

/**
 * Everything that a scenario's line can act on: the headset's files, its supplicant and kernel, and
 * the programs beside them. One thread.
 */
struct Simulation {
    /** Listens for nl80211. Throws std::runtime_error when the headset's files can't be made. */
    Simulation(EventLoop& eventLoop, Recorder& records, ProgramPaths paths);
    Simulation(const Simulation&) = delete;
    Simulation& operator=(const Simulation&) = delete;

    /**
     * Does one line. `done` is called once, perhaps before perform() returns: for "expect" when it
     * is settled, for programs when they are ready (statistics), started (daemon, monitor) or ended
     * (call, dump, stop, kill), else at once.
     */
    void perform(const Step& step, Done done);

    /** Records the sockets with their monitors, the link and the daemon's process id. */
    void recordState();

    /** A scenario's time as it is played. */
    Duration scaled(Duration time) const {
        return std::chrono::duration_cast<Duration>(time / speed);
    }

    EventLoop& loop;
    Recorder& recorder;
    double speed = 1;           ///< How many scenario seconds pass in a second.
    Expectations expectations;  // sees what the others record until they are gone
    DeviceFiles files;
    RadioState radio;
    FakeSupplicant supplicant;
    FakeNl80211Kernel kernel;
    Headset headset;
    Programs programs;
};

}  // namespace sim
