#include <signal.h>

#include <filesystem>
#include <string>

#include <android/frameworks/stats/1.0/IStats.h>
#include <gtest/gtest.h>

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
