#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/Simulation.h"
#include "sim/Verbs.h"
#include "tests/sim/SimDriver.h"

using namespace sim;
using namespace std::chrono_literals;

namespace {

/** "form: what happens" of the tables' rows under the heading "line", without their markup. */
std::multiset<std::string> rowsOfReadme() {
    std::multiset<std::string> rows;
    std::ifstream in(SIM_README);
    bool inTable = false;
    for (std::string line; std::getline(in, line);) {
        if (line == "| line | what happens |") {
            inTable = true;
        } else if (line.rfind("| ", 0) != 0) {
            inTable = inTable && line == "|---|---|";
        } else if (inTable) {
            line.erase(std::remove(line.begin(), line.end(), '`'), line.end());
            line = line.substr(2, line.size() - 4);
            line.replace(line.find(" | "), 3, ": ");
            for (size_t at = 0; (at = line.find("\\|")) != std::string::npos;) {
                line.erase(at, 1);
            }
            rows.insert(line);
        }
    }
    return rows;
}

TEST(Verbs, ReadmeHasARowForEachForm) {
    std::multiset<std::string> forms;
    for (const Verb& verb : verbs()) {
        for (const Verb::Help& help : verb.help) {
            forms.insert(std::string(help.form) + ": " + std::string(help.what));
        }
    }
    const std::multiset<std::string> rows = rowsOfReadme();
    std::vector<std::string> onlyInReadme;
    std::vector<std::string> onlyInTable;
    std::set_difference(rows.begin(), rows.end(), forms.begin(), forms.end(),
                        std::back_inserter(onlyInReadme));
    std::set_difference(forms.begin(), forms.end(), rows.begin(), rows.end(),
                        std::back_inserter(onlyInTable));
    EXPECT_THAT(onlyInReadme, testing::IsEmpty());
    EXPECT_THAT(onlyInTable, testing::IsEmpty());
}

TEST(Verbs, EachVerbIsUniqueAndItsFormsBeginWithIt) {
    std::set<std::string_view> names;
    for (const Verb& verb : verbs()) {
        EXPECT_TRUE(names.insert(verb.name).second) << verb.name;
        EXPECT_FALSE(verb.help.empty()) << verb.name;
        for (const Verb::Help& help : verb.help) {
            EXPECT_EQ(help.form.substr(0, help.form.find(' ')), verb.name) << help.form;
        }
    }
}

/** Lines played on a simulation in this process, to look at what they changed. */
class VerbTest : public testing::Test {
  protected:
    VerbTest() {
        setenv("CORVID_WIFI_ROOT", folder_.path().c_str(), 1);
        recorder_.addSink([this](const Record& record) { records_.push_back(record); });
        simulation_ = std::make_unique<Simulation>(loop_, recorder_, ProgramPaths{});
        play("supplicant start");
    }
    ~VerbTest() override {
        simulation_.reset();
        unsetenv("CORVID_WIFI_ROOT");
    }

    void play(const std::string& line) {
        std::optional<std::string> answer;
        simulation_->perform(*parseLine(line, 1),
                             [&](const std::string& error) { answer = error; });
        EXPECT_EQ(answer, "") << line;
    }

    /** The text of the event that the line sends. */
    std::string sent(const std::string& line) {
        play(line);
        return records_.back().kind == "event" ? records_.back().text : "no event";
    }

    std::string propertyFile(const std::string& name) const {
        std::ifstream in(folder_.path() + "/dev/__properties__/" + name, std::ios::binary);
        return in ? std::string(std::istreambuf_iterator<char>(in), {}) : "no file";
    }

    simtest::TempFolder folder_;
    EventLoop loop_;
    Recorder recorder_;
    std::vector<Record> records_;
    std::unique_ptr<Simulation> simulation_;
};

TEST_F(VerbTest, UnitsMayBeWrittenOut) {
    play("connect freq=5180MHz width=80MHz rssi=-48dBm");
    ASSERT_TRUE(simulation_->radio.sta);
    EXPECT_EQ(simulation_->radio.sta->frequencyMHz, 5180);
    EXPECT_EQ(simulation_->radio.sta->width, Width::MHz80);
    EXPECT_EQ(simulation_->radio.signal.dbm(EventLoop::Clock::now()), -48);
}

TEST_F(VerbTest, WalkGoesFromOneSignalToTheOtherInItsTime) {
    const auto begin = EventLoop::Clock::now();
    play("rssi from -40 to -80dBm over 800s");
    const Signal& signal = simulation_->radio.signal;
    EXPECT_EQ(signal.dbm(begin), -40);
    EXPECT_GT(signal.dbm(begin + 700s), -80);
    EXPECT_EQ(signal.dbm(EventLoop::Clock::now() + 800s), -80);
}

TEST_F(VerbTest, SpeedShortensTheWalk) {
    simulation_->speed = 100;
    play("rssi from -40 to -80 over 800s");
    EXPECT_EQ(simulation_->radio.signal.dbm(EventLoop::Clock::now() + 8s), -80);
}

TEST_F(VerbTest, EventTextMayStandWithoutQuotes) {
    EXPECT_EQ(sent("event wlan0 P2P-X ssid=\"a b\"  c # comment"), "<3>P2P-X ssid=\"a b\"  c");
    EXPECT_EQ(sent("event wlan0 \"CTRL-EVENT-SCAN-RESULTS \""), "<3>CTRL-EVENT-SCAN-RESULTS ");
}

TEST_F(VerbTest, RawBytesAreSentAsTheyAre) {
    EXPECT_EQ(sent(R"(raw wlan0 "\x00\xff\n\"#")"), std::string("\0\xff\n\"#", 5));
    EXPECT_EQ(sent("raw wlan0 size=3 fill=0x42"), "BBB");
    EXPECT_EQ(sent("raw wlan0 size=0"), "");
}

TEST_F(VerbTest, QuotedPropertyValueMayBeEmptyOrHoldBlanks) {
    play("property a.b \"\"");
    EXPECT_EQ(propertyFile("a.b"), "");
    play("property a.b \" 0x1F\"");
    EXPECT_EQ(propertyFile("a.b"), " 0x1F");
    play("property a.b true");
    EXPECT_EQ(propertyFile("a.b"), "true");
    play("unset a.b");
    EXPECT_EQ(propertyFile("a.b"), "no file");
}

}  // namespace
