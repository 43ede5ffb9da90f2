#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <sys/types.h>

#include "sim/Child.h"
#include "sim/DeviceFiles.h"
#include "sim/EventLoop.h"
#include "sim/Record.h"
#include "sim/Verbs.h"

namespace sim {

/** Where the programs are that the simulator runs. An empty path: there is none. */
struct ProgramPaths {
    std::string daemon;
    std::string stats;
    std::string client;    ///< corvid-wifi
    std::string redirect;  ///< libnl80211-redirect.so, loaded into the daemon
    std::string pace;      ///< libcorvid-sim-speed.so, loaded into the daemon if speed is not 1
    double speed = 1;      ///< How many of the daemon's seconds pass in one.
    std::string logTags = "*:V";
};

/**
 * The programs that run beside the simulator: statistics service, daemon, and clients. What they
 * print becomes records. Those that still run are killed at the end.
 */
class Programs {
  public:
    /** `files` is read when the daemon has ended, so that its last atoms come before its end. */
    Programs(EventLoop& loop, Recorder& recorder, DeviceFiles& files, ProgramPaths paths);
    ~Programs();
    Programs(const Programs&) = delete;
    Programs& operator=(const Programs&) = delete;

    /** Done when it is ready. */
    void startStats(Done done);
    /** Done when it has ended. */
    void endStats(int signal, Done done);

    void startDaemon(const Done& done);
    /** For SIGTERM and SIGKILL, done when it has ended. */
    void signalDaemon(int signal, Done done);
    bool daemonRuns() const { return daemon_ != nullptr; }
    pid_t daemonPid() const { return daemon_->pid(); }
    /** Called when the daemon ends though no line asked for it. */
    void onDaemonLost(std::function<void(const std::string&)> callback) {
        onDaemonLost_ = std::move(callback);
    }

    void startMonitor(const Done& done);
    /** Done when it has ended. */
    void stopMonitor(Done done);
    /** Returns why it could not be sent, or an empty text. */
    std::string signalMonitor(int signal) const;
    /** Runs corvid-wifi; done when it has ended. */
    void runClient(const std::vector<std::string>& arguments, const Done& done);

  private:
    struct RunningCall;

    void onDaemonLine(bool isError, const std::string& line);

    EventLoop& loop_;
    Recorder& recorder_;
    DeviceFiles& files_;
    const ProgramPaths paths_;

    std::unique_ptr<Child> stats_;
    Done statsReady_;
    std::unique_ptr<Child> daemon_;
    bool daemonEndWanted_ = false;
    /** Of the daemon's last log line: a message with newlines goes on without a head. */
    std::string logLevel_;
    std::string logTag_;
    std::function<void(const std::string&)> onDaemonLost_;
    std::unique_ptr<Child> monitor_;
    /** Lines that wait for the end of a program. */
    std::vector<Done> onStatsEnd_;
    std::vector<Done> onDaemonEnd_;
    std::vector<Done> onMonitorEnd_;
    std::vector<std::unique_ptr<RunningCall>> calls_;
};

}  // namespace sim
