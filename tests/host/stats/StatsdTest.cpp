#include <csignal>
#include <filesystem>
#include <string>

#include <android/frameworks/stats/1.0/IStats.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include "tests/host/hidl/Programs.h"
#include "tests/host/platform/TempRoot.h"

using android::sp;
using android::frameworks::stats::V1_0::IStats;
using android::frameworks::stats::V1_0::VendorAtom;

namespace {

constexpr char kFile[] = "/data/misc/stats/atoms.jsonl";

class StatsdTest : public testing::Test {
  protected:
    StatsdTest() { std::filesystem::create_directories(root_.path("/dev/hwbinder")); }

    static void report(int32_t atomId) {
        const sp<IStats> stats = IStats::tryGetService();
        ASSERT_NE(nullptr, stats);
        VendorAtom atom;
        atom.reverseDomainName = "com.corvid.os";
        atom.atomId = atomId;
        atom.values.resize(1);
        atom.values[0].stringValue("text");
        stats->reportVendorAtom(atom).assertOk();
    }

    static std::string lineOf(int32_t atomId) {
        return "{\"reverseDomainName\":\"com.corvid.os\",\"atomId\":" + std::to_string(atomId) +
               ",\"values\":[{\"string\":\"text\"}]}\n";
    }

    TempRoot root_;
};

TEST_F(StatsdTest, AtomIsInTheFileWhenTheReportReturns) {
    Program statsd("corvid-statsd");
    ASSERT_EQ("ready", statsd.line());
    report(116183);
    EXPECT_EQ(lineOf(116183), root_.read(kFile));
    report(119925);
    EXPECT_EQ(lineOf(116183) + lineOf(119925), root_.read(kFile));
}

TEST_F(StatsdTest, FileThatWasMovedAwayIsBegunAgain) {
    Program statsd("corvid-statsd");
    ASSERT_EQ("ready", statsd.line());
    report(1);
    std::filesystem::remove_all(root_.path("/data"));
    report(2);
    EXPECT_EQ(lineOf(2), root_.read(kFile));
}

TEST_F(StatsdTest, AtomThatCannotBeWrittenIsDroppedAndLogged) {
    Program statsd("corvid-statsd");
    ASSERT_EQ("ready", statsd.line());
    root_.write("/data", "a file where a folder should be");
    report(1);
    EXPECT_TRUE(statsd.waitForLog("Dropping atom 1: can't write"));
    std::filesystem::remove(root_.path("/data"));
    report(2);
    EXPECT_EQ(lineOf(2), root_.read(kFile));
}

TEST_F(StatsdTest, AtomThatDoesNotFitOnTheDiskIsDroppedWholeAndLogged) {
    // From some moment on the file is too large for this process: its writes end as on a full disk,
    // the first of them with a part of the line written. The log is a file, too, but shorter.
    std::signal(SIGXFSZ, SIG_IGN);
    Program statsd("corvid-statsd");
    ASSERT_EQ("ready", statsd.line());
    std::string lines;
    while (lines.size() < 4000) {
        report(1);
        lines += lineOf(1);
    }
    const rlimit full{lines.size() + 10, RLIM_INFINITY};
    ASSERT_EQ(0, prlimit(statsd.pid(), RLIMIT_FSIZE, &full, nullptr));
    const std::string problem = ": can't write " + root_.path(kFile) + ": File too large";
    for (const int32_t atom : {2, 3}) {
        report(atom);
        EXPECT_TRUE(statsd.waitForLog("Dropping atom " + std::to_string(atom) + problem));
        EXPECT_EQ(lines, root_.read(kFile));
    }
    const rlimit roomy{RLIM_INFINITY, RLIM_INFINITY};
    ASSERT_EQ(0, prlimit(statsd.pid(), RLIMIT_FSIZE, &roomy, nullptr));
    report(4);
    EXPECT_EQ(lines + lineOf(4), root_.read(kFile));
}

TEST_F(StatsdTest, SigtermAndSigintEndItWithStatus0) {
    for (const int signal : {SIGTERM, SIGINT}) {
        Program statsd("corvid-statsd");
        ASSERT_EQ("ready", statsd.line());
        report(1);
        statsd.signal(signal);
        EXPECT_EQ(0, statsd.wait());
        EXPECT_EQ(nullptr, IStats::tryGetService());
    }
}

TEST_F(StatsdTest, MissingFolderEndsItWithStatus1) {
    std::filesystem::remove(root_.path("/dev/hwbinder"));
    Program statsd("corvid-statsd");
    EXPECT_EQ("", statsd.line());
    EXPECT_EQ(1, statsd.wait());
    EXPECT_EQ(1, statsd.countInLog("corvid-statsd: can't register"));
}

TEST_F(StatsdTest, SecondOneEndsWithStatus1) {
    Program first("corvid-statsd");
    ASSERT_EQ("ready", first.line());
    Program second("corvid-statsd");
    EXPECT_EQ("", second.line());
    EXPECT_EQ(1, second.wait());
    report(1);
    EXPECT_EQ(lineOf(1), root_.read(kFile));
}

TEST_F(StatsdTest, ArgumentIsRefused) {
    Program statsd("corvid-statsd", "--verbose");
    EXPECT_EQ(2, statsd.wait());
    EXPECT_EQ(1, statsd.countInLog("takes no arguments, got '--verbose'"));
}

}  // namespace
