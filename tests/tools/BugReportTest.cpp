// The parts of which a bug report is made: commands with their limits, and stand-ins for names.

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <thread>

#include <android-base/unique_fd.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "tests/support/Program.h"
#include "tests/support/TempFolder.h"
#include "tests/tools/Client.h"
#include "tools/Anonymizer.h"
#include "tools/BugReport.h"
#include "tools/Json.h"
#include "tools/RunCommand.h"
#include "tools/WakeFd.h"

using namespace ::Ursa::OS::Wifi::Tools;
using namespace std::chrono_literals;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
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

TEST(RunCommand, CommandThatClosesItsOutputsAndRunsOnIsKilled) {
    const auto begin = std::chrono::steady_clock::now();
    const CommandResult result =
        runCommand({"sh", "-c", "exec >/dev/null 2>&1; sleep 1000"}, kSize, 200ms);
    EXPECT_EQ(result.failure, "not ended within 1 s");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 100s);
}

TEST(RunCommand, CommandIsKilledWhenItIsToStop) {
    const WakeFd stop;
    stop.wake();
    for (const char* script : {"sleep 1000", "exec >/dev/null 2>&1; sleep 1000"}) {
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(runCommand({"sh", "-c", script}, kSize, 1000s, stop.fd()).failure, "interrupted");
        EXPECT_LT(std::chrono::steady_clock::now() - begin, 100s);
    }
}

TEST(RunCommand, OutputIsCutAtTheSize) {
    const CommandResult result = runCommand({"sh", "-c", "yes | head -c 5000"}, kSize, 10s);
    EXPECT_EQ(result.output.size(), kSize);
    EXPECT_EQ(result.failure, "cut at 1000 bytes");
}

/** Leaves a socket file in the supplicant's folder below the root. */
void makeSocket(const std::string& root, const std::string& name) {
    const std::string folder = root + "/data/vendor/wifi/wpa/sockets";
    std::filesystem::create_directories(folder);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::string path = folder + "/" + name;
    ASSERT_LT(path.size(), sizeof(address.sun_path));
    path.copy(address.sun_path, path.size());
    const ::android::base::unique_fd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
}

TEST(BugReport, ItemsHoldFiveMegabytesAndTakeAMinuteAtMost) {
    const ::test::TempFolder root;
    for (const char* name : {"wlan0", "p2p0", "p2p-wlan0-0", "wlan1", "wlan2"}) {
        makeSocket(root.path(), name);
    }
    setenv("CORVID_WIFI_ROOT", root.path().c_str(), 1);
    size_t size = 0;
    std::chrono::milliseconds limit{0};
    for (const BugReportItem& item : bugReportItems()) {
        size += item.size;
        limit += item.limit;
    }
    EXPECT_LE(size, 5'000'000U);
    EXPECT_LE(limit, 60s);
}

using ClientBugReport = ::test::Client;

bool isAsleep(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    const std::string text((std::istreambuf_iterator<char>(file)), {});
    return text.find(") S ") != std::string::npos;
}

TEST_F(ClientBugReport, ItemThatCannotBeWrittenIsNamed) {
    const std::string folder = root_ + "/data/misc/stats";
    std::filesystem::create_directories(folder);
    std::ofstream(folder + "/atoms.jsonl") << std::string(50'000, 'x');
    options_.environment.push_back("TMPDIR=" + root_);
    // Files of a few KB at most; the archive goes to a device, which has no limit.
    ::test::Program limited({"/bin/sh", "-c",
                             std::string("ulimit -f 8; trap '' XFSZ; exec '") + CORVID_WIFI +
                                 "' bugreport --json -o /dev/null"},
                            options_);
    const Json made = Json::parse(limited.readOutput());
    EXPECT_EQ(limited.wait(), 0);
    Json atoms;
    for (const Json& item : made["items"]) {
        atoms = item["name"] == "atoms.jsonl" ? item : atoms;
    }
    EXPECT_EQ(atoms["state"], "not written: File too large");
}

/** A bug report where these programs are found before the machine's own. */
class ClientBugReportWith : public ::test::Client {
  protected:
    ClientBugReportWith() {
        std::filesystem::create_directory(root_ + "/bin");
        options_.environment.push_back("PATH=" + root_ + "/bin:/usr/bin:/bin");
    }

    void script(const std::string& name, const std::string& text) {
        const std::string path = root_ + "/bin/" + name;
        std::ofstream(path) << "#!/bin/sh\n" << text << "\n";
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    }

    /** Makes one, and unpacks it. */
    void report() {
        const std::string file = root_ + "/report.tar.gz";
        const auto made = run({"bugreport", "--json", "-o", file});
        ASSERT_EQ(made.status, 0) << made.error;
        const Json told = Json::parse(made.output);
        for (const Json& item : told["items"]) {
            states_[item["name"]] = item["state"];
        }
        ASSERT_EQ(std::system(("tar -xzf " + file + " -C " + root_).c_str()), 0);
    }

    std::string text(const std::string& name) const {
        std::ifstream file(root_ + "/corvid-wifi-bugreport/" + name);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    std::map<std::string, std::string> states_;
};

TEST_F(ClientBugReportWith, LogsAreTheJournalsWhereThereIsNoLogcat) {
    script("journalctl", "echo \"journal: $*\"");
    report();
    EXPECT_EQ(states_["daemon.log"], "complete");
    EXPECT_THAT(text("daemon.log"),
                HasSubstr("--identifier=vendor.corvid.hardware.wifi@1.0-service"));
    EXPECT_THAT(text("supplicant.log"), HasSubstr("--identifier=wpa_supplicant"));
}

TEST_F(ClientBugReportWith, LogcatGoesBeforeTheJournal) {
    script("logcat", "echo \"logcat: $*\"");
    script("journalctl", "echo \"journal: $*\"");
    report();
    EXPECT_THAT(text("daemon.log"), HasSubstr("logcat: -d -t 5000 -s CorvidWifi"));
}

TEST_F(ClientBugReportWith, JournalThatFailsOrIsEmptySaysSo) {
    script("journalctl", "case $* in *wpa_supplicant) exit 0 ;; esac; echo no journal; exit 1");
    report();
    EXPECT_EQ(states_["daemon.log"], "there is no logcat here; journalctl: status 1");
    EXPECT_EQ(text("daemon.log"), "no journal\n");
    EXPECT_EQ(states_["supplicant.log"], "there is nothing in it");
}

TEST_F(ClientBugReportWith, SupplicantThatHangsHidesNeitherTheFolderNorTheOtherSocket) {
    makeSocket(root_, "p2p0");
    makeSocket(root_, "wlan0");
    script("wpa_cli", "case $* in *p2p0*) exec sleep 1000 ;; esac; echo wpa_state=COMPLETED");
    report();
    EXPECT_EQ(states_["sockets.txt"], "complete");
    EXPECT_THAT(text("sockets.txt"), HasSubstr("wlan0"));
    EXPECT_EQ(states_["supplicant-p2p0.txt"], "not ended within 2 s");
    EXPECT_EQ(states_["supplicant-wlan0.txt"], "complete");
    EXPECT_EQ(text("supplicant-wlan0.txt"), "wpa_state=COMPLETED\n");
}

TEST_F(ClientBugReport, FileThatCannotBeWrittenIsRefusedBeforeAnythingIsAsked) {
    startService();
    service_->signal(SIGSTOP);  // whatever asks it waits
    const auto made = run({"bugreport", "-o", root_ + "/nowhere/report.tar.gz"});
    EXPECT_EQ(made.status, 1);
    EXPECT_EQ(made.error,
              "corvid-wifi: " + root_ +
                  "/nowhere/report.tar.gz can't be written: No such file or directory\n");
    EXPECT_THAT(made.output, IsEmpty());
}

TEST_F(ClientBugReport, NameWithAColonIsAFileOfThisMachine) {
    const std::string folder = root_ + "/reports";
    std::filesystem::create_directory(folder);
    ::test::Program report(
        {"/bin/sh", "-c",
         "cd '" + folder + "'; exec '" CORVID_WIFI "' bugreport --json -o 12:30.tar.gz"},
        options_);
    report.readOutput();
    EXPECT_EQ(report.wait(), 0);
    EXPECT_GT(std::filesystem::file_size(folder + "/12:30.tar.gz"), 0U);
}

TEST_F(ClientBugReport, InterruptedReportLeavesNothingBehind) {
    startService();
    service_->signal(SIGSTOP);  // the first item waits for it
    const std::string folder = root_ + "/tmp";
    std::filesystem::create_directory(folder);
    options_.environment.push_back("TMPDIR=" + folder);
    const auto report = start({"bugreport", "-o", root_ + "/report.tar.gz"});
    // The report's own folder: the thread sanitizer puts a file there for a moment at its start,
    // and loses signals that come in the middle of fork().
    const auto hasBegun = [&] {
        return std::any_of(std::filesystem::recursive_directory_iterator(folder), {},
                           [](const auto& entry) {
                               return entry.path().filename() == "corvid-wifi-bugreport";
                           }) &&
               isAsleep(report->pid());
    };
    while (!hasBegun()) {
        std::this_thread::sleep_for(1ms);
    }
    report->signal(SIGINT);
    EXPECT_EQ(report->wait(), 1);
    EXPECT_THAT(report->readError(), HasSubstr("interrupted"));
    EXPECT_TRUE(std::filesystem::is_empty(folder));
    EXPECT_FALSE(std::filesystem::exists(root_ + "/report.tar.gz"));
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

TEST(Anonymizer, NameWithBlanksCommasAndQuotesIsReplacedAsAWhole) {
    Anonymizer anonymizer;
    EXPECT_EQ(anonymizer.text("ssid=Home, sweet \"Home\"\nid=0\n"), "ssid=ssid-1\nid=0\n");
    EXPECT_EQ(anonymizer.text("ssid=\"Home, sweet \\\"Home\\\"\" freq=2437"),
              "ssid=\"ssid-2\" freq=2437");
    EXPECT_EQ(anonymizer.text("(SSID='Bob's, his' freq=5180 MHz)"),
              "(SSID='ssid-3' freq=5180 MHz)");
    EXPECT_EQ(anonymizer.text("Trying to associate with SSID 'Net'"),
              "Trying to associate with SSID 'ssid-4'");
    EXPECT_EQ(anonymizer.text("\t\tssid Cafe Net\n"), "\t\tssid ssid-5\n") << "as iw shows it";
    EXPECT_EQ(anonymizer.text("GROUP-STARTED p2p0 GO ssid=\"DIRECT-a\n"),
              "GROUP-STARTED p2p0 GO ssid=\"ssid-6\n")
        << "cut off";
}

TEST(Anonymizer, SecretWithBlanksIsReplacedAsAWhole) {
    Anonymizer anonymizer;
    EXPECT_EQ(anonymizer.text("passphrase=\"open the door\" go_dev_addr=02:00:00:00:01:00"),
              "passphrase=\"secret\" go_dev_addr=02:00:00:00:00:01");
    EXPECT_EQ(anonymizer.text("passphrase=open the door\nid=0"), "passphrase=secret\nid=0");
    EXPECT_EQ(anonymizer.text("psk=" + std::string(64, 'a') + " freq=2437"),
              "psk=secret freq=2437");
    EXPECT_EQ(anonymizer.text("key_mgmt=WPA2-PSK\nssid=\nid=0"), "key_mgmt=WPA2-PSK\nssid=\nid=0");
}

TEST(Anonymizer, JsonStaysJson) {
    Anonymizer anonymizer;
    const Json report = {
        {"schema", 1},
        {"ssid", "Home Net"},
        {"none", nullptr},
        {"entries",
         {{{"text", "GROUP-STARTED p2p0 GO ssid=\"DIRECT-ab cd\" freq=2437"}},
          {{"reply", "bssid=02:11:22:33:44:55\nssid=Home Net\nid=0"}, {"passphrase", "a b"}}}}};
    const std::string text = anonymizer.text(report.dump() + "\nssid=DIRECT-ab cd\n");
    const Json expected = {
        {"schema", 1},
        {"ssid", "ssid-1"},
        {"none", nullptr},
        {"entries",
         {{{"text", "GROUP-STARTED p2p0 GO ssid=\"ssid-2\" freq=2437"}},
          {{"reply", "bssid=02:00:00:00:00:01\nssid=ssid-1\nid=0"}, {"passphrase", "secret"}}}}};
    EXPECT_EQ(text, expected.dump() + "\nssid=ssid-2\n");
}

TEST(Anonymizer, JsonThatIsCutOffKeepsNoName) {
    Anonymizer anonymizer;
    const std::string line = R"({"text":"GO ssid=\"DIRECT-ab\" freq=2437","reply":"ssid=Net\nid)";
    EXPECT_THAT(anonymizer.text(line), Not(HasSubstr("DIRECT")));
    EXPECT_THAT(anonymizer.text(line), Not(HasSubstr("Net")));
    EXPECT_THAT(anonymizer.text(line), HasSubstr(" freq=2437"));
}

TEST(Anonymizer, LineOfAMegabyteIsNoTrouble) {
    Anonymizer anonymizer;
    EXPECT_EQ(anonymizer.text("ssid=" + std::string(1'000'000, 'x') + "\nid=0"),
              "ssid=ssid-1\nid=0");
}

}  // namespace
