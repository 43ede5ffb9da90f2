// corvid-wifi as a script meets it: its output and its exit status, with a service that records
// what it is asked.

#include <pty.h>
#include <stdlib.h>
#include <unistd.h>

#include <cctype>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include "tests/support/Patience.h"
#include "tests/support/Program.h"
#include "tests/tools/Client.h"

namespace {

using ::test::Client;
using ::test::Outcome;
using ::test::Program;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::Not;

constexpr int kSigKilled = 128 + SIGKILL;
constexpr int kSigPiped = 128 + SIGPIPE;

/** Whether a process has a handler for a signal. */
bool catches(pid_t pid, int number) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("SigCgt:", 0) == 0) {
            return ((std::stoull(line.substr(7), nullptr, 16) >> (number - 1)) & 1U) != 0;
        }
    }
    return false;
}

/** The usages in what `call --list` prints. */
std::vector<std::string> methodsIn(const std::string& list) {
    std::istringstream lines(list);
    std::vector<std::string> methods;
    for (std::string line; std::getline(lines, line);) {
        if (line.front() != ' ') {
            methods.push_back(line);
        }
    }
    return methods;
}

/** The names of an interface's methods: what stands before a "(" at the first level. */
std::set<std::string> methodsDeclaredIn(const std::string& path) {
    std::set<std::string> names;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) {
        const size_t end = line.find('(');
        if (end != std::string::npos && line.substr(0, 4) == "    " && isalpha(line[4]) != 0) {
            names.insert(line.substr(4, end - 4));
        }
    }
    return names;
}

// Usage. The service does not run: what is wrong is said without it.

using ClientUsage = Client;

TEST_F(ClientUsage, HelpNamesEveryCommand) {
    for (const char* word : {"--help", "-h"}) {
        const Outcome help = run({word});
        EXPECT_EQ(help.status, 0);
        EXPECT_THAT(help.error, IsEmpty());
        for (const char* command : {"call METHOD [ARG ...]", "  --list", "dump", "monitor", "p2p",
                                    "record FILE", "sta", "--help"}) {
            EXPECT_THAT(help.output, HasSubstr(std::string("\n  ") + command));
        }
        for (const char* common : {"--json", "--timeout SECONDS", "--wait"}) {
            EXPECT_THAT(help.output, HasSubstr(std::string("\n  ") + common));
        }
    }
}

TEST_F(ClientUsage, ListNamesEachMethodWithItsArguments) {
    const Outcome list = run({"call", "--list"});
    EXPECT_EQ(list.status, 0);
    EXPECT_THAT(list.error, IsEmpty());
    EXPECT_THAT(list.output,
                HasSubstr("\nstartCsa CHANNEL BANDWIDTH\n"
                          "    CHANNEL: a number from 0 to 4294967295 (decimal or 0x hexadecimal)\n"
                          "    BANDWIDTH: a number from 0 to"));
    EXPECT_THAT(
        methodsIn(list.output),
        IsSupersetOf({"clearScs ID", "dumpInfo", "getP2pInfo", "getStaInfo",
                      "isP2pPairedDeviceType TYPE", "registerCorvidWifiManagerCallback CALLBACK",
                      "setElnaBypass MODE", "setMccTimeAllocation VALUE",
                      "setP2pNoa COUNT NOA_VALUE1 NOA_VALUE2", "setP2pPairedDeviceType TYPE",
                      "setScsV4 LOCAL_IP LOCAL_PORT REMOTE_IP REMOTE_PORT DSCP PROTOCOL",
                      "setScsV6 LOCAL_IP LOCAL_PORT REMOTE_IP REMOTE_PORT FLOW_LABEL DSCP "
                      "PROTOCOL",
                      "startCsa CHANNEL BANDWIDTH", "unregisterCorvidWifiManagerCallback CALLBACK",
                      "updateTxPowerConfig ALLOWED"}));
}

TEST_F(ClientUsage, ListHasTheMethodsOfTheInterfaceAndNoOthers) {
    std::set<std::string> listed;
    for (const std::string& usage : methodsIn(run({"call", "--list"}).output)) {
        listed.insert(usage.substr(0, usage.find(' ')));
    }
    std::set<std::string> declared;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(INTERFACE_FOLDER)) {
        if (entry.path().filename() == "IWifi.hal") {
            const auto names = methodsDeclaredIn(entry.path());
            declared.insert(names.begin(), names.end());
        }
    }
    EXPECT_EQ(listed, declared) << "allMethods in tools/Methods.cpp has a line for each method";
}

TEST_F(ClientUsage, WrongUsageEndsWith2AndSaysWhatIsAllowed) {
    const struct {
        std::vector<std::string> words;
        std::vector<std::string> said;
    } cases[] = {
        {{}, {"a command is missing", "bugreport, call, debug, ", ", --help"}},
        {{"frobnicate"}, {"\"frobnicate\"", "bugreport, call, debug, ", ", --help"}},
        {{"dmup"}, {"there is no command \"dmup\" (did you mean \"dump\"?)"}},
        {{"dump", "--jsno"}, {"there is no option --jsno (did you mean \"--json\"?)"}},
        {{"--lits", "call"}, {"there is no option --lits", "--json, --timeout, --wait"}},
        {{"dump", "--json=yes"}, {"--json takes no value"}},
        {{"dump", "--timeout"}, {"--timeout needs a value: --timeout SECONDS"}},
        {{"dump", "--timeout", "soon"}, {"--timeout is \"soon\"", "15, 1.5s, 250ms or 2min"}},
        {{"dump", "--timeout=-1"}, {"--timeout is \"-1\""}},
        {{""}, {"there is no command \"\"", "bugreport, call"}},
        {{"dump", "it"}, {"dump takes no arguments"}},
        {{"monitor", "it"}, {"monitor takes no arguments"}},
        {{"--help", "me"}, {"--help takes no arguments"}},
        {{"call"}, {"call needs a method", "clearScs", "updateTxPowerConfig"}},
        {{"call", "--list", "all"}, {"call --list takes no arguments"}},
        {{"call", "startcsa", "36", "80"}, {"\"startcsa\"", "clearScs", "startCsa"}},
        {{"call", "startCsa", "36"}, {"takes 2 arguments, not 1", "startCsa CHANNEL BANDWIDTH"}},
        {{"call", "startCsa", "36", "80", "1"}, {"takes 2 arguments, not 3", "CHANNEL BANDWIDTH"}},
        {{"call", "getStaInfo", "x"}, {"takes 0 arguments, not 1"}},
        {{"call", "getStaInfo", "--jsno"}, {"no option --jsno (did you mean \"--json\"?)"}},
        {{"debug", "socket"}, {"did you mean \"sockets\"?", "allowed are sta, p2p, "}},
        {{"call", "clearScs"}, {"takes 1 argument, not 0"}},
        {{"call", "getstainfo"}, {"did you mean \"getStaInfo\"?", "allowed are clearScs, "}},
        {{"call", "strtaCsa"}, {"did you mean \"startCsa\"?"}},
        {{"call", "--check", "startCsa", "36"}, {"takes 2 arguments, not 1"}},
        {{"call", "startCsa", "36", "wide"},
         {"BANDWIDTH is \"wide\"", "a number from 0 to 4294967295", "0x hexadecimal"}},
        {{"call", "startCsa", "-1", "80"}, {"CHANNEL is \"-1\"", "from 0 to 4294967295"}},
        {{"call", "clearScs", "2147483648"}, {"ID is \"2147483648\"", "from -2147483648"}},
        {{"call", "setScsV4", "10.0.0.1", "1", "10.0.0.2", "2", "256", "6"},
         {"DSCP is \"256\"", "from 0 to 255"}},
        {{"call", "updateTxPowerConfig", "yes"}, {"ALLOWED is \"yes\"", "true or false"}},
        {{"call", "setP2pPairedDeviceType", "SWORD"},
         {"TYPE is \"SWORD\"", "NONE, HALBERD, MIRACAST, UNKNOWN, or a number from 0"}},
        {{"call", "registerCorvidWifiManagerCallback", "me"}, {"\"me\"", "null", "monitor"}},
        {{"call", "startCsa", "3\n6", "80"}, {"CHANNEL is \"3\\n6\""}},
    };
    for (const auto& wrong : cases) {
        const Outcome result = run(wrong.words);
        EXPECT_EQ(result.status, 2) << result.error;
        EXPECT_THAT(result.output, IsEmpty());
        for (const std::string& part : wrong.said) {
            EXPECT_THAT(result.error, HasSubstr(part));
        }
    }
}

TEST_F(ClientUsage, CommandWithoutTheServiceEndsWith3AndSaysSo) {
    for (const std::vector<std::string>& words : {std::vector<std::string>{"call", "getStaInfo"},
                                                  {"dump"},
                                                  {"monitor"},
                                                  {"p2p"},
                                                  {"sta"}}) {
        const Outcome result = run(words);
        EXPECT_EQ(result.status, 3) << words.front();
        EXPECT_THAT(result.output, IsEmpty());
        EXPECT_THAT(result.error,
                    HasSubstr("vendor.corvid.hardware.wifi@1.0::IWifi/default is not available"));
    }
}

TEST_F(ClientUsage, OptionMayStandBehindAMethodsArguments) {
    const Outcome result = run({"call", "startCsa", "36", "80", "--json", "--timeout", "1"});
    EXPECT_EQ(result.status, 3) << result.error;
}

TEST_F(ClientUsage, ServiceIsLookedForWhereTheMessageSaysWithoutARoot) {
    options_.environment = {};
    Program client({"/usr/bin/env", "-u", "CORVID_WIFI_ROOT", CORVID_WIFI, "dump"}, options_);
    EXPECT_THAT(client.readError(),
                HasSubstr("in /dev/hwbinder (CORVID_WIFI_ROOT names another root)"));
    EXPECT_EQ(client.wait(), 3);
}

TEST_F(ClientUsage, HelpBehindACommandIsTheHelp) {
    EXPECT_EQ(run({"dump", "--help"}).output, run({"--help"}).output);
}

TEST_F(ClientUsage, VersionIsPrintedWithoutTheService) {
    EXPECT_THAT(run({"--version"}).output, ::testing::MatchesRegex("corvid-wifi [0-9.]+\n"));
    EXPECT_THAT(run({"--version", "--json"}).output, HasSubstr("{\"version\":\""));
}

TEST_F(ClientUsage, ServiceThatIsForbiddenIsToldFromOneThatIsMissing) {
    startService();
    const std::string client = CORVID_WIFI;
    // Root may use everything; others have no say in a folder that is root's alone.
    const std::string asAnother = geteuid() == 0 ? "setpriv --reuid=65534 --clear-groups " : "";
    for (const char* path : {"/dev/hwbinder", ""}) {
        std::filesystem::permissions(root_, std::filesystem::perms(0755));
        std::filesystem::permissions(root_ + path, std::filesystem::perms(0));
        Program shell({"/bin/sh", "-c", "exec " + asAnother + client + " dump"}, options_);
        EXPECT_EQ(shell.wait(), 3);
        EXPECT_THAT(shell.readError(), HasSubstr("permission denied: " + root_ + "/dev/hwbinder"));
        std::filesystem::permissions(root_ + path, std::filesystem::perms(0755));
    }
    // The folder is open, the service's socket is not.
    std::filesystem::permissions(root_, std::filesystem::perms(0755));
    for (const auto& entry : std::filesystem::directory_iterator(root_ + "/dev/hwbinder")) {
        std::filesystem::permissions(entry.path(), std::filesystem::perms(0700));
    }
    if (geteuid() == 0) {
        Program shell({"/bin/sh", "-c", "exec " + asAnother + client + " dump"}, options_);
        EXPECT_EQ(shell.wait(), 3);
        EXPECT_THAT(shell.readError(), HasSubstr("permission denied: " + root_ + "/dev/hwbinder/"));
    }
}

TEST_F(ClientUsage, WaitGivesUpAfterTheTimeout) {
    const auto begin = std::chrono::steady_clock::now();
    const Outcome result = run({"--wait", "--timeout", "2", "dump"});
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
    EXPECT_EQ(result.status, 3);
    EXPECT_THAT(result.error, HasSubstr("is not available after 2 s"));
}

TEST_F(ClientUsage, WaitMeetsAServiceThatComes) {
    const auto client = start({"sta", "--wait"});
    startService();
    EXPECT_EQ(client->wait(), 0) << client->readError();
    EXPECT_THAT(client->readOutput(), HasSubstr("Frequency: unknown\n"));
}

TEST_F(ClientUsage, StoppedServiceIsGivenUpAfterTheTimeout) {
    startService();
    kill(service_->pid(), SIGSTOP);
    for (const char* word : {"dump", "sta", "p2p", "monitor"}) {
        const Outcome result = run({word, "--timeout", "250ms"});
        EXPECT_EQ(result.status, 5) << word;
        EXPECT_THAT(result.error, HasSubstr("the service did not answer within 0.25 s"));
        EXPECT_THAT(result.error, HasSubstr("it serves one call at a time"));
    }
    kill(service_->pid(), SIGCONT);
}

TEST_F(ClientUsage, CommandWithoutTheFolderOfServicesEndsWith3) {
    std::filesystem::remove_all(root_ + "/dev");
    EXPECT_EQ(run({"dump"}).status, 3);
}

// Calls.

using ClientCall = Client;

TEST_F(ClientCall, EachMethodPassesItsArgumentsInOrderAndPrintsTheAnswer) {
    startService();
    const std::string status = "{\"code\":0,\"description\":\"\"}\n";
    const struct {
        std::vector<std::string> words;
        std::string recorded;
        std::string output;
    } cases[] = {
        {{"clearScs", "-5"}, "clearScs -5", status},
        {{"dumpInfo"}, "dumpInfo", "{\"text\":\"\"}\n"},
        {{"getP2pInfo"}, "getP2pInfo", "{\"frequency\":-1,\"bandwidth\":-1}\n"},
        {{"getStaInfo"}, "getStaInfo", "{\"frequency\":-1,\"rssi\":-1,\"bandwidth\":0}\n"},
        {{"isP2pPairedDeviceType", "HALBERD"}, "isP2pPairedDeviceType 1", status},
        {{"isP2pPairedDeviceType", "0xffffffff"}, "isP2pPairedDeviceType 4294967295", status},
        {{"registerCorvidWifiManagerCallback", "null"}, "register null", status},
        {{"setElnaBypass", "4294967295"}, "setElnaBypass 4294967295", status},
        {{"setMccTimeAllocation", "70"}, "setMccTimeAllocation 70", status},
        {{"setP2pNoa", "255", "0x10", "3"}, "setP2pNoa 255 16 3", status},
        {{"setP2pPairedDeviceType", "MIRACAST"}, "setP2pPairedDeviceType 2", status},
        {{"setP2pPairedDeviceType", "7"}, "setP2pPairedDeviceType 7", status},
        {{"setScsV4", "10.0.0.1", "1", "10.0.0.2", "2", "3", "4"},
         "setScsV4 10.0.0.1 1 10.0.0.2 2 3 4",
         "{\"id\":0}\n"},
        {{"setScsV6", "fe80::1", "1", "fe80::2", "2", "3", "4", "5"},
         "setScsV6 fe80::1 1 fe80::2 2 3 4 5",
         "{\"id\":0}\n"},
        {{"startCsa", "36", "80"}, "startCsa 36 80", status},
        {{"unregisterCorvidWifiManagerCallback", "null"}, "unregister null", status},
        {{"updateTxPowerConfig", "true"}, "updateTxPowerConfig 1", status},
        {{"updateTxPowerConfig", "false"}, "updateTxPowerConfig 0", status},
    };
    std::set<std::string> called;
    for (const auto& expected : cases) {
        std::vector<std::string> words = {"call"};
        words.insert(words.end(), expected.words.begin(), expected.words.end());
        const Outcome result = run(words);
        EXPECT_EQ(result.status, 0) << expected.recorded << result.error;
        EXPECT_EQ(result.output, expected.output) << expected.recorded;
        EXPECT_EQ(service_->readLine(), expected.recorded);
        called.insert(expected.words.front());
    }
    for (const std::string& usage : methodsIn(run({"call", "--list"}).output)) {
        const std::string name = usage.substr(0, usage.find(' '));
        EXPECT_EQ(called.count(name), 1U) << name << " is not called here";
    }
}

TEST_F(ClientCall, StatusCodeOtherThan0IsPrintedAndEndsWith1) {
    startService();
    tell("status 1 it's \"off\"");
    Outcome result = run({"call", "startCsa", "36", "80"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "{\"code\":1,\"description\":\"it's \\\"off\\\"\"}\n");
    EXPECT_THAT(result.error, IsEmpty());
    EXPECT_EQ(service_->readLine(), "startCsa 36 80");

    tell("status 4294967295");
    result = run({"call", "setElnaBypass", "1"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "{\"code\":4294967295,\"description\":\"\"}\n");
}

TEST_F(ClientCall, NegativeIdEndsWith1AndAnyOtherWith0) {
    startService();
    const std::vector<std::string> words = {"call", "setScsV4", "a", "1", "b", "2", "3", "4"};
    tell("id 7");
    Outcome result = run(words);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "{\"id\":7}\n");
    for (const char* id : {"-1", "-2"}) {
        service_->readLine();  // the call
        tell(std::string("id ") + id);
        result = run(words);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.output, std::string("{\"id\":") + id + "}\n");
    }
}

TEST_F(ClientCall, RecordsArePrintedFieldByField) {
    startService();
    tell("sta 5180 -50 3");
    EXPECT_EQ(run({"call", "getStaInfo"}).output,
              "{\"frequency\":5180,\"rssi\":-50,\"bandwidth\":3}\n");
    EXPECT_EQ(service_->readLine(), "getStaInfo");
    tell("p2p 5745 40");
    EXPECT_EQ(run({"call", "getP2pInfo"}).output, "{\"frequency\":5745,\"bandwidth\":40}\n");
}

TEST_F(ClientCall, DumpOfAnyBytesIsOneLineOfValidJson) {
    startService();
    tell("text 413a20ff0a0922005c1b");
    const Outcome result = run({"call", "dumpInfo"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "{\"text\":\"A: \xEF\xBF\xBD\\n\\t\\\"\\u0000\\\\\\u001b\"}\n");
}

TEST_F(ClientCall, DumpCommandPrintsTheTextAsItIs) {
    startService();
    tell("text 413a20ff0a0922000a");
    const Outcome result = run({"dump"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, std::string("A: \xFF\n\t\"\0\n", 9));
}

TEST_F(ClientCall, ServiceThatDiesDuringACallEndsItWith3AndSaysSo) {
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"call", "getStaInfo"},
          {"call", "startCsa", "36", "80"},
          {"call", "setScsV4", "a", "1", "b", "2", "3", "4"},
          {"dump"},
          {"sta"},
          {"monitor"}}) {
        startService();
        tell("die");
        const Outcome result = run(words);
        EXPECT_EQ(result.status, 3) << words.front() << result.error;
        EXPECT_THAT(result.output, IsEmpty());
        EXPECT_THAT(result.error, HasSubstr("the service died during the call"));
        EXPECT_EQ(service_->wait(), 0);
    }
}

TEST_F(ClientCall, StaAndP2pPrintValuesWithUnitsOrUnknown) {
    startService();
    EXPECT_EQ(run({"sta"}).output, "Frequency: unknown\nSignal: unknown\nBandwidth: unknown\n");
    EXPECT_EQ(run({"p2p"}).output, "Frequency: unknown\nBandwidth: unknown\n");
    service_->readLine();
    service_->readLine();
    tell("sta 5180 -50 4");
    tell("p2p 5745 -1");
    const Outcome sta = run({"sta"});
    EXPECT_EQ(sta.output, "Frequency: 5180 MHz\nSignal: -50 dBm\nBandwidth: 80+80 MHz\n");
    EXPECT_EQ(sta.status, 0);
    EXPECT_EQ(run({"p2p"}).output, "Frequency: 5745 MHz\nBandwidth: unknown\n");
    service_->readLine();
    service_->readLine();
    tell("sta 5180 -50 6");
    EXPECT_THAT(run({"sta"}).output, HasSubstr("Bandwidth: unknown\n"));
}

TEST_F(ClientCall, JsonIsWhatTheCallOfTheMethodPrints) {
    startService();
    tell("sta 5180 -50 4");
    tell("p2p 5745 80");
    tell("text 41");
    EXPECT_EQ(run({"sta", "--json"}).output, "{\"frequency\":5180,\"rssi\":-50,\"bandwidth\":4}\n");
    EXPECT_EQ(run({"--json", "p2p"}).output, "{\"frequency\":5745,\"bandwidth\":80}\n");
    EXPECT_EQ(run({"dump", "--json"}).output, "{\"text\":\"A\"}\n");
}

TEST_F(ClientCall, OutputThatCannotBeWrittenEndsWith1) {
    startService();
    tell("text 41");
    for (const char* words : {"dump", "call getStaInfo", "--help"}) {
        const std::string client = CORVID_WIFI;
        Program shell({"/bin/sh", "-c", "exec '" + client + "' " + words + " > /dev/full"},
                      options_);
        EXPECT_EQ(shell.wait(), 1) << words;
        EXPECT_THAT(shell.readError(), HasSubstr("can't write"));
    }
}

// Monitor.

class ClientMonitor : public Client {
  protected:
    /** Starts the service, then a monitor, up to its first line. */
    void SetUp() override { startService(); }

    void startMonitor() {
        monitor_ = start({"monitor"});
        ASSERT_EQ(monitor_->readLine(), R"({"event":"registered"})") << monitor_->readError();
        ASSERT_EQ(service_->readLine(), "register");
    }

    std::unique_ptr<Program> monitor_;
};

TEST_F(ClientMonitor, EachCallbackIsPrintedAsALineAtOnce) {
    startMonitor();
    tell("channel 5180 80 true");
    EXPECT_EQ(monitor_->readLine(),
              R"({"event":"onChannelSwitch","frequency":5180,"width":80,"isP2p":true})");
    tell("channel -1 -2147483648 false");
    EXPECT_EQ(monitor_->readLine(),
              R"({"event":"onChannelSwitch","frequency":-1,"width":-2147483648,"isP2p":false})");
    tell("assoc");
    EXPECT_EQ(monitor_->readLine(), R"({"event":"onAssocStarted"})");
    tell("regdom 55534552 434f554e545259 5553");
    EXPECT_EQ(monitor_->readLine(),
              R"({"event":"onRegdomUpdated","init":"USER","type":"COUNTRY","alpha2":"US"})");
    tell("regdom 220a ff 00");
    EXPECT_EQ(monitor_->readLine(),
              "{\"event\":\"onRegdomUpdated\",\"init\":\"\\\"\\n\","
              "\"type\":\"\xEF\xBF\xBD\",\"alpha2\":\"\\u0000\"}");
}

TEST_F(ClientMonitor, EventsKeepTheirOrder) {
    startMonitor();
    for (int i = 0; i < 200; ++i) {
        tell("channel " + std::to_string(i) + " 20 false");
    }
    for (int i = 0; i < 200; ++i) {
        EXPECT_EQ(monitor_->readLine(), R"({"event":"onChannelSwitch","frequency":)" +
                                            std::to_string(i) + R"(,"width":20,"isP2p":false})");
    }
}

TEST_F(ClientMonitor, SigintAndSigtermUnregisterAndEndWith0) {
    for (const int number : {SIGINT, SIGTERM}) {
        startMonitor();
        monitor_->signal(number);
        EXPECT_EQ(monitor_->wait(), 0);
        EXPECT_EQ(service_->readLine(), "unregister");
        EXPECT_THAT(monitor_->readOutput(), IsEmpty());
        EXPECT_THAT(monitor_->readError(), IsEmpty());
    }
}

TEST_F(ClientMonitor, SignalsThatTheParentBlockedOrIgnoredStillEndIt) {
    options_.blockedSignals = {SIGTERM};
    options_.ignoredSignals = {SIGINT};  // as a shell does with "&"
    for (const int number : {SIGINT, SIGTERM}) {
        startMonitor();
        monitor_->signal(number);
        EXPECT_EQ(monitor_->wait(), 0);
        EXPECT_EQ(service_->readLine(), "unregister");
    }
}

TEST_F(ClientMonitor, SecondSignalEndsItWhenTheServiceHangs) {
    startMonitor();
    service_->signal(SIGSTOP);
    monitor_->signal(SIGTERM);
    // The first signal has been taken when its handler is the default one again.
    const auto deadline = std::chrono::steady_clock::now() + test::kPatience;
    while (catches(monitor_->pid(), SIGTERM)) {
        ASSERT_LT(std::chrono::steady_clock::now(), deadline);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    monitor_->signal(SIGTERM);
    EXPECT_EQ(monitor_->wait(), 128 + SIGTERM);
    service_->signal(SIGCONT);
}

TEST_F(ClientMonitor, DeathOfTheServiceEndsItWith4) {
    startMonitor();
    service_->signal(SIGKILL);
    EXPECT_EQ(service_->wait(), kSigKilled);
    EXPECT_EQ(monitor_->wait(), 4);
    EXPECT_THAT(monitor_->readError(), HasSubstr("the service died"));
}

TEST_F(ClientMonitor, EntryOfTheHistoryIsShownOnceAndAgainWhenItRepeats) {
    const auto report = [](int sequence, int repeats) {
        return "report {\"schema\":1,\"history\":{\"entries\":[{\"sequence\":" +
               std::to_string(sequence) + ",\"repeats\":" + std::to_string(repeats) + "}]}}";
    };
    const auto shown = [](int sequence, int repeats) {
        return "{\"history\":{\"sequence\":" + std::to_string(sequence) +
               ",\"repeats\":" + std::to_string(repeats) + "}}";
    };
    tell(report(7, 1));
    monitor_ = start({"monitor", "--all"});
    EXPECT_EQ(monitor_->readLine(), R"({"event":"registered"})");
    EXPECT_EQ(service_->readLine(), "register");
    EXPECT_EQ(monitor_->readLine(), shown(7, 1));
    tell(report(7, 2));
    EXPECT_EQ(monitor_->readLine(), shown(7, 2));
    tell(report(8, 1));
    EXPECT_EQ(monitor_->readLine(), shown(8, 1));
}

TEST_F(ClientMonitor, DeathOfTheServiceWhileItIsAskedForItsHistoryEndsItWith4) {
    tell("report {\"schema\":1,\"history\":{\"entries\":[{\"sequence\":1}]}}");
    monitor_ = start({"monitor", "--all"});
    EXPECT_EQ(monitor_->readLine(), R"({"event":"registered"})");
    EXPECT_EQ(service_->readLine(), "register");
    EXPECT_EQ(monitor_->readLine(), R"({"history":{"sequence":1}})");
    tell("die");
    EXPECT_EQ(monitor_->wait(), 4);
    EXPECT_THAT(monitor_->readError(), HasSubstr("the service died"));
}

TEST_F(ClientMonitor, RefusedRegistrationEndsItWith1) {
    tell("status 1");
    const Outcome result = run({"monitor"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, IsEmpty());
    EXPECT_THAT(result.error, HasSubstr("the service refused the callback (code 1)"));
}

TEST_F(ClientMonitor, RefusedUnregistrationEndsItWith1) {
    startMonitor();
    tell("status 1");
    monitor_->signal(SIGTERM);
    EXPECT_EQ(monitor_->wait(), 1);
    EXPECT_THAT(monitor_->readError(), HasSubstr("refused to unregister (code 1)"));
}

TEST_F(ClientMonitor, EventBeforeTheRegistrationsAnswerComesAfterTheRegisteredLine) {
    tell("early");
    startMonitor();
    EXPECT_EQ(monitor_->readLine(), R"({"event":"onAssocStarted"})");
}

TEST_F(ClientMonitor, ReaderThatGoesAwayEndsItQuietlyAfterItHasUnregistered) {
    startMonitor();
    monitor_->closeOutput();
    service_->writeLine("assoc");
    EXPECT_EQ(monitor_->wait(), kSigPiped);
    EXPECT_THAT(monitor_->readError(), IsEmpty());
    // The callback may be answered before the unregistration, after it, or by the process's end.
    std::optional<std::string> line;
    do {
        line = service_->readLine();
    } while (line == "ok" || line == "callback failed");
    EXPECT_EQ(line, "unregister");
}

TEST_F(ClientMonitor, ReaderThatWasNeverThereEndsItQuietlyAfterItHasUnregistered) {
    service_->signal(SIGSTOP);
    monitor_ = start({"monitor"});
    monitor_->closeOutput();
    service_->signal(SIGCONT);
    EXPECT_EQ(monitor_->wait(), kSigPiped);
    EXPECT_THAT(monitor_->readError(), IsEmpty());
    EXPECT_EQ(service_->readLine(), "register");
    EXPECT_EQ(service_->readLine(), "unregister");
}

/** What corvid-wifi shows on a terminal of that kind, until `wanted` stands there twice. */
std::string shownOnTerminal(const std::string& kind, const std::string& root,
                            const std::vector<const char*>& words, const std::string& wanted) {
    int terminal = -1;
    const pid_t pid = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (pid == 0) {
        setenv("TERM", kind.c_str(), 1);
        setenv("CORVID_WIFI_ROOT", root.c_str(), 1);
        std::vector<char*> arguments = {const_cast<char*>(CORVID_WIFI)};
        for (const char* word : words) {
            arguments.push_back(const_cast<char*>(word));
        }
        arguments.push_back(nullptr);
        execv(CORVID_WIFI, arguments.data());
        _exit(1);
    }
    std::string shown;
    char part[1000];
    ssize_t count = 0;
    while (shown.find(wanted) == shown.rfind(wanted) &&
           (count = read(terminal, part, sizeof(part))) > 0) {
        shown.append(part, static_cast<size_t>(count));
    }
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    close(terminal);
    return shown;
}

TEST_F(Client, WatchClearsTheScreenOfATerminalThatKnowsHowAlone) {
    startService();
    tell(R"(report {"schema":1})");
    const std::vector<const char*> watch = {"watch", "--interval", "100ms"};
    EXPECT_THAT(shownOnTerminal("xterm", root_, watch, "trouble"), HasSubstr("\033["));
    EXPECT_THAT(shownOnTerminal("dumb", root_, watch, "trouble"), Not(HasSubstr("\033")));
}

TEST_F(ClientMonitor, TwoMonitorsAreBothToldOfAnEvent) {
    startMonitor();
    const auto first = std::move(monitor_);
    startMonitor();
    tell("assoc");
    EXPECT_EQ(first->readLine(), R"({"event":"onAssocStarted"})");
    EXPECT_EQ(monitor_->readLine(), R"({"event":"onAssocStarted"})");
    first->signal(SIGTERM);
    EXPECT_EQ(first->wait(), 0);
    EXPECT_EQ(service_->readLine(), "unregister");
    tell("assoc");
    EXPECT_EQ(monitor_->readLine(), R"({"event":"onAssocStarted"})");
}

}  // namespace
