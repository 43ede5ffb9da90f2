// corvid-wifi: the command-line client of the service.

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include <vendor/corvid/hardware/wifi/1.0/types.h>

#include "tools/Json.h"
#include "tools/Methods.h"
#include "tools/Monitor.h"

namespace {

using ::android::sp;
using ::android::hardware::hidl_string;
using ::vendor::corvid::hardware::wifi::V1_0::P2pInfo;
using ::vendor::corvid::hardware::wifi::V1_0::StaInfo;
using namespace ::Ursa::OS::Wifi::Tools;

/** Exit statuses; scripts rely on them. */
enum ExitStatus {
    kSuccess = 0,
    kFailure = 1,  // the service answered with a failure, or the output can't be written
    kUsage = 2,
    kNoService = 3,
    kServiceDied = 4,
};

using Words = std::vector<std::string>;

constexpr char kHelp[] =
    R"(corvid-wifi: asks the Wi-Fi service, tells it what to do, and shows its events

  corvid-wifi call METHOD [ARG ...]  calls a method of IWifi and prints the answer as JSON
  corvid-wifi call --check METHOD [ARG ...]  only says whether that could be called
  corvid-wifi call --list            lists the methods with their arguments
  corvid-wifi dump                   prints the state of every feature
  corvid-wifi monitor                prints each event as a line of JSON, until Ctrl-C
  corvid-wifi p2p                    prints the P2P group's channel
  corvid-wifi sta                    prints the station link's channel and signal
  corvid-wifi --help                 prints this

Exit status: 0 done (a status code of 0, an id of 0 or more, any record or text), 1 the service
answered a failure, 2 wrong usage, 3 the service is not available, 4 the service died while it was
monitored.

On a host, the environment variable CORVID_WIFI_ROOT names the folder that stands for the device's
root; the service is found in the same one.
)";

constexpr char kCommands[] = "call, dump, monitor, p2p, sta and --help";

void print(const std::string& text) { std::fwrite(text.data(), 1, text.size(), stdout); }

/** Throws ServiceError when the service is not registered. */
sp<IWifi> findService() {
    sp<IWifi> service = IWifi::tryGetService();
    if (service == nullptr) {
        throw ServiceError(std::string("the service ") + IWifi::descriptor +
                           "/default is not available");
    }
    return service;
}

int call(const Words& words) {
    if (words == Words{"--list"}) {
        print(listMethods());
        return kSuccess;
    }
    const bool checks = !words.empty() && words.front() == "--check";
    const Call call = bindCall(checks ? Words(words.begin() + 1, words.end()) : words);
    if (checks) {
        return kSuccess;
    }
    const Answer answer = call(*findService());
    print(answer.json + "\n");
    return answer.success ? kSuccess : kFailure;
}

int dump() {
    requireAnswer(findService()->dumpInfo(
        [](const hidl_string& text) { print(std::string(text.c_str(), text.size())); }));
    return kSuccess;
}

int monitor() {
    switch (::Ursa::OS::Wifi::Tools::monitor(*findService(), stdout)) {
        case MonitorEnd::Stopped:
            return kSuccess;
        case MonitorEnd::ServiceDied:
            return kServiceDied;
        case MonitorEnd::Failed:
            break;
    }
    return kFailure;
}

/** One line: a value with its unit, or that it is not known. */
void printValue(const char* label, bool known, const std::string& value) {
    print(std::string(label) + ": " + (known ? value : "unknown") + "\n");
}

int p2p() {
    requireAnswer(findService()->getP2pInfo([](const P2pInfo& info) {
        printValue("Frequency", info.frequency != -1, std::to_string(info.frequency) + " MHz");
        printValue("Bandwidth", info.bandwidth != -1, std::to_string(info.bandwidth) + " MHz");
    }));
    return kSuccess;
}

int sta() {
    requireAnswer(findService()->getStaInfo([](const StaInfo& info) {
        static constexpr const char* kWidths[] = {"",       "20 MHz",    "40 MHz",
                                                  "80 MHz", "80+80 MHz", "160 MHz"};
        const bool widthKnown = info.bandwidth >= 1 && info.bandwidth < std::size(kWidths);
        printValue("Frequency", info.frequency != -1, std::to_string(info.frequency) + " MHz");
        printValue("Signal", info.rssi != -1, std::to_string(info.rssi) + " dBm");
        printValue("Bandwidth", widthKnown, widthKnown ? kWidths[info.bandwidth] : "");
    }));
    return kSuccess;
}

int help() {
    print(kHelp);
    return kSuccess;
}

int run(const Words& words) {
    if (words.empty()) {
        throw UsageError(std::string("a command is missing; allowed are ") + kCommands);
    }
    const std::string& command = words.front();
    if (command == "call") {
        return call(Words(words.begin() + 1, words.end()));
    }
    struct {
        const char* name;
        int (*run)();
    } const simpleCommands[] = {{"dump", dump}, {"monitor", monitor}, {"p2p", p2p},
                                {"sta", sta},   {"--help", help},     {"-h", help}};
    for (const auto& simple : simpleCommands) {
        if (command != simple.name) {
            continue;
        }
        if (words.size() > 1) {
            throw UsageError(command + " takes no arguments");
        }
        return simple.run();
    }
    throw UsageError("there is no command " + toLine(command) + "; allowed are " + kCommands);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const int status = run(Words(argv + 1, argv + argc));
        if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
            std::perror("corvid-wifi: can't write");
            return kFailure;
        }
        return status;
    } catch (const UsageError& error) {
        std::fprintf(stderr, "corvid-wifi: %s\nTry: corvid-wifi --help, corvid-wifi call --list\n",
                     error.what());
        return kUsage;
    } catch (const ServiceError& error) {
        std::fprintf(stderr, "corvid-wifi: %s\n", error.what());
        return kNoService;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "corvid-wifi: %s\n", error.what());
        return kFailure;
    }
}
