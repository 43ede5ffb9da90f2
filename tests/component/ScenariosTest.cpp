// The scenarios that ship, played with the daemon as a newcomer plays them.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <ostream>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/component/Headset.h"
#include "tests/sim/SimDriver.h"
#include "tests/support/Emulated.h"

using testing::HasSubstr;
using testing::IsEmpty;

namespace {

struct Play {
    std::string name;
    const char* speed;
};

std::ostream& operator<<(std::ostream& out, const Play& play) {
    return out << play.name << " at " << play.speed;
}

std::vector<Play> allPlays() {
    std::vector<Play> plays;
    for (const auto& entry : std::filesystem::directory_iterator(SCENARIO_FOLDER)) {
        if (entry.path().extension() == ".scn") {
            for (const char* speed : {"1", "3", "10"}) {
                plays.push_back({entry.path().stem(), speed});
            }
        }
    }
    return plays;
}

/** What stands in backquotes in the rows of sim/README.md's table of records, by kind. */
std::map<std::string, std::set<std::string>> documentedRecords() {
    std::map<std::string, std::set<std::string>> fields;
    const std::regex quoted("`([^`]*)`");
    std::ifstream in(SIM_README);
    bool inTable = false;
    for (std::string line; std::getline(in, line);) {
        if (line == "| kind | text | more |") {
            inTable = true;
        } else if (inTable && line.rfind("| ", 0) == 0) {
            std::set<std::string> all;
            for (std::sregex_iterator word(line.begin(), line.end(), quoted), end; word != end;
                 ++word) {
                all.insert((*word)[1]);
            }
            const std::string kinds = line.substr(0, line.find(" | ", 1));
            for (std::sregex_iterator kind(kinds.begin(), kinds.end(), quoted), end; kind != end;
                 ++kind) {
                fields[(*kind)[1]].insert(all.begin(), all.end());
            }
        } else {
            inTable = inTable && line == "|---|---|---|";
        }
    }
    return fields;
}

class Scenarios : public testing::TestWithParam<Play> {};

TEST_P(Scenarios, MeetTheirExpectationsAndRecordWhatIsDocumented) {
    if (CORVID_SANITIZED && GetParam().speed != std::string("1")) {
        GTEST_SKIP() << "a sanitizer makes the daemon too slow for a higher speed";
    }
    // An emulated daemon may need longer than a line leaves it.
    const std::string speed = test::kEmulated ? "0.5" : GetParam().speed;
    const simtest::TempFolder folder;
    const std::string file = SCENARIO_FOLDER "/" + GetParam().name + ".scn";
    const std::string recordFile = folder.path() + "/record.jsonl";
    std::string output;
    EXPECT_EQ(simtest::runSim({"--daemon", component::daemonPath(), "--speed", speed, "--root",
                               folder.path() + "/root", "--record", recordFile, file},
                              output),
              0)
        << output;
    EXPECT_THAT(output, HasSubstr(" expectations met\n"));
    if (GetParam().name != "broken-property") {
        EXPECT_THAT(output, testing::Not(HasSubstr("warning  ")));
    }

    const auto documented = documentedRecords();
    std::set<std::string> undocumented;
    std::ifstream in(recordFile);
    int records = 0;
    for (std::string line; std::getline(in, line); ++records) {
        const auto record = nlohmann::json::parse(line);
        const std::string kind = record["kind"];
        const auto known = documented.find(kind);
        if (known == documented.end()) {
            undocumented.insert(kind);
            continue;
        }
        for (const auto& [field, value] : record.items()) {
            if (field != "t" && field != "kind" && field != "text" && field != "socket" &&
                known->second.count(field) == 0) {
                undocumented.insert(kind + "." + field);
            }
        }
    }
    EXPECT_GT(records, 10);
    EXPECT_THAT(undocumented, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(All, Scenarios, testing::ValuesIn(allPlays()), [](const auto& play) {
    std::string name = play.param.name + "AtSpeed" + play.param.speed;
    name.erase(std::remove(name.begin(), name.end(), '-'), name.end());
    return name;
});

}  // namespace
