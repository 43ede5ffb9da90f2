#include "sim/Player.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <stdexcept>
#include <type_traits>
#include <utility>

#include <sys/wait.h>

namespace sim {

namespace {

std::string joined(const std::vector<std::string>& words) {
    std::string out;
    for (const std::string& word : words) {
        out.append(out.empty() ? "" : " ").append(word);
    }
    return out;
}

void finish(std::vector<Player::Done>& waiting) {
    const std::vector<Player::Done> now = std::exchange(waiting, {});
    for (const Player::Done& done : now) {
        done("");
    }
}

std::string baseName(const std::string& path) { return path.substr(path.rfind('/') + 1); }

}  // namespace

struct Player::RunningCall {
    std::unique_ptr<Child> child;
    std::string output;
};

Player::Player(EventLoop& loop, Recorder& recorder, Programs programs)
    : mLoop(loop),
      mRecorder(recorder),
      mPrograms(std::move(programs)),
      mExpectations(loop, recorder),
      mStage(loop, recorder),
      mSupplicant(loop, recorder, mRadio, Stage::socketFolder()),
      mKernel(loop, recorder, mRadio, Stage::nl80211Path()),
      mHeadset(loop, mSupplicant, mRadio) {
    if (const std::string error = mKernel.listen(); !error.empty()) {
        throw std::runtime_error(error);
    }
}

Player::~Player() = default;

void Player::perform(const Step& step, Done done) {
    if (!std::holds_alternative<Expect>(step.action)) {
        if (!std::holds_alternative<Say>(step.action) &&
            !std::holds_alternative<ShowState>(step.action)) {
            mExpectations.mark();
        }
        mRecorder.add(Record("line", step.text).with("line", step.line));
    }
    std::visit(
        [&](const auto& action) {
            using T = std::decay_t<decltype(action)>;
            if constexpr (std::is_same_v<T, StatsControl> || std::is_same_v<T, DaemonControl> ||
                          std::is_same_v<T, MonitorControl> || std::is_same_v<T, Call> ||
                          std::is_same_v<T, Expect>) {
                play(action, std::move(done));
            } else {
                done(play(action));
            }
        },
        step.action);
}

std::string Player::play(const SetProperty& action) {
    return mStage.setProperty(action.name, action.value);
}

std::string Player::play(const SupplicantControl& action) {
    using What = SupplicantControl::What;
    switch (action.what) {
        case What::Start:
            // Like the real one, it makes the folder when that is missing.
            if (std::string error = mStage.changeFolder({FolderControl::Which::Sockets, true});
                !error.empty()) {
                return error;
            }
            return mHeadset.startSupplicant(action.p2p);
        case What::Terminate: {
            const std::string error = mHeadset.terminateSupplicant();
            return error.empty() && action.removeFolder
                       ? mStage.changeFolder({FolderControl::Which::Sockets, false})
                       : error;
        }
        case What::Crash:
            return mHeadset.crashSupplicant();
        case What::Restart:
            return mHeadset.restartSupplicant();
        case What::Suspend:
            mSupplicant.suspend();
            return "";
        case What::Resume:
            mSupplicant.resume();
            return "";
    }
    return "";
}

std::string Player::play(const SocketControl& action) {
    using What = SocketControl::What;
    if (action.what == What::Create) {
        return mSupplicant.open(action.name);
    }
    if (action.what == What::Abandon && !mSupplicant.isOpen(action.name)) {
        return "there is no socket " + action.name;
    }
    mSupplicant.close(action.name, action.what == What::Delete);
    return "";
}

std::string Player::play(const FolderControl& action) {
    if (action.which == FolderControl::Which::Sockets && !action.create) {
        for (const std::string& name : mSupplicant.names()) {
            mSupplicant.close(name, true);
        }
    }
    return mStage.changeFolder(action);
}

std::string Player::play(const SetRssi& action) {
    mRadio.signal.walk(action.fromDbm, action.toDbm, EventLoop::Clock::now(), action.over);
    return "";
}

std::string Player::play(const InterfaceControl& action) {
    if (action.add) {
        mRadio.addInterface(action.name);
    } else {
        mRadio.removeInterface(action.name);
    }
    return "";
}

std::string Player::play(const SendEvent& action) {
    if (!mSupplicant.isOpen(action.socket)) {
        return "there is no socket " + action.socket;
    }
    mSupplicant.send(action.socket, action.text);
    return "";
}

std::string Player::play(const Burst& action) {
    if (!mSupplicant.isOpen(action.socket)) {
        return "there is no socket " + action.socket;
    }
    mSupplicant.burst(action);
    return "";
}

std::string Player::play(const ReplyRule& action) {
    mSupplicant.addRule(action);
    return "";
}

std::string Player::play(const RemoveReplyRules& action) {
    mSupplicant.removeRules(action.prefix);
    return "";
}

std::string Player::play(const NetlinkRule& action) {
    mKernel.addRule(action);
    return "";
}

std::string Player::play(const RemoveNetlinkRules& action) {
    mKernel.removeRules(action.request);
    return "";
}

std::string Player::play(const NetlinkFamily& action) {
    mKernel.setFamily(action.id);
    return "";
}

std::string Player::play(const NetlinkListener& action) {
    using What = NetlinkListener::What;
    if (action.what == What::Listen) {
        return mKernel.listen();
    }
    mKernel.close();
    if (action.what == What::Remove) {
        mKernel.removePath();
    }
    return "";
}

std::string Player::play(const Say& action) {
    mRecorder.add(Record("say", action.text));
    return "";
}

std::string Player::play(const ShowState&) {
    Record record("state", mDaemon ? "the daemon runs" : "the daemon does not run");
    std::string sockets;
    for (const std::string& name : mSupplicant.names()) {
        sockets += (sockets.empty() ? "{" : ",") + jsonString(name) + ":" +
                   std::to_string(mSupplicant.monitors(name));
    }
    record.withJson("monitors", sockets.empty() ? "{}" : sockets + "}");
    if (mRadio.sta) {
        record.with("frequency", mRadio.sta->frequencyMHz);
        record.with("rssi", mRadio.signal.dbm(EventLoop::Clock::now()));
    }
    if (mRadio.group) {
        record.with("group", mRadio.group->ifname);
        record.with("groupFrequency", mRadio.group->frequencyMHz);
    }
    if (mDaemon) {
        record.with("daemonPid", mDaemon->pid());
    }
    mRecorder.add(std::move(record));
    return "";
}

std::string Player::play(const End&) { return ""; }

void Player::play(const Expect& action, Done done) { mExpectations.add(action, std::move(done)); }

void Player::play(const StatsControl& action, Done done) {
    if (action.what == StatsControl::What::Start) {
        startStats(std::move(done));
    } else if (!mStats) {
        done("the statistics service does not run");
    } else {
        mOnStatsEnd.push_back(std::move(done));
        mStats->signal(action.what == StatsControl::What::Stop ? SIGTERM : SIGKILL);
    }
}

void Player::startStats(Done done) {
    if (mStats) {
        done("the statistics service runs already");
        return;
    }
    mStatsReady = std::move(done);
    const auto onLine = [this](bool isError, const std::string& line) {
        if (!isError && line == "ready" && mStatsReady) {
            mRecorder.add(Record("program", "corvid-statsd is ready"));
            std::exchange(mStatsReady, nullptr)("");
        } else if (isError) {
            mRecorder.add(Record("output", line).with("program", "corvid-statsd"));
        }
    };
    const auto onEnd = [this](int status) {
        const std::string text = "corvid-statsd " + Child::endText(status);
        mStats.reset();
        mRecorder.add(Record("program", text));
        if (mStatsReady) {
            std::exchange(mStatsReady, nullptr)(text);
        }
        finish(mOnStatsEnd);
    };
    std::string error;
    mStats = Child::start(mLoop, {mPrograms.stats, {}, {}}, onLine, onEnd, error);
    if (!mStats) {
        std::exchange(mStatsReady, nullptr)(error);
    }
}

void Player::play(const DaemonControl& action, const Done& done) {
    if (action.what == DaemonControl::What::Start) {
        startDaemon(done);
        return;
    }
    if (!mDaemon) {
        done("the daemon does not run");
        return;
    }
    const bool ends = action.signal == SIGTERM || action.signal == SIGKILL;
    mDaemonEndWanted = mDaemonEndWanted || ends;
    mDaemon->signal(action.signal);
    if (ends) {
        mOnDaemonEnd.push_back(done);
    } else {
        done("");
    }
}

void Player::startDaemon(const Done& done) {
    if (mDaemon) {
        done("the daemon runs already");
        return;
    }
    if (mPrograms.daemon.empty()) {
        done("no daemon was given: start with --daemon PATH");
        return;
    }
    Child::Command command{mPrograms.daemon, {}, {{"ANDROID_LOG_TAGS", mPrograms.logTags}}};
    if (!mPrograms.redirect.empty()) {
        command.environment.emplace_back("LD_PRELOAD", mPrograms.redirect);
    }
    const auto onLine = [this](bool isError, const std::string& line) {
        onDaemonLine(isError, line);
    };
    const auto onEnd = [this](int status) {
        const std::string text = "the daemon " + Child::endText(status);
        mDaemon.reset();
        mStage.catchUp();
        mRecorder.add(Record("program", text));
        if (!std::exchange(mDaemonEndWanted, false) && mOnDaemonLost) {
            mOnDaemonLost(text);
        }
        finish(mOnDaemonEnd);
    };
    std::string error;
    mDaemon = Child::start(mLoop, command, onLine, onEnd, error);
    if (mDaemon) {
        mRecorder.add(Record("program", "the daemon was started").with("pid", mDaemon->pid()));
    }
    done(error);
}

/** A line as liblog prints it: "CorvidWifi I 11-21 09:43:52  1234  1235 StaManager: hello". */
void Player::onDaemonLine(bool isError, const std::string& line) {
    char tag[64];
    char level = 0;
    int message = 0;
    if (std::sscanf(line.c_str(), "%63s %c %*d-%*d %*d:%*d:%*d %*d %*d %n", tag, &level,
                    &message) == 2 &&
        message > 0) {
        mLogTag = tag;
        mLogLevel.assign(1, level);
    } else if (!isError || mLogLevel.empty()) {
        mRecorder.add(Record("output", line).with("program", baseName(mPrograms.daemon)));
        return;
    }
    const std::string text = line.substr(static_cast<size_t>(message));
    if (!text.empty()) {
        mRecorder.add(Record("log", text).with("level", mLogLevel).with("tag", mLogTag));
    }
}

void Player::play(const MonitorControl& action, Done done) {
    if (!action.start) {
        if (!mMonitor) {
            done("the monitor does not run");
            return;
        }
        mOnMonitorEnd.push_back(std::move(done));
        mMonitor->signal(SIGTERM);
        return;
    }
    if (mMonitor) {
        done("the monitor runs already");
        return;
    }
    const auto onLine = [this](bool isError, const std::string& line) {
        Record record(isError ? "output" : "callback", line);
        if (isError) {
            record.with("program", "corvid-wifi");
        } else if (!line.empty() && line.front() == '{') {
            record.withJson("callback", line);
        }
        mRecorder.add(std::move(record));
    };
    const auto onEnd = [this](int status) {
        mMonitor.reset();
        mRecorder.add(Record("program", "corvid-wifi monitor " + Child::endText(status)));
        finish(mOnMonitorEnd);
    };
    std::string error;
    mMonitor = Child::start(mLoop, {mPrograms.client, {"monitor"}, {}}, onLine, onEnd, error);
    done(error);
}

void Player::play(const Call& action, const Done& done) {
    auto call = std::make_unique<RunningCall>();
    RunningCall* running = call.get();
    const std::string words = joined(action.arguments);
    const auto onLine = [running](bool, const std::string& line) {
        running->output += line + "\n";
    };
    const auto onEnd = [this, running, words, done](int status) {
        if (!running->output.empty()) {
            running->output.pop_back();
        }
        mRecorder.add(Record("call", words + " -> " + running->output)
                          .with("arguments", words)
                          .with("output", running->output)
                          .with("status", WIFEXITED(status) ? WEXITSTATUS(status) : -1));
        mCalls.erase(std::find_if(mCalls.begin(), mCalls.end(),
                                  [running](const auto& c) { return c.get() == running; }));
        done("");
    };
    std::string error;
    call->child =
        Child::start(mLoop, {mPrograms.client, action.arguments, {}}, onLine, onEnd, error);
    if (!call->child) {
        done(error);
        return;
    }
    mCalls.push_back(std::move(call));
}

}  // namespace sim
