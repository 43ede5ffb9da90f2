#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/types.h>

#include "tests/component/ProcessFigures.h"
#include "tests/sim/SimDriver.h"
#include "tests/support/Patience.h"

namespace component {

/** Path of the daemon under test; the environment's CORVID_DAEMON may name a wrapper that becomes
 * it. */
std::string daemonPath();
/** Path of corvid-wifi. */
std::string clientPath();

/** The sockets in /tmp that the supplicant's client library has made for a process. */
std::vector<std::string> controlClientFiles(pid_t pid);

/** An answer of corvid-wifi. */
struct Answer {
    int status = -1;     ///< Its exit status.
    std::string output;  ///< What it printed, without the last newline.
};

/** A line of the daemon's log. */
struct LogLine {
    std::string level;  ///< D, I, W, E
    std::string text;   ///< "StaManager: STA event(CONNECTED)"

    bool operator==(const LogLine& other) const {
        return level == other.level && text == other.text;
    }
};
std::ostream& operator<<(std::ostream& out, const LogLine& line);

/**
 * A simulated headset of its own for one test, and the built daemon on it, met only where the
 * outside world meets it: control sockets, netlink, properties, HIDL, atoms and log. A line that
 * the headset refuses fails the test, and so does a daemon that ends unasked or prints anything but
 * log lines (a sanitizer's report, for example). One thread.
 */
class Headset {
  public:
    /** The headset's files and its kernel side are there; supplicant, daemon and so on are not. */
    Headset() : Headset(daemonPath()) {}
    /** The same with another program for the daemon: a script that runs it, for example. */
    explicit Headset(const std::string& daemon);
    ~Headset();

    const std::string& root() const { return sim_.root(); }
    std::string socketFolder() const { return root() + "/data/vendor/wifi/wpa/sockets"; }

    /** Plays a line of a scenario (sim/README.md) and waits until that is done. */
    void play(const std::string& line);
    /** Several lines, one after the other. */
    void playAll(const std::vector<std::string>& lines);

    /** Starts the daemon and waits until it serves calls. */
    void startDaemon();
    /** The same with every feature on, connected to a station's and a P2P device's socket. */
    void startWithEveryFeature();
    /** Starts the daemon and does not wait for it. */
    void launchDaemon();
    /** Kills the daemon, if it runs, and removes what it leaves behind. */
    void killDaemon();
    /** The record of the daemon's end among the records until now; empty: it runs. */
    std::optional<simtest::SimRecord> daemonEnd();
    /** Starts the daemon and waits for its end; its exit status, -1 when it doesn't end. */
    int runDaemonToItsEnd();
    pid_t daemonPid() const { return daemonPid_; }
    /**
     * The daemon's figures once it is at rest: what a thread closes after its last line of the log
     * is closed, and a thread that has ended is gone. Fails the test if it does not come to rest.
     */
    ProcessFigures daemonFigures() const;
    /** What is to be expected at the destructor: the daemon ends by itself. */
    void expectDaemonToEnd() { daemonMayEnd_ = true; }

    /** Waits until the daemon is connected to a control socket of the supplicant. */
    void expectConnection(const std::string& socket = "wlan0");

    Answer call(const std::string& methodAndArguments);
    std::string dump();

    /** Waits for a line of the daemon's log that contains `text`. Fails the test if none comes. */
    void expectLog(const std::string& level, const std::string& text,
                   std::chrono::milliseconds limit = test::kPatience);
    /** Waits for any other record of the simulator. Fails the test if none comes. */
    simtest::SimRecord expectRecord(const std::string& kind, const std::string& text,
                                    std::chrono::milliseconds limit = test::kPatience);
    /** Waits until `count` records of that kind and text have come; the test fails otherwise. */
    void expectRecords(size_t count, const std::string& kind, const std::string& text,
                       std::chrono::milliseconds limit = test::kPatience);

    /** The daemon's log until now: lines that contain `text`, of any level or of one. */
    std::vector<LogLine> log(const std::string& text = "", const std::string& level = "");
    size_t count(const std::string& kind, const std::string& text);
    /** Records until now are not looked at any more, nor are log lines. */
    void forget();

    /**
     * Waits until the daemon has handled every event sent on "wlan0" until now: sends one more,
     * without consequences, and waits for the log line about it. The daemon must be connected.
     */
    void settle(std::chrono::milliseconds limit = test::kPatience);

    simtest::SimDriver& sim() { return sim_; }

  private:
    /** All that the daemon logged before what the test has seen so far is among the records. */
    void catchUp();
    void checkDaemonOutput();

    simtest::SimDriver sim_;
    pid_t daemonPid_ = -1;
    bool daemonMayEnd_ = false;
    int settled_ = 0;
};

}  // namespace component
