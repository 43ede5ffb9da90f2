#include <chrono>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/sim/SimDriver.h"

using namespace std::chrono_literals;
using simtest::SimDriver;
using simtest::SimRecord;
using testing::HasSubstr;

namespace {

std::string fileContent(const std::string& path) {
    std::ifstream in(path);
    return in ? std::string(std::istreambuf_iterator<char>(in), {}) : "no file";
}

TEST(Control, EveryLineIsAnsweredOnceWithItsNumber) {
    SimDriver sim;
    EXPECT_EQ(sim.play("supplicant start"), "");
    EXPECT_EQ(sim.play(""), "");
    EXPECT_EQ(sim.play("# a comment"), "");
    EXPECT_THAT(sim.play("nonsense"), HasSubstr("unknown word 'nonsense'; allowed:"));
    EXPECT_EQ(sim.play("p2p stop"), "no P2P group is up");
    EXPECT_EQ(sim.records("ok").size(), 3u);
    EXPECT_EQ(sim.records("error").size(), 2u);
}

TEST(Control, RecordsOfALineComeBeforeItsAnswer) {
    SimDriver sim;
    ASSERT_EQ(sim.play("supplicant start"), "");
    std::vector<std::string> kinds;
    for (const SimRecord& record : sim.records()) {
        kinds.push_back(record.kind());
    }
    EXPECT_THAT(kinds, testing::ElementsAre("ready", "line", "socket", "ok"));
}

TEST(Control, ExpectIsAnsweredWhenItComesTrue) {
    SimDriver sim;
    ASSERT_EQ(sim.play("supplicant start"), "");
    ASSERT_EQ(sim.play("p2p start freq=5180 up-after=200ms"), "");
    const double begin = sim.records().back().t();
    EXPECT_EQ(sim.play("expect event \"P2P-GROUP-STARTED\" within 20s"), "");
    EXPECT_GE(sim.records().back().t(), begin + 0.15);
}

TEST(Control, ExpectLooksBackToTheLastLineThatDidSomething) {
    SimDriver sim;
    ASSERT_EQ(sim.play("supplicant start"), "");
    ASSERT_EQ(sim.play("event wlan0 ONE"), "");
    EXPECT_EQ(sim.play("expect event \"wlan0 <3>ONE\" within 20s"), "");
    EXPECT_EQ(sim.play("expect event ONE within 20s"), "") << "an expectation takes nothing away";
    EXPECT_EQ(sim.play("expect no event ONE within 50ms"),
              "an unwanted event with 'ONE' within 0.05s");
    ASSERT_EQ(sim.play("event wlan0 TWO"), "");
    EXPECT_EQ(sim.play("expect event ONE within 50ms"),
              "there was no event with 'ONE' within 0.05s");
    EXPECT_EQ(sim.play("expect no event ONE within 50ms"), "");
}

TEST(Control, PropertiesAreFilesThatCanBeRemoved) {
    SimDriver sim;
    const std::string file = sim.root() + "/dev/__properties__/persist.vendor.wifi.x";
    ASSERT_EQ(sim.play("property persist.vendor.wifi.x \" 12 \""), "");
    EXPECT_EQ(fileContent(file), " 12 ");
    ASSERT_EQ(sim.play("property persist.vendor.wifi.x true"), "");
    EXPECT_EQ(fileContent(file), "true");
    ASSERT_EQ(sim.play("unset persist.vendor.wifi.x"), "");
    EXPECT_EQ(fileContent(file), "no file");
    ASSERT_EQ(sim.play("unset persist.vendor.wifi.x"), "");
    ASSERT_EQ(sim.play("sensors camera.notify hang"), "");
    EXPECT_EQ(fileContent(sim.root() + "/dev/__properties__/debug.sensors.camera.notify"), "hang");
}

TEST(Control, LinesThatTheServicesWriteBecomeRecords) {
    SimDriver sim;
    const std::string atom =
        R"({"reverseDomainName":"com.corvid.os","atomId":116183,"values":[{"int":1}]})";
    std::ofstream(sim.root() + "/data/misc/stats/atoms.jsonl") << atom << "\n";
    const auto told = sim.waitFor([](const SimRecord& record) { return record.kind() == "atom"; });
    ASSERT_TRUE(told);
    EXPECT_EQ(told->text(), atom);
    EXPECT_EQ((*told)["atom"], atom);

    std::ofstream(sim.root() + "/data/vendor/sensors/controller_blocklist") << "1 2\n3 4\n";
    EXPECT_TRUE(sim.waitFor([](const SimRecord& record) {
        return record.kind() == "sensors" && record.text() == "controller_blocklist: 1 2, 3 4";
    }));
    std::ofstream(sim.root() + "/data/vendor/sensors/camera_clock") << "a 1\n";
    EXPECT_TRUE(sim.waitFor([](const SimRecord& record) {
        return record.kind() == "sensors" && record.text() == "camera_clock: a 1";
    }));
    std::ofstream(sim.root() + "/data/vendor/sensors/camera_clock", std::ios::app) << "b 2\n";
    EXPECT_TRUE(sim.waitFor([](const SimRecord& record) {
        return record.kind() == "sensors" && record.text() == "camera_clock: b 2";
    }));
}

TEST(Control, StateHasTheMonitorsAndTheLink) {
    SimDriver sim;
    ASSERT_EQ(sim.play("supplicant start"), "");
    ASSERT_EQ(sim.play("connect freq=5180 rssi=-61"), "");
    ASSERT_EQ(sim.play("state"), "");
    const SimRecord state = sim.records("state").at(0);
    EXPECT_EQ(state["monitors"], R"({"wlan0":0})");
    EXPECT_EQ(state["frequency"], "5180");
    EXPECT_EQ(state["rssi"], "-61");
}

TEST(Control, RecordFileHoldsEveryRecord) {
    const simtest::TempFolder folder;
    const std::string file = folder.path() + "/record.jsonl";
    {
        SimDriver sim({"--record", file});
        ASSERT_EQ(sim.play("supplicant start"), "");
        ASSERT_EQ(sim.play(R"(raw wlan0 "\x00\xff\"")"), "");
        EXPECT_EQ(sim.finish(), 0);
    }
    std::ifstream in(file);
    std::vector<SimRecord> records;
    for (std::string line; std::getline(in, line);) {
        const auto record = SimRecord::parse(line);
        ASSERT_TRUE(record) << line;
        records.push_back(*record);
    }
    ASSERT_EQ(records.size(), 8u);
    EXPECT_EQ(records[2].kind(), "socket");
    EXPECT_EQ(records[5].kind(), "event");
    EXPECT_EQ(records[5].text(), std::string("\0\xff\"", 3));
    EXPECT_EQ(records[7].text(), "deleted") << "the socket, at the end";
}

TEST(Control, EndLineEndsTheSimulator) {
    SimDriver sim;
    EXPECT_EQ(sim.play("end"), "");
    EXPECT_EQ(sim.finish(), 0);
}

TEST(Control, InputThatIsNoPipeIsReadToItsEnd) {
    const simtest::TempFolder folder;
    std::string output;
    EXPECT_EQ(simtest::runSim({"--control", "--root", folder.path()}, output), 0) << output;
}

TEST(Control, MissingProgramIsNamedInTheError) {
    SimDriver sim;
    EXPECT_EQ(sim.play("daemon start"), "no daemon was given: start with --daemon PATH");
    EXPECT_EQ(sim.play("daemon stop"), "the daemon does not run");
    SimDriver other({"--daemon", "/nowhere/daemon"});
    EXPECT_EQ(other.play("daemon start"),
              "/nowhere/daemon can't be run: No such file or directory");
}

}  // namespace
