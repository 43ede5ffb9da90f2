// The unmodified daemon follows Debian's own wpa_supplicant, with nothing simulated but the wire:
// wired 802.1X over a pair of virtual Ethernet interfaces, one end of which is called wlan0, in a
// network namespace of its own, with hostapd at the other end.

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/ControlChannel.h"
#include "tests/component/Headset.h"
#include "tests/support/Program.h"
#include "tests/support/TempFolder.h"

using namespace std::chrono_literals;
using test::Program;
using testing::AllOf;
using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

using Ursa::OS::Wifi::CommandChannel;
using Ursa::OS::Wifi::RequestResult;

namespace fs = std::filesystem;

/** A network namespace of its own, for programs that are started in it. */
class NetworkNamespace {
  public:
    /** Makes it; without root, as the root of a user namespace. */
    NetworkNamespace() {
        for (const char* options : {"-n", "-Urn"}) {
            holder_ = std::make_unique<Program>(std::vector<std::string>{
                "/usr/bin/unshare", options, "/bin/sh", "-c", "echo there; exec cat"});
            if (holder_->readLine() == "there") {
                enter_ = {"/usr/bin/nsenter", "-t", std::to_string(holder_->pid()), "-n"};
                if (std::string(options) == "-Urn") {
                    enter_.insert(enter_.end(), {"-U", "--preserve-credentials"});
                }
                return;
            }
            problem_ = holder_->readError();
        }
    }

    /** Why there is none; empty when there is. */
    std::string problem() const {
        return enter_.empty() ? "no network namespace: " + problem_ : "";
    }

    std::unique_ptr<Program> start(const std::vector<std::string>& command,
                                   const Program::Options& options = {}) const {
        std::vector<std::string> words = enter_;
        words.insert(words.end(), command.begin(), command.end());
        return std::make_unique<Program>(words, options);
    }

    /** Runs a command to its end; what it had to complain about. */
    std::string run(const std::vector<std::string>& command) const {
        const auto program = start(command);
        const std::string error = program->readError();
        return program->wait() == 0 ? "" : command.front() + ": " + error;
    }

  private:
    std::unique_ptr<Program> holder_;
    std::vector<std::string> enter_;
    std::string problem_;
};

class RealSupplicant : public testing::Test {
  protected:
    void SetUp() override {
        std::string problem = network.problem();
        for (const std::vector<std::string>& command : std::vector<std::vector<std::string>>{
                 {"/sbin/ip", "link", "add", "wlan0", "type", "veth", "peer", "name", "auth0"},
                 {"/sbin/ip", "link", "set", "wlan0", "up"},
                 {"/sbin/ip", "link", "set", "auth0", "up"}}) {
            problem = problem.empty() ? network.run(command) : problem;
        }
        if (!problem.empty()) {
            GTEST_SKIP() << problem;
        }
        for (const char* path : {"dev/hwbinder", "data/vendor/wifi/wpa/sockets"}) {
            fs::create_directories(folder.file(path));
        }
        // On the headset init owns this folder. A supplicant that terminates removes it where it
        // can: a file in it keeps it, as its owner does there.
        write("data/vendor/wifi/wpa/sockets/owned-by-init", "");
        startAuthenticator();
        stats = network.start({CORVID_STATSD_PATH}, environment);
        ASSERT_EQ(stats->readLine(), "ready");
    }

    void TearDown() override {
        if (daemon != nullptr) {
            const pid_t pid = daemon->pid();
            daemon.reset();
            for (const std::string& file : component::controlClientFiles(pid)) {
                fs::remove(file);
            }
        }
    }

    void write(const std::string& path, const std::string& content) const {
        std::ofstream(folder.file(path)) << content;
    }

    void startAuthenticator() {
        write("users", "\"user\" MD5 \"pass\"\n");
        write("hostapd.conf",
              "interface=auth0\ndriver=wired\nieee8021x=1\neap_server=1\nuse_pae_group_addr=1\n"
              "eap_user_file=" +
                  folder.file("users") + "\n");
        authenticator = network.start({"/usr/sbin/hostapd", folder.file("hostapd.conf")});
        for (auto line = authenticator->readLine(); line != "auth0: AP-ENABLED ";
             line = authenticator->readLine()) {
            ASSERT_TRUE(line) << "hostapd ended: " << authenticator->readError();
        }
    }

    void startDaemon() {
        daemon = network.start({"/bin/sh", "-c", "exec \"$0\" 2>&1", component::daemonPath()},
                               environment);
    }

    void startSupplicant() {
        write("wpa.conf", "ctrl_interface=" + folder.file("data/vendor/wifi/wpa/sockets") +
                              "\nap_scan=0\nnetwork={\nkey_mgmt=IEEE8021X\neap=MD5\n"
                              "identity=\"user\"\npassword=\"pass\"\neapol_flags=0\n}\n");
        supplicant = network.start(
            {"/usr/sbin/wpa_supplicant", "-Dwired", "-iwlan0", "-c", folder.file("wpa.conf")});
    }

    /** Has the supplicant do something, as a person at a shell would. */
    void tellSupplicant(const std::string& command) {
        ASSERT_EQ(
            network.run({"/usr/sbin/wpa_cli", "-p", folder.file("data/vendor/wifi/wpa/sockets"),
                         "-i", "wlan0", command}),
            "");
    }

    /** Reads the daemon's log up to a line with `text`; all that was read. */
    std::string readLogUpTo(const std::string& text) {
        std::string read;
        for (auto line = daemon->readLine(); line; line = daemon->readLine()) {
            read += *line + "\n";
            EXPECT_THAT(*line, Not(HasSubstr("Sanitizer")));
            if (line->find(text) != std::string::npos) {
                return read;
            }
        }
        ADD_FAILURE() << "the daemon did not log " << text << "; it logged:\n" << read;
        return read;
    }

    std::string client(const std::vector<std::string>& words) const {
        std::vector<std::string> command = {component::clientPath()};
        command.insert(command.end(), words.begin(), words.end());
        Program program(command, environment);
        return program.readOutput();
    }

    /** Waits for the atom that is the `count`th of this name; its line. */
    std::string atom(const std::string& name, int count) const {
        return waitForAtom(name, [count](int found, bool) { return found >= count; });
    }
    /** Waits until an atom of this name is the last one; its line. */
    std::string lastAtom(const std::string& name) const {
        return waitForAtom(name, [](int, bool last) { return last; });
    }

    /** `enough` is told how many atoms of that name there are, and whether one is the last. */
    template <typename Enough>
    std::string waitForAtom(const std::string& name, Enough enough) const {
        const auto deadline = std::chrono::steady_clock::now() + test::kPatience;
        do {
            std::ifstream in(folder.file("data/misc/stats/atoms.jsonl"));
            int found = 0;
            bool isLast = false;
            std::string atom;
            for (std::string line; std::getline(in, line);) {
                isLast = line.find("\"" + name + "\"") != std::string::npos;
                found += isLast ? 1 : 0;
                atom = isLast ? line : atom;
            }
            if (enough(found, isLast)) {
                return atom;
            }
            std::this_thread::sleep_for(10ms);
        } while (std::chrono::steady_clock::now() < deadline);
        ADD_FAILURE() << "there are too few " << name;
        return "";
    }

    const test::TempFolder folder;
    const NetworkNamespace network;
    const Program::Options environment{
        {"CORVID_WIFI_ROOT=" + folder.path(), "ANDROID_LOG_TAGS=*:V"}, {}, {}};
    std::unique_ptr<Program> authenticator;
    std::unique_ptr<Program> stats;
    std::unique_ptr<Program> supplicant;
    std::unique_ptr<Program> daemon;

    const std::string socketPath = folder.file("data/vendor/wifi/wpa/sockets/wlan0");
    const std::string connected = "[WPA-STA] Connected to supplicant socket: " + socketPath;
};

constexpr const char* kStaConnected = "StaManager: STA event(CONNECTED)";
constexpr const char* kStaDisconnected =
    "StaManager: STA event(DISCONNECTED-bssid=01:80:c2:00:00:03 reason=3 locally_generated=1)";
/** A wire has neither frequency nor signal strength. */
constexpr const char* kNoSignal = ",{\"int\":-1},{\"int\":-1}]}";

TEST_F(RealSupplicant, LaterOneIsFoundAndItsLinkFollowed) {
    startDaemon();
    readLogUpTo("WpaClient: Started monitoring wpa socket directory");
    startSupplicant();
    readLogUpTo("WpaClient: Wpa socket for STA (wlan0) is created");
    readLogUpTo(connected);
    readLogUpTo(kStaConnected);
    EXPECT_THAT(lastAtom("WIFI_STA_CONNECTED"), HasSubstr(kNoSignal));
    EXPECT_THAT(client({"dump"}), AllOf(HasSubstr("StaManager: Enabled\n\tSTA frequency: -1\n"
                                                  "\tSTA rssi: -1\n\tSTA bandwidth: unknown\n"),
                                        HasSubstr("\tStaManager.onStaConnected: "),
                                        HasSubstr("\tStaManager.worker: ")));

    tellSupplicant("disconnect");
    readLogUpTo(kStaDisconnected);
    EXPECT_THAT(lastAtom("WIFI_STA_DISCONNECTED"), HasSubstr(kNoSignal));

    tellSupplicant("reconnect");
    readLogUpTo(kStaConnected);
    EXPECT_THAT(lastAtom("WIFI_STA_CONNECTED"), HasSubstr(kNoSignal));
}

TEST_F(RealSupplicant, TerminatedOneIsLeftAndFoundAgain) {
    startSupplicant();
    for (auto line = supplicant->readLine(); line; line = supplicant->readLine()) {
        if (line->find("CTRL-EVENT-CONNECTED") != std::string::npos) {
            break;
        }
    }
    startDaemon();
    readLogUpTo("WpaClient: wpa STA socket file (" + socketPath + ") exists. Try to connect now");
    readLogUpTo(connected);
    tellSupplicant("terminate");
    readLogUpTo(kStaDisconnected);
    // It says that it goes, and removes its file: a slow daemon may see the latter first.
    EXPECT_THAT(readLogUpTo("[WPA-STA] Disconnecting supplicant socket"),
                AnyOf(HasSubstr("[WPA-STA] Supplicant exited gracefully"),
                      HasSubstr("Wpa socket for STA (wlan0) is deleted")));
    readLogUpTo("StaManager: STA event(DISCONNECTED-sockettype=STA)");
    EXPECT_EQ(supplicant->wait(), 0);
    EXPECT_FALSE(fs::exists(socketPath));
    // One for the event and one for the socket; the start's, without a link, may have come before
    // anybody was there to report it.
    EXPECT_THAT(atom("WIFI_STA_DISCONNECTED", 2), HasSubstr(kNoSignal));
    EXPECT_THAT(client({"dump"}), AllOf(HasSubstr("\tSTA frequency: -1\n"),
                                        HasSubstr("\tStaManager.onStaDisconnected: ")));
    EXPECT_EQ(client({"call", "getStaInfo"}), "{\"frequency\":-1,\"rssi\":-1,\"bandwidth\":0}\n");
    readLogUpTo("StaManager: Failed to send SIGNAL_POLL command");

    startSupplicant();
    readLogUpTo(connected);
    readLogUpTo(kStaConnected);
    EXPECT_THAT(lastAtom("WIFI_STA_CONNECTED"), HasSubstr(kNoSignal));
}

TEST_F(RealSupplicant, LateReplyIsNotTakenForTheNextCommand) {
    startSupplicant();
    CommandChannel channel(50ms);
    while (!channel.open(socketPath)) {
        ASSERT_FALSE(HasFailure());
        std::this_thread::sleep_for(1ms);
    }
    // Repeated where the machine is too slow for the time-out.
    const auto ask = [&](const std::string& command) {
        std::string reply;
        while (channel.request(command, reply) == RequestResult::TimedOut) {
        }
        return reply;
    };
    const auto timeOut = [&](const std::string& command) {
        std::string reply;
        EXPECT_EQ(channel.request(command, reply), RequestResult::TimedOut);
    };
    const std::string version = ask("GET version");
    const std::string methods = ask("GET_CAPABILITY eap");
    EXPECT_THAT(methods, HasSubstr("MD5 "));
    EXPECT_EQ(ask("PING"), "PONG\n");

    for (const int timeOuts : {1, 5}) {
        // Before the next command.
        supplicant->signal(SIGSTOP);
        for (int i = 0; i < timeOuts; ++i) {
            timeOut("PING");
        }
        supplicant->signal(SIGCONT);
        CommandChannel other(30s);
        ASSERT_TRUE(other.open(socketPath));
        std::string reply;
        EXPECT_EQ(other.request("PING", reply), RequestResult::Replied);  // behind the late ones
        EXPECT_EQ(ask("GET_CAPABILITY eap"), methods);
        EXPECT_EQ(ask("GET version"), version);

        // During the next command.
        supplicant->signal(SIGSTOP);
        for (int i = 0; i < timeOuts; ++i) {
            timeOut("PING");
        }
        auto next =
            std::async(std::launch::async, [&] { return other.request("GET version", reply); });
        supplicant->signal(SIGCONT);
        EXPECT_EQ(ask("GET_CAPABILITY eap"), methods);
        EXPECT_EQ(next.get(), RequestResult::Replied);
        EXPECT_EQ(reply, version);

        // After the next command.
        supplicant->signal(SIGSTOP);
        for (int i = 0; i < timeOuts; ++i) {
            timeOut("PING");
        }
        timeOut("GET version");
        supplicant->signal(SIGCONT);
        EXPECT_EQ(ask("GET_CAPABILITY eap"), methods);
        EXPECT_EQ(ask("GET version"), version);
        EXPECT_EQ(ask("PING"), "PONG\n");
    }
}

TEST_F(RealSupplicant, KilledOneIsFoundAgainWhenItRestarts) {
    startDaemon();
    readLogUpTo("WpaClient: Started monitoring wpa socket directory");
    startSupplicant();
    readLogUpTo(kStaConnected);
    supplicant->signal(SIGKILL);
    EXPECT_EQ(supplicant->wait(), 128 + SIGKILL);
    EXPECT_TRUE(fs::exists(socketPath)) << "a killed supplicant leaves its socket behind";
    // Nothing tells the daemon; a command finds nobody.
    EXPECT_EQ(client({"call", "getStaInfo"}), "{\"frequency\":-1,\"rssi\":-1,\"bandwidth\":0}\n");
    readLogUpTo("StaManager: Failed to send SIGNAL_POLL command");

    startSupplicant();
    EXPECT_THAT(readLogUpTo("WpaClient: Wpa socket for STA (wlan0) is created"),
                HasSubstr("WpaClient: Wpa socket for STA (wlan0) is deleted"));
    EXPECT_THAT(readLogUpTo(connected),
                HasSubstr("StaManager: STA event(DISCONNECTED-sockettype=STA)"));
    readLogUpTo(kStaConnected);
    // One for the socket that appeared, one for the dead one that was taken away.
    EXPECT_THAT(atom("WIFI_STA_DISCONNECTED", 2), HasSubstr(kNoSignal));
    EXPECT_THAT(atom("WIFI_STA_CONNECTED", 2), HasSubstr(kNoSignal));
    EXPECT_THAT(client({"dump"}), HasSubstr("\tStaManager.onStaDisconnected: "));
}

}  // namespace
