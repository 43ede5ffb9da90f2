// The parts of which a bug report is made: commands with their limits, and stand-ins for names.

#include <chrono>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/Anonymizer.h"
#include "tools/BugReport.h"
#include "tools/RunCommand.h"

using namespace ::Ursa::OS::Wifi::Tools;
using namespace std::chrono_literals;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

constexpr size_t kSize = 1000;

TEST(RunCommand, BothOutputsAreTaken) {
    const CommandResult result = runCommand({"sh", "-c", "echo out; echo error >&2"}, kSize, 10s);
    EXPECT_EQ(result.output, "out\nerror\n");
    EXPECT_EQ(result.failure, "");
}

TEST(RunCommand, CommandThatFailsSaysHow) {
    const CommandResult result = runCommand({"sh", "-c", "echo why; exit 3"}, kSize, 10s);
    EXPECT_EQ(result.output, "why\n");
    EXPECT_EQ(result.failure, "status 3");
    EXPECT_EQ(runCommand({"sh", "-c", "kill -9 $$"}, kSize, 10s).failure, "killed by signal 9");
    EXPECT_EQ(runCommand({"no-such-program"}, kSize, 10s).failure,
              "there is no no-such-program here");
}

TEST(RunCommand, CommandThatHangsIsKilledWithWhatItStarted) {
    const auto begin = std::chrono::steady_clock::now();
    const CommandResult result =
        runCommand({"sh", "-c", "echo begun; sleep 1000 & sleep 1000"}, kSize, 200ms);
    EXPECT_EQ(result.output, "begun\n");
    EXPECT_EQ(result.failure, "not ended within 1 s");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 100s);
}

TEST(RunCommand, OutputIsCutAtTheSize) {
    const CommandResult result = runCommand({"sh", "-c", "yes | head -c 5000"}, kSize, 10s);
    EXPECT_EQ(result.output.size(), kSize);
    EXPECT_EQ(result.failure, "cut at 1000 bytes");
}

TEST(BugReport, ItemsHoldFiveMegabytesAndTakeAMinuteAtMost) {
    size_t size = 0;
    std::chrono::milliseconds limit{0};
    for (const BugReportItem& item : bugReportItems()) {
        size += item.size;
        limit += item.limit;
    }
    EXPECT_LE(size, 5'000'000U);
    EXPECT_LE(limit, 60s);
}

TEST(Anonymizer, NamesGetStandInsThatStayTheSame) {
    Anonymizer anonymizer;
    const std::string text = anonymizer.text(
        "bssid=AA:bb:cc:00:11:22 ssid=Home Net\n"
        "ip_address=192.168.49.23 from 192.168.49.1\n"
        "passphrase=\"e8SndjtA\" psk=0011\n"
        "SME: Trying to authenticate with aa:bb:cc:00:11:22 (SSID='Home Net' freq=5180 MHz)\n"
        "fe80::1234:5678 at 13:47:18 127.0.0.1 ff:ff:ff:ff:ff:ff\n");
    EXPECT_EQ(text,
              "bssid=02:00:00:00:00:01 ssid=ssid-1\n"
              "ip_address=192.0.2.1 from 192.0.2.2\n"
              "passphrase=\"secret\" psk=secret\n"
              "SME: Trying to authenticate with 02:00:00:00:00:01 (SSID='ssid-1' freq=5180 MHz)\n"
              "2001:db8::1 at 13:47:18 127.0.0.1 ff:ff:ff:ff:ff:ff\n");
    EXPECT_EQ(anonymizer.text("192.168.49.1"), "192.0.2.2");
}

}  // namespace
