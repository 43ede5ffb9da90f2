// corvid-wifi record, with a service that answers what it is told.

#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/support/Program.h"
#include "tests/tools/Client.h"

namespace {

using ::nlohmann::json;
using ::test::Client;
using ::test::Outcome;
using ::test::Program;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

class Record : public Client {
  protected:
    std::string file() const { return root_ + "/walk.jsonl"; }

    void setProperty(const std::string& name, const std::string& value) const {
        std::filesystem::create_directories(root_ + "/dev/__properties__");
        std::ofstream(root_ + "/dev/__properties__/" + name) << value << "\n";
    }

    /** Has the service do something while it is asked for samples. */
    void tellBetweenCalls(const std::string& line) {
        service_->writeLine(line);
        expectCall("ok");
    }

    /** Waits until the service prints this line. */
    void expectCall(const std::string& expected) {
        std::optional<std::string> line = service_->readLine();
        while (line && *line != expected) {
            line = service_->readLine();
        }
        ASSERT_TRUE(line) << "no " << expected;
    }

    /** Starts a recording to standard output, and reads up to the service's start. */
    void startRecording(const std::vector<std::string>& options = {}) {
        std::vector<std::string> words = {"record", "-", "--interval", "100ms"};
        words.insert(words.end(), options.begin(), options.end());
        recording_ = start(words);
        header_ = next("header");
        EXPECT_EQ(next("daemon")["state"], "started");
    }

    /** The next record of that type. */
    json next(const std::string& type) {
        while (const std::optional<std::string> line = recording_->readLine()) {
            json record = json::parse(*line);
            if (record["type"] == type) {
                return record;
            }
        }
        ADD_FAILURE() << "no " << type << ": " << recording_->readError();
        return {};
    }

    /** The next sample that is not `previous`. */
    json nextSampleAfter(const json& previous) {
        json sample = next("sample");
        while (!sample.is_null() && sample["sta"] == previous["sta"] &&
               sample["p2p"] == previous["p2p"]) {
            sample = next("sample");
        }
        return sample;
    }

    static std::vector<json> linesOf(const std::string& text) {
        EXPECT_THAT(text, EndsWith("\n"));
        std::vector<json> lines;
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);) {
            lines.push_back(json::parse(line));
        }
        return lines;
    }

    static std::string read(const std::string& path) {
        std::ifstream in(path);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    std::unique_ptr<Program> recording_;
    json header_;
};

TEST_F(Record, HeaderSaysWhatIsRecordedWithEveryPropertyOfTheDaemon) {
    setProperty("persist.vendor.wifi.txpower.rssi.upper", "-50");
    setProperty("log.tag.CorvidWifi", "V");
    setProperty("ro.serialno", "secret");
    startService();
    startRecording({"--label", "stairs \"up\""});
    EXPECT_EQ(header_["format"], "corvid-trace");
    EXPECT_EQ(header_["version"], 1);
    EXPECT_EQ(header_["source"], "record");
    EXPECT_EQ(header_["made_by"], "corvid-wifi record");
    EXPECT_TRUE(header_["tool_version"].is_string());
    EXPECT_EQ(header_["label"], "stairs \"up\"");
    EXPECT_EQ(header_["interval_s"], 0.1);
    EXPECT_EQ(header_["interfaces"]["sta"], "wlan0");
    EXPECT_EQ(header_["properties"], json::parse(R"({"log.tag.CorvidWifi":"V",
        "persist.vendor.wifi.txpower.rssi.upper":"-50"})"));
    EXPECT_GT(header_["start_wall"], 1.7e9);
}

TEST_F(Record, SampleHasLinkAndGroupWithBothTimes) {
    startService();
    tell("sta 5180 -58 3");
    tell("p2p 2437 80");
    startRecording();
    json sample = next("sample");
    EXPECT_EQ(sample["sta"],
              json::parse(R"({"frequency_mhz":5180,"rssi_dbm":-58,"bandwidth_mhz":80})"));
    EXPECT_EQ(sample["p2p"], json::parse(R"({"frequency_mhz":2437,"bandwidth_mhz":80})"));
    EXPECT_GT(sample["wall"], header_["start_wall"]);
    const json later = next("sample");
    EXPECT_GT(later["t"], sample["t"]);
    EXPECT_GT(later["wall"], sample["wall"]);
}

TEST_F(Record, UnknownValuesAreNull) {
    startService();
    startRecording();
    json sample = next("sample");
    EXPECT_TRUE(sample["sta"].is_null());
    EXPECT_TRUE(sample["p2p"].is_null());
    tellBetweenCalls("p2p 2437 -1");
    sample = nextSampleAfter(sample);
    EXPECT_EQ(sample["p2p"], json::parse(R"({"frequency_mhz":2437,"bandwidth_mhz":null})"));
    tellBetweenCalls("sta 5180 -1 0");
    sample = nextSampleAfter(sample);
    EXPECT_EQ(sample["sta"],
              json::parse(R"({"frequency_mhz":5180,"rssi_dbm":null,"bandwidth_mhz":null})"));
}

TEST_F(Record, EachWidthIsInMegahertz) {
    startService();
    startRecording();
    json sample = next("sample");
    const json widths[] = {20, 40, 80, "80+80", 160, nullptr};
    int code = 0;
    for (const json& width : widths) {
        tellBetweenCalls("sta 5180 -58 " + std::to_string(++code));
        sample = nextSampleAfter(sample);
        EXPECT_EQ(sample["sta"]["bandwidth_mhz"], width) << code;
    }
}

TEST_F(Record, CallbacksAreWrittenWithTheirFields) {
    startService();
    startRecording();
    tellBetweenCalls("channel 5180 80 true");
    json callback = next("callback");
    EXPECT_EQ(callback["event"], "onChannelSwitch");
    EXPECT_EQ(callback["frequency"], 5180);
    EXPECT_EQ(callback["width"], 80);
    EXPECT_EQ(callback["isP2p"], true);
    tellBetweenCalls("assoc");
    EXPECT_EQ(next("callback")["event"], "onAssocStarted");
    tellBetweenCalls("regdom 55534552 434f554e545259 5553");
    callback = next("callback");
    EXPECT_EQ(callback["event"], "onRegdomUpdated");
    EXPECT_EQ(callback["type"], "callback");
    EXPECT_EQ(callback["regdomType"], "COUNTRY");
    EXPECT_EQ(callback["alpha2"], "US");
}

TEST_F(Record, SigintAndSigtermUnregisterAndEndWith0) {
    startService();
    for (const int number : {SIGINT, SIGTERM}) {
        startRecording();
        recording_->signal(number);
        EXPECT_EQ(next("end")["reason"], "interrupted");
        EXPECT_THAT(recording_->readOutput(), IsEmpty());
        EXPECT_EQ(recording_->wait(), 0);
        expectCall("unregister");
    }
}

TEST_F(Record, EndsAfterItsTime) {
    startService();
    const Outcome result = run({"record", file(), "--interval", "100ms", "--until", "250ms"});
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_THAT(result.output, IsEmpty());
    EXPECT_THAT(result.error, HasSubstr("600 of each per minute"));
    const std::vector<json> lines = linesOf(read(file()));
    EXPECT_EQ(lines.front()["label"], "walk");
    EXPECT_EQ(lines.back()["type"], "end");
    EXPECT_EQ(lines.back()["reason"], "duration");
    double last = 0;
    for (size_t i = 1; i < lines.size(); ++i) {
        EXPECT_GE(lines[i]["t"], last);
        last = lines[i]["t"];
    }
}

TEST_F(Record, GoesOnWithTheNextServiceWhenOneDies) {
    startService();
    tell("sta 5180 -58 3");
    startRecording();
    next("sample");
    service_->signal(SIGKILL);
    EXPECT_EQ(next("daemon")["state"], "ended");
    setProperty("persist.vendor.wifi.scs.enable", "true");
    startService();
    const json started = next("daemon");
    EXPECT_EQ(started["state"], "started");
    EXPECT_EQ(started["properties"], json::parse(R"({"persist.vendor.wifi.scs.enable":"true"})"));
    tellBetweenCalls("assoc");
    EXPECT_EQ(next("callback")["event"], "onAssocStarted");
    next("sample");
    recording_->signal(SIGTERM);
    EXPECT_EQ(recording_->wait(), 0);
}

TEST_F(Record, ServiceThatDiesInACallIsNotAnsweredAndIsLookedForAgain) {
    startService();
    startRecording();
    service_->writeLine("die");
    EXPECT_EQ(next("daemon")["state"], "ended");
    startService();
    EXPECT_EQ(next("daemon")["state"], "started");
}

TEST_F(Record, WaitsForAServiceThatIsNotThereYet) {
    recording_ = start({"record", "-", "--interval", "100ms"});
    next("header");
    recording_->readErrorLine();  // what it costs the daemon
    EXPECT_THAT(recording_->readErrorLine().value_or(""), HasSubstr("not available; waiting"));
    startService();
    EXPECT_EQ(next("daemon")["state"], "started");
    next("sample");
    recording_->signal(SIGTERM);
    EXPECT_EQ(recording_->wait(), 0);
}

TEST_F(Record, WithoutAnyServiceEndsWith3) {
    const Outcome result = run({"record", file(), "--until", "10ms"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(linesOf(read(file())).size(), 2U);
}

TEST_F(Record, ServiceThatRefusesTheCallbackIsSaidAndAskedAgain) {
    startService();
    tell("status 1");
    recording_ = start({"record", "-", "--interval", "100ms"});
    expectCall("register");
    expectCall("register");
    tellBetweenCalls("status 0");
    EXPECT_EQ(next("daemon")["state"], "started");
    recording_->signal(SIGTERM);
    EXPECT_EQ(recording_->wait(), 0);
    EXPECT_THAT(recording_->readError(), HasSubstr("the service refused the callback (code 1)"));
}

TEST_F(Record, FileThatIsThereIsKeptUnlessForced) {
    startService();
    std::ofstream(file()) << "mine";
    const Outcome refused = run({"record", file(), "--until", "1ms"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.error, HasSubstr("walk.jsonl: the file is there already; --force"));
    EXPECT_EQ(read(file()), "mine");
    EXPECT_EQ(run({"record", file(), "--until", "1ms", "--force"}).status, 0);
    EXPECT_THAT(read(file()), StartsWith("{"));
}

TEST_F(Record, FileThatCannotBeMadeEndsWith1) {
    const Outcome result = run({"record", root_ + "/nowhere/walk.jsonl"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.error, HasSubstr("/nowhere/walk.jsonl: No such file or directory"));
}

TEST_F(Record, FileThatMayNotGrowEndsWith1AndIsWholeUpToItsLastLine) {
    startService();
    const std::string client = CORVID_WIFI;
    // The limit, 512 or 1024 bytes each, falls into the middle of a line.
    Program shell({"/bin/sh", "-c",
                   "ulimit -f 3; exec '" + client + "' record '" + file() + "' --interval 100ms"},
                  options_);
    EXPECT_EQ(shell.wait(), 1);
    EXPECT_THAT(shell.readError(), HasSubstr("File too large; it is whole up to its last line"));
    const std::vector<json> lines = linesOf(read(file()));
    EXPECT_GT(lines.size(), 3U);
    EXPECT_EQ(lines.back()["type"], "sample");
}

TEST_F(Record, ReaderThatGoesAwayEndsItQuietlyAfterItHasUnregistered) {
    startService();
    startRecording();
    recording_->closeOutput();
    EXPECT_EQ(recording_->wait(), 128 + SIGPIPE);
    expectCall("unregister");
    EXPECT_THAT(recording_->readError(), Not(HasSubstr("Broken pipe")));
}

TEST_F(Record, ServiceThatHangsHoldsTheEndUpNoLongerThanTheTimeout) {
    startService();
    startRecording({"--timeout", "200ms"});
    next("sample");
    service_->signal(SIGSTOP);
    recording_->signal(SIGTERM);
    EXPECT_EQ(recording_->wait(), 5);
    service_->signal(SIGCONT);
    EXPECT_THAT(recording_->readError(), HasSubstr("did not answer within 0.2 s"));
}

TEST_F(Record, WrongUsageEndsWith2AndSaysWhatIsAllowed) {
    const struct {
        std::vector<std::string> words;
        std::string said;
    } cases[] = {
        {{}, "record takes 1 argument, not 0: record FILE"},
        {{"a", "b"}, "record takes 1 argument, not 2"},
        {{""}, "FILE is empty; allowed is a path"},
        {{"a", "--fast"}, "there is no option --fast"},
        {{"a", "--interval"}, "--interval needs a value"},
        {{"a", "--interval", "99ms"}, "--interval is \"99ms\"; allowed is 100ms and longer"},
        {{"a", "--interval", "s"}, "--interval is \"s\"; allowed is a time such as"},
        {{"a", "--until", "-1s"}, "--until is \"-1s\""},
    };
    for (const auto& wrong : cases) {
        std::vector<std::string> words = {"record"};
        words.insert(words.end(), wrong.words.begin(), wrong.words.end());
        const Outcome result = run(words);
        EXPECT_EQ(result.status, 2) << result.error;
        EXPECT_THAT(result.error, HasSubstr(wrong.said));
    }
    EXPECT_FALSE(std::filesystem::exists("a"));
}

}  // namespace
