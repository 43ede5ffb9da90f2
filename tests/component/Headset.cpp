#include "tests/component/Headset.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <ostream>
#include <stdexcept>
#include <thread>
#include <utility>

#include "tests/component/Features.h"
#include "tests/support/WaitUntil.h"

namespace component {

using simtest::SimRecord;

namespace {

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

bool isRecord(const SimRecord& record, const std::string& kind, const std::string& text) {
    return record.kind() == kind && contains(record.socket() + " " + record.text(), text);
}

}  // namespace

std::vector<std::string> controlClientFiles(pid_t pid) {
    const std::string name = "wpa_ctrl_" + std::to_string(pid) + "-";
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator("/tmp")) {
        if (entry.path().filename().string().rfind(name, 0) == 0) {
            files.push_back(entry.path());
        }
    }
    return files;
}

std::string daemonPath() {
    const char* const other = std::getenv("CORVID_DAEMON");
    return other != nullptr ? other : CORVID_DAEMON_PATH;
}
std::string clientPath() { return CORVID_CLIENT_PATH; }

std::ostream& operator<<(std::ostream& out, const LogLine& line) {
    return out << line.level << " " << line.text;
}

Headset::Headset(const std::string& daemon) : sim_({"--daemon", daemon}) {}

Headset::~Headset() {
    checkDaemonOutput();
    killDaemon();
    if (::testing::Test::HasFailure()) {
        // What led there, for whoever reads the failure.
        std::string last;
        const auto records = sim_.records();
        for (size_t i = records.size() > 60 ? records.size() - 60 : 0; i < records.size(); ++i) {
            last += records[i].kind() + " " + records[i].socket() + " " + records[i]["level"] +
                    " " + records[i].text().substr(0, 300) + "\n";
        }
        GTEST_LOG_(INFO) << "The last of what happened:\n" << last;
    }
}

void Headset::checkDaemonOutput() {
    for (const SimRecord& record : sim_.records("output")) {
        if (record["program"] != "corvid-wifi") {
            ADD_FAILURE() << record["program"] << " printed: " << record.text();
        }
    }
    // What a sanitizer prints behind a line of the log counts as a part of that.
    for (const SimRecord& record : sim_.records("log")) {
        for (const char* report : {"Sanitizer", "runtime error:"}) {
            EXPECT_FALSE(contains(record.text(), report)) << record.text();
        }
    }
    if (!daemonMayEnd_) {
        const auto end = daemonEnd();
        EXPECT_FALSE(end) << end->text();
    }
}

std::optional<SimRecord> Headset::daemonEnd() {
    for (const SimRecord& record : sim_.records("program")) {
        if (contains(record.text(), "the daemon ended") ||
            contains(record.text(), "the daemon was killed")) {
            return record;
        }
    }
    return std::nullopt;
}

void Headset::play(const std::string& line) {
    const std::string error = sim_.play(line);
    ASSERT_EQ(error, "") << "refused: " << line;
}

void Headset::playAll(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
        play(line);
    }
}

void Headset::launchDaemon() {
    forget();
    play("daemon start");
    const SimRecord started = expectRecord("program", "the daemon was started");
    daemonPid_ = std::stoi("0" + started["pid"]);
}

void Headset::killDaemon() {
    if (daemonPid_ <= 0) {
        return;
    }
    sim_.play("daemon kill");  // an error says that it does not run any more
    for (const std::string& file : controlClientFiles(daemonPid_)) {
        unlink(file.c_str());
    }
    daemonPid_ = -1;
}

void Headset::startDaemon() {
    launchDaemon();
    // Registration leaves no line in the log: ask until there is an answer.
    const auto deadline = std::chrono::steady_clock::now() + test::kPatience;
    while (call("getP2pInfo").status == 3) {
        ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "the daemon does not register";
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

void Headset::startWithEveryFeature() {
    playAll(everythingOn());
    playAll({"stats start", "supplicant start p2p=p2p0"});
    startDaemon();
    expectConnection("wlan0");
    expectConnection("p2p0");
}

int Headset::runDaemonToItsEnd() {
    daemonMayEnd_ = true;
    play("daemon start");
    const SimRecord end = expectRecord("program", "the daemon ended");
    const std::string text = end.text();
    const std::string before = "the daemon ended with status ";
    return text.rfind(before, 0) == 0 ? std::stoi(text.substr(before.size())) : -1;
}

ProcessFigures Headset::daemonFigures() const {
    ProcessFigures figures(daemonPid_);
    // Threads are looked at one after the other: one that was asleep may be awake by the time that
    // the one which woke it sleeps. Then it has slept once more when it is looked at again.
    EXPECT_TRUE(test::waitUntil([&] {
        const ProcessFigures before = std::exchange(figures, ProcessFigures(daemonPid_));
        return before.asleep() && figures.asleep() && figures.wakeUps() == before.wakeUps();
    })) << "the daemon does not come to rest";
    return figures;
}

void Headset::expectConnection(const std::string& socket) {
    expectLog("I", "Connected to supplicant socket: " + socketFolder() + "/" + socket);
}

Answer Headset::call(const std::string& methodAndArguments) {
    const size_t before = sim_.records("call").size();
    play("call " + methodAndArguments);
    const auto calls = sim_.records("call");
    if (calls.size() <= before) {
        return {};
    }
    return {std::stoi(calls.back()["status"]), calls.back()["output"]};
}

std::string Headset::dump() {
    const size_t before = sim_.records("call").size();
    play("dump");
    const auto calls = sim_.records("call");
    return calls.size() > before ? calls.back()["output"] + "\n" : "";
}

void Headset::expectLog(const std::string& level, const std::string& text,
                        std::chrono::milliseconds limit) {
    const auto found = sim_.waitFor(
        [&](const SimRecord& record) {
            return isRecord(record, "log", text) && record["level"] == level;
        },
        limit);
    ASSERT_TRUE(found) << "the daemon did not log " << level << " " << text;
}

SimRecord Headset::expectRecord(const std::string& kind, const std::string& text,
                                std::chrono::milliseconds limit) {
    const auto found =
        sim_.waitFor([&](const SimRecord& record) { return isRecord(record, kind, text); }, limit);
    EXPECT_TRUE(found) << "there was no " << kind << " with " << text;
    return found.value_or(SimRecord());
}

void Headset::expectRecords(size_t count, const std::string& kind, const std::string& text,
                            std::chrono::milliseconds limit) {
    size_t found = 0;
    const auto last = sim_.waitFor(
        [&](const SimRecord& record) { return isRecord(record, kind, text) && ++found == count; },
        limit);
    ASSERT_TRUE(last) << "there were " << found << " " << kind << " with " << text << ", not "
                      << count;
}

void Headset::catchUp() {
    // What the test has seen happen, the simulator has; what the daemon wrote before that is in its
    // pipe by then, and the simulator's next turn reads the pipe. A comment costs it one turn.
    play("# nothing");
}

std::vector<LogLine> Headset::log(const std::string& text, const std::string& level) {
    catchUp();
    std::vector<LogLine> lines;
    for (const SimRecord& record : sim_.records("log")) {
        if (contains(record.text(), text) && (level.empty() || record["level"] == level)) {
            lines.push_back({record["level"], record.text()});
        }
    }
    return lines;
}

size_t Headset::count(const std::string& kind, const std::string& text) {
    catchUp();
    const auto records = sim_.records();
    return static_cast<size_t>(
        std::count_if(records.begin(), records.end(),
                      [&](const SimRecord& record) { return isRecord(record, kind, text); }));
}

void Headset::forget() {
    catchUp();
    checkDaemonOutput();
    sim_.forget();
}

void Headset::settle(std::chrono::milliseconds limit) {
    const std::string name = "settle" + std::to_string(++settled_);
    play("assoc started ifname=" + name);
    expectLog("I", "'" + name + "' is not a p2p interface", limit);
}

}  // namespace component
