#include <chrono>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/Scenario.h"

using namespace sim;
using namespace std::chrono_literals;
using testing::HasSubstr;

namespace {

struct Bad {
    const char* name;
    const char* text;
    int line;
    const char* complaint;
};

std::ostream& operator<<(std::ostream& out, const Bad& bad) { return out << bad.text; }

class BadScenario : public testing::TestWithParam<Bad> {};

TEST_P(BadScenario, IsRefusedWithTheLineAndWhatIsAllowed) {
    const Scenario scenario = parseScenario("x.scn", GetParam().text);
    ASSERT_EQ(scenario.errors.size(), 1u);
    const ScenarioError& error = scenario.errors.front();
    EXPECT_EQ(error.line, GetParam().line) << error.what();
    EXPECT_THAT(error.what(), HasSubstr(GetParam().complaint));
}

const Bad kBad[] = {
    {"UnknownVerb", "\n# a comment\nfly away", 3, "unknown word 'fly'; allowed: property, unset"},
    {"UnknownSecondWord", "supplicant explode", 1,
     "unknown action of the supplicant 'explode'; allowed: start, terminate"},
    {"MissingSecondWord", "p2p", 1, "P2P action is missing; allowed: start, switch, stop, peer"},
    {"MissingArgument", "connect width=80", 1, "'freq' is missing, for example freq=5180MHz"},
    {"MissingText", "event wlan0", 1, "the event's text is missing"},
    {"UnknownKey", "connect freq=5180 colour=red", 1,
     "unknown word 'colour'; allowed (as KEY=VALUE): freq, width"},
    {"KeyWithoutValue", "connect freq=", 1, "'freq' needs a value"},
    {"KeyAsWord", "connect freq 5180", 1, "'freq' needs a value: freq=VALUE"},
    {"KeyTwice", "connect freq=5180 freq=5200", 1, "'freq' is given twice"},
    {"NumberWithLetters", "connect freq=51x0", 1, "'51x0' is not a whole number from 2400 to 7200"},
    {"NumberWithWrongUnit", "connect freq=5180GHz", 1, "(MHz)"},
    {"NumberOutOfRange", "rssi 5", 1, "'5' is not a whole number from -110 to 0 (dBm)"},
    {"FractionOfNumber", "rssi -48.5", 1, "'-48.5' is not a whole number"},
    {"NumberTooLong", "burst wlan0 99999999999999999999 x", 1, "is not a whole number"},
    {"UnknownWidth", "connect freq=5180 width=60", 1, "allowed (MHz): 20, 40, 80, 80+80, 160"},
    {"TimeWithoutUnit", "at 5 scan", 1, "a time is a number with its unit: 250ms, 1.5s, 2min"},
    {"TimeWithUnknownUnit", "at 5h scan", 1, "'5h' is not a time"},
    {"TimeWithTwoDots", "at 1.2.3s scan", 1, "'1.2.3s' is not a time"},
    {"NegativeTime", "at -5s scan", 1, "'-5s' is not a time"},
    {"TimeAlone", "at 5s", 1, "what happens at 5s is missing"},
    {"AtAlone", "at", 1, "the time after 'at' is missing"},
    {"TimeBackwards", "at 5s scan\nat 4.9s scan", 2, "time goes backwards: 4.9s comes after 5"},
    {"WalkWithoutEnd", "rssi from -40 to -80", 1, "word is missing; allowed: over"},
    {"WalkWithWrongWord", "rssi from -40 until -80 over 3s", 1,
     "unknown word 'until'; allowed: to"},
    {"LineTooLong", "disconnect reason=3\nstate now", 2, "unexpected 'now' at the end of the line"},
    {"TextNotEnded", "event wlan0 \"abc", 1, "the closing \" is missing"},
    {"UnknownEscape", "event wlan0 \"a\\q\"", 1, "unknown escape \\q"},
    {"BadHexEscape", "event wlan0 \"\\x4g\"", 1, "two hexadecimal digits"},
    {"SocketNameWithSlash", "socket create ../wlan0", 1, "is not a plain name"},
    {"SocketNameTooLong", "socket create p2p-wlan0-00000000000000000000000000000000", 1,
     "is not a plain name of at most 31 characters"},
    {"PropertyWithoutValue", "property a.b", 1, "the property's value is missing"},
    {"PropertyWithSlash", "property a/b c", 1, "is not a property's name"},
    {"UnknownSensorOperation", "sensors controller.explode ok", 1, "allowed: controller.create"},
    {"SensorBehaviourOfAnother", "sensors camera.notify fail", 1, "allowed: ok, hang"},
    {"UnknownAnswer", "reply STATUS maybe", 1, "allowed: ok, fail, unknown, empty, none"},
    {"ReplyZeroTimes", "reply STATUS ok times=0", 1, "is not a whole number from 1"},
    {"UnknownErrorName", "netlink error vendor EWHAT", 1, "unknown error 'EWHAT'"},
    {"PositiveError", "netlink error vendor 95", 1, "unknown error '95'"},
    {"UnknownRequest", "netlink error scan EBUSY", 1, "allowed: family, interface-dump"},
    {"ErrorAtTheEndOfNoDump", "netlink error vendor EBUSY at-end", 1, "at-end is for the end of"},
    {"UnknownFault", "netlink spoil vendor badly", 1, "allowed: truncated, garbage"},
    {"UnknownReasonGiver", "disconnect by=cat", 1, "allowed: headset, ap"},
    {"UnknownRole", "p2p start freq=5180 role=king", 1, "allowed: GO, client"},
    {"UnknownStyle", "channel switch freq=5180 style=gothic", 1, "allowed: headset, mainline"},
    {"UnknownKindExpected", "expect thunder x within 1s", 1, "unknown kind of record 'thunder'"},
    {"ExpectWithoutTime", "expect event x", 1, "allowed: within"},
    {"SomethingAfterEnd", "end\nscan\nscan", 2, "nothing may follow 'end'"},
    {"VerbWithATypo", "supplicnat start", 1, "'supplicnat' (did you mean 'supplicant'?)"},
    {"SecondWordWithATypo", "p2p strat freq=5180", 1, "'strat' (did you mean 'start'?)"},
    {"KeyWithATypo", "connect ferq=5180", 1, "'ferq' (did you mean 'freq'?)"},
};

INSTANTIATE_TEST_SUITE_P(Scenario, BadScenario, testing::ValuesIn(kBad),
                         [](const auto& bad) { return std::string(bad.param.name); });

TEST(Scenario, EveryLineThatIsNotUnderstoodIsAnError) {
    const Scenario scenario = parseScenario("x", "fly\nscan\nat 1s jump\nat 2s scan\nat x scan\n");
    ASSERT_EQ(scenario.errors.size(), 3u);
    EXPECT_EQ(scenario.errors[0].line, 1);
    EXPECT_EQ(scenario.errors[1].line, 3);
    EXPECT_EQ(scenario.errors[2].line, 5);
    ASSERT_EQ(scenario.steps.size(), 2u);
    EXPECT_EQ(scenario.steps[1].at, 2s);
}

TEST(Scenario, CallIsCheckedByWhoKnowsTheMethods) {
    const LineChecks checks{[](const std::vector<std::string>& words) {
        return words == std::vector<std::string>{"startCsa", "a b"} ? "no channel" : "";
    }};
    const Scenario scenario =
        parseScenario("x", "call startCsa \"a b\"\ncall startCsa 149\n", checks);
    ASSERT_EQ(scenario.errors.size(), 1u);
    EXPECT_EQ(scenario.errors[0].line, 1);
    EXPECT_STREQ(scenario.errors[0].what(), "no channel");
}

struct Doubtful {
    const char* line;
    const char* warning;  ///< Empty: none.
};

TEST(Scenario, PropertyThatTheDaemonPassesOverIsWarnedOf) {
    const Doubtful lines[] = {
        {"property persist.vendor.wifi.txpower.enable.sta true", ""},
        {"property persist.vendor.wifi.txpower.enable.sta FALSE", ""},
        {"property persist.vendor.wifi.txpower.enable.sta 1", ""},
        {"property persist.vendor.wifi.txpower.rssi.upper -55", ""},
        {"property persist.vendor.wifi.txpower.dbm.upper 0x14", ""},
        {"property log.tag.CorvidWifi V", ""},
        {"property debug.sensors.camera.create hang", ""},
        {"property persist.vendor.wifi.txpower.enabel.sta true",
         "the daemon has no property 'persist.vendor.wifi.txpower.enabel.sta' (did you mean "
         "'persist.vendor.wifi.txpower.enable.sta'?)"},
        {"property persist.vendr.wifi.scs.enable true", "did you mean"},
        {"property persist.vendor.wifi.gravity true", "the daemon has no property"},
        {"property persist.vendor.wifi.txpower.enable.sta yes",
         "the daemon takes its default: 'yes' is not true, false, 1 or 0"},
        {"property persist.vendor.wifi.txpower.rssi.upper -55dBm", "is not a whole number"},
        {"property persist.vendor.wifi.txpower.dbm.upper -1", "is not a whole number from 0 on"},
    };
    for (const Doubtful& doubtful : lines) {
        const auto step = parseLine(doubtful.line, 1);
        ASSERT_TRUE(step);
        if (*doubtful.warning == '\0') {
            EXPECT_THAT(step->warnings, testing::IsEmpty()) << doubtful.line;
        } else {
            EXPECT_THAT(step->warnings, testing::ElementsAre(HasSubstr(doubtful.warning)))
                << doubtful.line;
        }
    }
}

TEST(Scenario, EmptyFileHasNoSteps) {
    EXPECT_TRUE(parseScenario("x", "").steps.empty());
    EXPECT_TRUE(parseScenario("x", "\n  \t\r\n# nothing\n   # more\n").steps.empty());
}

TEST(Scenario, LinesBeforeTheFirstTimeArePreparation) {
    const Scenario scenario = parseScenario("x", "scan\nat 0s scan\nscan\n");
    ASSERT_EQ(scenario.steps.size(), 3u);
    EXPECT_TRUE(scenario.steps[0].prepare);
    EXPECT_FALSE(scenario.steps[1].prepare);
    EXPECT_FALSE(scenario.steps[2].prepare);
}

TEST(Scenario, TimesAreAbsoluteOrRelativeToTheLineBefore) {
    const Scenario scenario =
        parseScenario("x", "at 1.5s scan\nat +250ms scan\nscan\nat +0s scan\nat 0.5min scan\n");
    ASSERT_EQ(scenario.steps.size(), 5u);
    EXPECT_EQ(scenario.steps[0].at, 1500ms);
    EXPECT_EQ(scenario.steps[1].at, 1750ms);
    EXPECT_EQ(scenario.steps[2].at, 1750ms);
    EXPECT_EQ(scenario.steps[3].at, 1750ms);
    EXPECT_EQ(scenario.steps[4].at, 30s);
}

TEST(Scenario, StepsKnowTheirLineAndItsTextWithoutTimeAndComment) {
    const Scenario scenario = parseScenario("x", "\n\nat 1s   rssi -60   # falls\n");
    ASSERT_EQ(scenario.steps.size(), 1u);
    EXPECT_EQ(scenario.steps[0].line, 3);
    EXPECT_EQ(scenario.steps[0].text, "rssi -60");
}

TEST(Scenario, LineGivenByHandMustHaveNoTime) {
    EXPECT_FALSE(parseLine("  # nothing", 1));
    EXPECT_EQ(parseLine("rssi -60", 7)->line, 7);
    try {
        parseLine("at 1s scan", 4);
        FAIL() << "it was accepted";
    } catch (const ScenarioError& error) {
        EXPECT_EQ(error.line, 4);
        EXPECT_THAT(error.what(), HasSubstr("a time is for scenario files"));
    }
}

}  // namespace
