#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "sim/Child.h"
#include "sim/EventLoop.h"
#include "sim/Expectations.h"
#include "sim/FakeNl80211Kernel.h"
#include "sim/FakeSupplicant.h"
#include "sim/Headset.h"
#include "sim/RadioState.h"
#include "sim/Record.h"
#include "sim/Scenario.h"
#include "sim/Stage.h"

namespace sim {

/** Where the programs are that the simulator runs. An empty path: there is none. */
struct Programs {
    std::string daemon;
    std::string stats;
    std::string client;    ///< corvid-wifi
    std::string redirect;  ///< libnl80211-redirect.so, loaded into the daemon
    std::string logTags = "*:V";
};

/**
 * Does what the lines of a scenario say: owns the stage, the supplicant, the kernel side and the
 * programs that run beside them.
 */
class Player {
  public:
    /** `error` is empty when the line was done. */
    using Done = std::function<void(const std::string& error)>;

    /** Listens for nl80211. Throws std::runtime_error when the stage can't be set up. */
    Player(EventLoop& loop, Recorder& recorder, Programs programs);
    ~Player();
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    /**
     * Does one line. `done` is called once, perhaps before perform() returns: for "expect" when it
     * is settled, for programs when they are ready (statistics), started (daemon, monitor) or ended
     * (call, dump, stop, kill), else at once.
     */
    void perform(const Step& step, Done done);

    bool daemonRuns() const { return mDaemon != nullptr; }
    /** Called when the daemon ends though no line asked for it. */
    void onDaemonLost(std::function<void(const std::string&)> callback) {
        mOnDaemonLost = std::move(callback);
    }
    /** Nothing is under way: no expectation, no call. */
    bool idle() const { return mExpectations.empty() && mCalls.empty(); }
    Stage& stage() { return mStage; }

  private:
    // One per action; those with `done` may finish later, the others return an error or nothing.
    std::string play(const SetProperty& action);
    std::string play(const SupplicantControl& action);
    std::string play(const SocketControl& action);
    std::string play(const FolderControl& action);
    std::string play(const Connect& action) { return mHeadset.connect(action); }
    std::string play(const Disconnect& action) { return mHeadset.disconnect(action); }
    std::string play(const SetRssi& action);
    std::string play(const ChannelSwitch& action) { return mHeadset.switchChannel(action); }
    std::string play(const Scan& action) { return mHeadset.scan(action); }
    std::string play(const Regdom& action) { return mHeadset.changeRegdom(action); }
    std::string play(const AssocStarted& action) { return mHeadset.startAssociation(action); }
    std::string play(const P2pStart& action) { return mHeadset.startGroup(action); }
    std::string play(const P2pSwitch& action) { return mHeadset.switchGroup(action); }
    std::string play(const P2pStop& action) { return mHeadset.stopGroup(action); }
    std::string play(const P2pPeer& action) { return mHeadset.peer(action); }
    std::string play(const InterfaceControl& action);
    std::string play(const SendEvent& action);
    std::string play(const Burst& action);
    std::string play(const ReplyRule& action);
    std::string play(const RemoveReplyRules& action);
    std::string play(const NetlinkRule& action);
    std::string play(const RemoveNetlinkRules& action);
    std::string play(const NetlinkFamily& action);
    std::string play(const NetlinkListener& action);
    std::string play(const Say& action);
    std::string play(const ShowState& action);
    std::string play(const End& action);
    void play(const StatsControl& action, Done done);
    void play(const DaemonControl& action, const Done& done);
    void play(const MonitorControl& action, Done done);
    void play(const Call& action, const Done& done);
    void play(const Expect& action, Done done);

    void startStats(Done done);
    void startDaemon(const Done& done);
    void onDaemonLine(bool isError, const std::string& line);

    EventLoop& mLoop;
    Recorder& mRecorder;
    const Programs mPrograms;
    Expectations mExpectations;  // listens to what the others tell until they are gone
    Stage mStage;
    RadioState mRadio;
    FakeSupplicant mSupplicant;
    FakeNl80211Kernel mKernel;
    Headset mHeadset;

    std::unique_ptr<Child> mStats;
    Done mStatsReady;
    std::unique_ptr<Child> mDaemon;
    bool mDaemonEndWanted = false;
    /** Of the daemon's last log line: a message with newlines goes on without a head. */
    std::string mLogLevel;
    std::string mLogTag;
    std::function<void(const std::string&)> mOnDaemonLost;
    std::unique_ptr<Child> mMonitor;
    /** Lines that wait for the end of a program. */
    std::vector<Done> mOnStatsEnd;
    std::vector<Done> mOnDaemonEnd;
    std::vector<Done> mOnMonitorEnd;
    struct RunningCall;
    std::vector<std::unique_ptr<RunningCall>> mCalls;
};

}  // namespace sim
