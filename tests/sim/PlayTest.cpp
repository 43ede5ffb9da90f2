#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/sim/SimDriver.h"

using simtest::runSim;
using simtest::SimRecord;
using simtest::Surroundings;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

namespace {

/** Plays a scenario in a root of its own and reads what was recorded. */
class Play : public testing::Test {
  protected:
    static std::string repeated(const std::string& lines, int times) {
        std::string all;
        for (int i = 0; i < times; ++i) {
            all += lines;
        }
        return all;
    }

    int play(const std::string& scenario, std::vector<std::string> options = {},
             const Surroundings& surroundings = {}) {
        std::ofstream(file("x.scn")) << scenario;
        options.insert(options.end(), {"--no-stats", "--no-dump", "--root", file("root"),
                                       "--record", file("record.jsonl"), file("x.scn")});
        const int status = runSim(options, output_, surroundings);
        std::ifstream in(file("record.jsonl"));
        for (std::string line; std::getline(in, line);) {
            if (auto record = SimRecord::parse(line)) {
                records_.push_back(*record);
            } else {
                ADD_FAILURE() << line;
            }
        }
        return status;
    }

    /** A program that stands for the daemon: a shell script. */
    std::string script(const std::string& text) {
        std::ofstream(file("daemon.sh")) << "#!/bin/sh\n" << text;
        chmod(file("daemon.sh").c_str(), 0755);
        return file("daemon.sh");
    }

    std::string file(const std::string& name) const { return folder_.path() + "/" + name; }

    /** The time of the first record of this kind with this text; -1 when there is none. */
    double timeOf(const std::string& kind, const std::string& text) const {
        for (const SimRecord& record : records_) {
            if (record.kind() == kind && record.text() == text) {
                return record.t();
            }
        }
        return -1;
    }

    simtest::TempFolder folder_;
    std::string output_;
    std::vector<SimRecord> records_;
};

TEST_F(Play, LinesArePlayedAtTheirTimesAndInOrder) {
    EXPECT_EQ(play("supplicant start\n"
                   "at 0s event wlan0 A\n"
                   "at 300ms event wlan0 B\n"
                   "event wlan0 C\n"
                   "at +0.2s event wlan0 D\n"),
              0)
        << output_;
    const double b = timeOf("event", "<3>B");
    const double c = timeOf("event", "<3>C");
    const double d = timeOf("event", "<3>D");
    EXPECT_GE(timeOf("event", "<3>A"), 0);
    EXPECT_GE(b, 0.3);
    EXPECT_GE(c, b);
    EXPECT_GE(d, 0.5);
    EXPECT_GE(d, c);
}

TEST_F(Play, SpeedShortensTheTimesAndShowsTheScenarios) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(play("supplicant start\nat 20s event wlan0 A\n", {"--speed", "10"}), 0) << output_;
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(19));
    EXPECT_GE(timeOf("event", "<3>A"), 20);
}

TEST_F(Play, DaemonsTimePassesAsFastAsTheScenarios) {
    const std::string daemon = script("sleep 20\necho awake\nexec sleep 10000\n");
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(play("at 0s expect no output awake within 15s\nexpect output awake within 20s\n",
                   {"--daemon", daemon, "--speed", "10"}),
              0)
        << output_;
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(19));
}

TEST_F(Play, UnknownLineStopsThePlayBeforeAnythingStarts) {
    EXPECT_EQ(play("supplicant start\nat 1s fly\n"), 2);
    EXPECT_THAT(output_, HasSubstr(file("x.scn") + ":2: unknown word 'fly'; allowed: property"));
    struct stat info {};
    EXPECT_EQ(stat(file("root").c_str(), &info), -1) << "nothing was made";
}

TEST_F(Play, CheckReadsTheScenarioWithoutPlaying) {
    EXPECT_EQ(play("supplicant start\nat 100s scan\n", {"--check"}), 0) << output_;
    EXPECT_TRUE(records_.empty());
}

TEST_F(Play, FailedLineIsNamedAndMakesTheStatus1) {
    EXPECT_EQ(play("at 0s p2p stop\nat 10ms say still here\n"), 1);
    EXPECT_THAT(output_, HasSubstr(file("x.scn") + ":1: no P2P group is up"));
    EXPECT_THAT(output_, HasSubstr("still here"));
}

TEST_F(Play, FailedPreparationStopsThePlay) {
    EXPECT_EQ(play("p2p stop\nat 0s say still here\n"), 1);
    EXPECT_THAT(output_, HasSubstr(":1: no P2P group is up"));
    EXPECT_THAT(output_, Not(HasSubstr("still here")));
}

TEST_F(Play, UnmetExpectationMakesTheStatus1) {
    EXPECT_EQ(play("supplicant start\nat 0s event wlan0 A\nexpect event B within 100ms\n"), 1);
    EXPECT_THAT(output_, HasSubstr(":3: there was no event with 'B' within 0.1s"));
}

TEST_F(Play, PlayWaitsForItsExpectations) {
    EXPECT_EQ(play("supplicant start\n"
                   "at 0s p2p start freq=5180 up-after=300ms\n"
                   "expect event P2P-GROUP-STARTED within 20s\n"),
              0)
        << output_;
    EXPECT_GE(records_.back().t(), 0.3);
}

TEST_F(Play, LogLinesOfTheDaemonAreSplitIntoTagLevelAndText) {
    const std::string daemon = script(
        "echo 'CorvidWifi I 11-21 09:43:52 15465 15466 StaManager: hello 1' >&2\n"
        "echo 'CorvidWifi E 11-21 09:43:52 15465 15466 Service: no  good' >&2\n"
        "echo 'and its second line' >&2\n"
        "echo 'plain words'\n"
        "exec sleep 1000\n");
    EXPECT_EQ(play("at 0s expect log \"no  good\" within 20s\nexpect log hello within 20s\n"
                   "expect log \"second line\" within 20s\n"
                   "expect output \"plain words\" within 20s\n",
                   {"--daemon", daemon}),
              0)
        << output_;
    EXPECT_GE(timeOf("log", "StaManager: hello 1"), 0);
    EXPECT_GE(timeOf("log", "Service: no  good"), 0);
    EXPECT_GE(timeOf("log", "and its second line"), 0);
    EXPECT_GE(timeOf("output", "plain words"), 0);
    EXPECT_THAT(output_, HasSubstr("Service: no  good"));
    EXPECT_THAT(output_, Not(HasSubstr("StaManager: hello 1"))) << "below the level that is shown";
}

TEST_F(Play, DaemonGetsTheRootAndTheLogLevel) {
    const std::string daemon =
        script("echo \"$CORVID_WIFI_ROOT $ANDROID_LOG_TAGS\"\nexec sleep 1000\n");
    EXPECT_EQ(play("at 0s expect output \"*:V\" within 20s\n", {"--daemon", daemon}), 0) << output_;
    EXPECT_GE(timeOf("output", file("root") + " *:V"), 0) << output_;
}

TEST_F(Play, DaemonThatEndsByItselfMakesTheStatus1) {
    const std::string daemon = script("exit 3\n");
    EXPECT_EQ(play("at 0s say go\nat 1s say end\n", {"--daemon", daemon}), 1);
    EXPECT_THAT(output_, HasSubstr("the daemon ended with status 3 on its own"));
}

TEST_F(Play, RepeatedLineIsPrintedFourTimesAndCounted) {
    const std::string daemon = script(
        "for i in 1 2 3 4 5 6; do\n"
        "echo 'CorvidWifi E 11-21 09:43:52 15465 15466 WpaSocket: again' >&2; done\n"
        "sleep 1.5\n"
        "echo 'CorvidWifi E 11-21 09:43:52 15465 15466 WpaSocket: again' >&2\n"
        "echo 'CorvidWifi E 11-21 09:43:52 15465 15466 WpaSocket: last' >&2\n"
        "exec sleep 1000\n");
    EXPECT_EQ(play("at 0s expect log \"WpaSocket: last\" within 20s\n", {"--daemon", daemon}), 0)
        << output_;
    EXPECT_EQ(std::count_if(records_.begin(), records_.end(),
                            [](const SimRecord& r) { return r.text() == "WpaSocket: again"; }),
              7);
    EXPECT_THAT(output_, HasSubstr("again   (2 more times)\n"));
    size_t printed = 0;
    for (size_t at = 0; (at = output_.find("again", at)) != std::string::npos; ++at) {
        ++printed;
    }
    EXPECT_EQ(printed, 6u);
}

TEST_F(Play, LineThatIsRepeatedAtTheEndIsCountedAllTheSame) {
    EXPECT_EQ(play("supplicant start\nat 0s raw wlan0 \"\"\n" +
                   repeated("socket create p2p-p2p0-1\nsocket delete p2p-p2p0-1\n", 5)),
              0)
        << output_;
    EXPECT_THAT(output_, HasSubstr("socket p2p-p2p0-1 created   (1 more time)\n"));
    EXPECT_THAT(output_, HasSubstr("socket p2p-p2p0-1 deleted   (1 more time)\n"));
}

TEST_F(Play, NoAnswerToACallIsLeftOut) {
    EXPECT_EQ(play("at 0s say go\n" + repeated("call getStaInfo\n", 5)), 0) << output_;
    size_t answers = 0;
    for (size_t at = 0; (at = output_.find("call getStaInfo -> ", at)) != std::string::npos; ++at) {
        ++answers;
    }
    EXPECT_EQ(answers, 5u) << output_;
}

TEST_F(Play, LineBelowACallWaitsForItsAnswer) {
    EXPECT_EQ(play("at 0s call getStaInfo\nsay behind it\n"), 0) << output_;
    EXPECT_LT(output_.find("call getStaInfo -> "), output_.find("behind it"));
    EXPECT_NE(output_.find("behind it"), std::string::npos);
}

TEST_F(Play, CallWithoutAnAnswerMakesTheNextTimeTwoSecondsLateAtMost) {
    // The client waits for somebody to write the service's place.
    std::filesystem::create_directories(file("root/dev/hwbinder"));
    const std::string service =
        file("root/dev/hwbinder/vendor.corvid.hardware.wifi@1.0::IWifi,default");
    ASSERT_EQ(mkfifo(service.c_str(), 0600), 0);
    EXPECT_EQ(play("at 0s call getStaInfo\nsay behind it\nat 1ms say later\n"), 0) << output_;
    EXPECT_LT(output_.find("behind it"), output_.find("later"));
    EXPECT_GE(timeOf("say", "behind it"), 2);
    EXPECT_GE(timeOf("call",
                     "call getStaInfo -> "
                     "corvid-wifi: the service did not answer within 15 s: it hangs or is "
                     "stopped, or another call keeps it (it serves one call at a time)"),
              15);
}

TEST_F(Play, PlayEndsWithTheNumberOfExpectationsMet) {
    EXPECT_EQ(play("supplicant start\nat 0s event wlan0 A\nexpect event A within 1s\n"
                   "expect no event B within 1ms\n"),
              0);
    EXPECT_THAT(output_, EndsWith("\n2 expectations met\n"));
}

TEST_F(Play, PlayThatFailsEndsWithWhatDid) {
    EXPECT_EQ(play("supplicant start\nat 0s event wlan0 A\nexpect event A within 1s\n"
                   "expect event B within 1ms\np2p stop\n"),
              1);
    EXPECT_THAT(output_, EndsWith("\n1 of 2 expectations met; what failed:\n  " + file("x.scn") +
                                  ":5: no P2P group is up\n  " + file("x.scn") +
                                  ":4: there was no event with 'B' within 0.001s\n"));
}

TEST_F(Play, DoubtfulPropertyIsWarnedOfAndSet) {
    EXPECT_EQ(play("property persist.vendor.wifi.scs.enable yes\nat 0s say go\n"), 0);
    EXPECT_THAT(output_, HasSubstr("warning                the daemon takes its default: 'yes' is "
                                   "not true, false, 1 or 0\n"));
    EXPECT_TRUE(
        std::filesystem::exists(file("root/dev/__properties__/persist.vendor.wifi.scs.enable")));
}

TEST_F(Play, CheckNamesEveryLineThatIsWrong) {
    EXPECT_EQ(play("call getstainfo\nproperty persist.vendor.wifi.scs.enabel true\n"
                   "at 0s call startCsa 149\nscna\ncall updateTxPowerConfig\n",
                   {"--check"}),
              2);
    EXPECT_THAT(output_, HasSubstr(file("x.scn") + ":1: there is no method \"getstainfo\" (did you "
                                                   "mean \"getStaInfo\"?"));
    EXPECT_THAT(output_, HasSubstr(":2: warning: the daemon has no property"));
    EXPECT_THAT(output_, HasSubstr(":3: startCsa takes 2 arguments, not 1"));
    EXPECT_THAT(output_, HasSubstr(":4: unknown word 'scna' (did you mean 'scan'?)"));
    EXPECT_THAT(output_, HasSubstr(":5: updateTxPowerConfig takes 1 argument, not 0"));
}

TEST_F(Play, RecordOnAFullDiskEndsThePlay) {
    std::ofstream(file("x.scn")) << "at 0s say go\nat 1000s end\n";
    EXPECT_EQ(runSim({"--no-stats", "--root", file("root"), "--record", "/dev/full", file("x.scn")},
                     output_),
              1);
    EXPECT_THAT(output_, HasSubstr("cannot write /dev/full: No space left on device"));
}

TEST_F(Play, PipeThatIsClosedEndsThePlayQuietly) {
    Surroundings head;
    head.closeAfterLines = 1;
    EXPECT_EQ(play("at 0s say go\nat 1000s end\n", {}, head), -SIGPIPE);
}

TEST_F(Play, TerminalGetsColoursUnlessItIsAskedForNone) {
    struct {
        std::vector<std::pair<std::string, std::string>> environment;
        std::vector<std::string> options;
        bool coloured;
    } const cases[] = {{{{"TERM", "xterm"}, {"NO_COLOR", ""}}, {}, true},
                       {{{"TERM", "xterm"}, {"NO_COLOR", "1"}}, {}, false},
                       {{{"TERM", "dumb"}, {"NO_COLOR", ""}}, {}, false},
                       {{{"TERM", "xterm"}, {"NO_COLOR", ""}}, {"--plain"}, false}};
    for (const auto& one : cases) {
        Surroundings terminal;
        terminal.terminal = true;
        terminal.environment = one.environment;
        EXPECT_EQ(play("at 0s say go\n", one.options, terminal), 0);
        EXPECT_EQ(output_.find("\033[1m") != std::string::npos, one.coloured) << output_;
    }
}

TEST_F(Play, LogTagsOfTheCallerChooseWhatIsShown) {
    const std::string daemon = script(
        "echo 'CorvidWifi D 11-21 09:43:52 15465 15466 StaManager: detail' >&2\n"
        "echo 'Other D 11-21 09:43:52 15465 15466 of another' >&2\n"
        "exec sleep 1000\n");
    const std::string scenario = "at 0s expect log \"of another\" within 20s\n";
    Surroundings tags;
    tags.environment = {{"ANDROID_LOG_TAGS", "CorvidWifi:V"}};
    EXPECT_EQ(play(scenario, {"--daemon", daemon}, tags), 0) << output_;
    EXPECT_THAT(output_, HasSubstr("StaManager: detail"));
    EXPECT_THAT(output_, Not(HasSubstr("of another\n")));
    EXPECT_EQ(play(scenario, {"--daemon", daemon, "--log", "E"}, tags), 0) << output_;
    EXPECT_THAT(output_, Not(HasSubstr("StaManager: detail"))) << "the option goes before";
}

TEST_F(Play, RootThatWasUsedBeforeIsInAKnownState) {
    const std::string property = file("root/dev/__properties__/persist.vendor.wifi.scs.enable");
    const std::string sensor = file("root/data/vendor/sensors/camera_clock");
    EXPECT_EQ(play("property persist.vendor.wifi.scs.enable true\nsupplicant start\n"
                   "socket abandon wlan0\nat 0s say go\n"),
              0)
        << output_;
    std::ofstream(sensor) << "worldTracking 1\n";
    EXPECT_TRUE(std::filesystem::exists(property));
    EXPECT_EQ(play("at 0s say go\n"), 0) << output_;
    EXPECT_FALSE(std::filesystem::exists(property));
    EXPECT_FALSE(std::filesystem::exists(sensor));
    EXPECT_TRUE(std::filesystem::is_empty(file("root/data/vendor/wifi/wpa/sockets")));
}

TEST_F(Play, RootThatNoSimulatorHasUsedKeepsItsProperties) {
    const std::string property = file("root/dev/__properties__/persist.vendor.wifi.scs.enable");
    std::filesystem::create_directories(file("root/dev/__properties__"));
    std::ofstream(property) << "true\n";
    EXPECT_EQ(play("at 0s say go\n"), 0) << output_;
    EXPECT_TRUE(std::filesystem::exists(property));
}

TEST(Root, SecondSimulatorIsRefusedAndTouchesNothing) {
    simtest::SimDriver first;
    ASSERT_EQ(first.play("supplicant start"), "");
    ASSERT_EQ(first.play("property persist.vendor.wifi.scs.enable true"), "");
    std::string output;
    EXPECT_EQ(runSim({"--control", "--root", first.root()}, output), 1);
    EXPECT_THAT(output, HasSubstr("another simulator plays in " + first.root() + " (process " +
                                  std::to_string(first.pid()) + ")"));
    EXPECT_TRUE(std::filesystem::exists(first.socketPath("wlan0")));
    EXPECT_TRUE(std::filesystem::exists(first.root() + "/dev/nl80211"));
    EXPECT_TRUE(std::filesystem::exists(first.root() +
                                        "/dev/__properties__/persist.vendor.wifi.scs.enable"));
}

TEST_F(Play, OutputHasNoColoursWithoutATerminal) {
    EXPECT_EQ(play("supplicant start\nat 0s connect freq=5180\n"), 0);
    EXPECT_THAT(output_, Not(HasSubstr("\033")));
    EXPECT_THAT(output_, HasSubstr("CTRL-EVENT-CONNECTED - Connection to"));
}

TEST(Control, CallThatTheClientDoesNotTakeIsAnError) {
    simtest::SimDriver sim;
    EXPECT_THAT(sim.play("call getstainfo"), HasSubstr("there is no method \"getstainfo\""));
}

struct Wrong {
    std::vector<std::string> arguments;
    const char* complaint;
};

TEST(Usage, WrongUsageIsNamedAndMakesTheStatus2) {
    const Wrong wrong[] = {
        {{}, "exactly one scenario is needed"},
        {{"a.scn", "b.scn"}, "exactly one scenario is needed"},
        {{"--control", "a.scn"}, "--control takes no scenario"},
        {{"--fly", "a.scn"}, "unknown option --fly"},
        {{"--spede", "2", "a.scn"}, "unknown option --spede (did you mean '--speed'?)"},
        {{"--plain=yes", "a.scn"}, "--plain takes no value"},
        {{"--speed=0", "a.scn"}, "--speed takes a number from 0.1 to 10"},
        {{"--root"}, "--root needs a value"},
        {{"--speed", "0.09", "a.scn"}, "--speed takes a number from 0.1 to 10, not '0.09'"},
        {{"--speed", "11", "a.scn"}, "--speed takes a number from 0.1 to 10"},
        {{"--speed", "fast", "a.scn"}, "--speed takes a number from 0.1 to 10"},
        {{"--log", "X", "a.scn"}, "--log takes V, D, I, W or E"},
        {{"/nowhere/a.scn"}, "cannot read /nowhere/a.scn"},
    };
    for (const Wrong& usage : wrong) {
        std::string output_;
        EXPECT_EQ(runSim(usage.arguments, output_), 2) << usage.complaint;
        EXPECT_THAT(output_, HasSubstr(usage.complaint));
    }
}

TEST(Usage, VersionIsALineWithTheProgramsName) {
    std::string output_;
    EXPECT_EQ(runSim({"--version"}, output_), 0);
    EXPECT_THAT(output_, testing::MatchesRegex("corvid-sim [0-9.]+\n"));
}

TEST(Usage, LinesShowsWhatALineOfAScenarioCanBe) {
    std::string output_;
    EXPECT_EQ(runSim({"--lines"}, output_), 0);
    EXPECT_THAT(output_, HasSubstr("unset NAME\n    removes a system property\n"));
}

TEST(Usage, HelpGoesToStandardOutput) {
    std::string output_;
    EXPECT_EQ(runSim({"--help"}, output_), 0);
    EXPECT_THAT(output_, HasSubstr("usage: corvid-sim"));
}

}  // namespace
