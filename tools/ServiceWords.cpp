#include "tools/ServiceWords.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include <vendor/corvid/hardware/wifi/1.0/types.h>

#include "tools/Debug.h"
#include "tools/Json.h"
#include "tools/Methods.h"
#include "tools/Monitor.h"
#include "tools/Nearest.h"
#include "tools/Print.h"
#include "tools/Record.h"
#include "tools/Report.h"
#include "tools/Service.h"
#include "tools/Troubles.h"

namespace Ursa::OS::Wifi::Tools {

using ::android::hardware::hidl_string;
using ::vendor::corvid::hardware::wifi::V1_0::P2pInfo;
using ::vendor::corvid::hardware::wifi::V1_0::StaInfo;

namespace {

/** One line: a value with its unit, or that it is not known. */
void printValue(const char* label, bool known, const std::string& value) {
    print(std::string(label) + ": " + (known ? value : "unknown") + "\n");
}

/** Milliseconds on the clock of the service's report. */
int64_t monotonicMs() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

/** Says on standard error what the service's report tells about a refusal, if anything. */
void explainRefusal(const ::android::sp<IWifi>& service, const std::string& method,
                    int64_t calledAtMs) {
    try {
        if (const std::string why = whyRefused(askReport(service), method, calledAtMs);
            !why.empty()) {
            std::fprintf(stderr, "corvid-wifi: %s\n", why.c_str());
        }
    } catch (const ServiceError&) {
        // The answer was printed; a service without a report says no more.
    }
}

/** A method without arguments, as `call` prints it. */
int printAsJson(const CommandLine& line, const char* method) {
    print(bindCall({method})(*findService(line)).json + "\n");
    return kSuccess;
}

}  // namespace

int runCall(const CommandLine& line) {
    if (line.has("--list")) {
        if (!line.arguments.empty()) {
            throw UsageError("call --list takes no arguments");
        }
        print(listMethods());
        return kSuccess;
    }
    const Call call = bindCall(line.arguments);
    if (line.has("--check")) {
        return kSuccess;
    }
    const Deadline deadline(line.timeout());
    const auto service = findService(line);
    const int64_t calledAtMs = monotonicMs();
    const Answer answer = call(*service);
    print(answer.json + "\n");
    if (!answer.success) {
        std::fflush(stdout);
        explainRefusal(service, line.arguments.front(), calledAtMs);
    }
    return answer.success ? kSuccess : kFailure;
}

int runDebug(const CommandLine& line) {
    for (const std::string& name : line.arguments) {
        if (std::find(kReportSections.begin(), kReportSections.end(), name) ==
            kReportSections.end()) {
            const std::vector<std::string> allowed(kReportSections.begin(), kReportSections.end());
            throw UsageError("debug knows no " + toLine(name) + didYouMean(name, allowed) +
                             "; allowed are " + joined(allowed));
        }
    }
    std::vector<std::string> options = line.arguments;
    if (line.has("--json")) {
        options.emplace_back("--json");
    }
    const Deadline deadline(line.timeout());
    print(askDebug(findService(line), options));
    return kSuccess;
}

int runDump(const CommandLine& line) {
    const Deadline deadline(line.timeout());
    if (line.has("--json")) {
        return printAsJson(line, "dumpInfo");
    }
    requireAnswer(findService(line)->dumpInfo(
        [](const hidl_string& text) { print(std::string(text.c_str(), text.size())); }));
    return kSuccess;
}

int runMonitor(const CommandLine& line) {
    const Deadline deadline(line.timeout());
    const MonitorOptions options = {line.has("--timestamps"), line.has("--all")};
    switch (monitor(findService(line), stdout, deadline, options)) {
        case MonitorEnd::Stopped:
            return kSuccess;
        case MonitorEnd::ServiceDied:
            return kServiceDied;
        case MonitorEnd::Failed:
            break;
    }
    return kFailure;
}

int runP2p(const CommandLine& line) {
    const Deadline deadline(line.timeout());
    if (line.has("--json")) {
        return printAsJson(line, "getP2pInfo");
    }
    requireAnswer(findService(line)->getP2pInfo([](const P2pInfo& info) {
        printValue("Frequency", info.frequency != -1, std::to_string(info.frequency) + " MHz");
        printValue("Bandwidth", info.bandwidth != -1, std::to_string(info.bandwidth) + " MHz");
    }));
    return kSuccess;
}

int runRecord(const CommandLine& line) {
    const RecordOptions options = readRecordOptions(line);
    const Deadline deadline(line.timeout());
    switch (record(options, deadline)) {
        case RecordEnd::Done:
            return kSuccess;
        case RecordEnd::NoService:
            return kNoService;
        case RecordEnd::Failed:
            break;
    }
    return kFailure;
}

int runSta(const CommandLine& line) {
    const Deadline deadline(line.timeout());
    if (line.has("--json")) {
        return printAsJson(line, "getStaInfo");
    }
    requireAnswer(findService(line)->getStaInfo([](const StaInfo& info) {
        static constexpr const char* kWidths[] = {"",       "20 MHz",    "40 MHz",
                                                  "80 MHz", "80+80 MHz", "160 MHz"};
        const bool widthKnown = info.bandwidth >= 1 && info.bandwidth < std::size(kWidths);
        printValue("Frequency", info.frequency != -1, std::to_string(info.frequency) + " MHz");
        printValue("Signal", info.rssi != -1, std::to_string(info.rssi) + " dBm");
        printValue("Bandwidth", widthKnown, widthKnown ? kWidths[info.bandwidth] : "");
    }));
    return kSuccess;
}

}  // namespace Ursa::OS::Wifi::Tools
