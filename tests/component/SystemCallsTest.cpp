// How many system calls an event costs the thread that it arrives on, counted by strace.

#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/component/Headset.h"
#include "tests/support/Program.h"
#include "tests/support/TempFolder.h"

using component::Headset;

namespace {

constexpr const char* kStrace = "/usr/bin/strace";

/** The daemon, traced. It stops at each call until strace has written it down. */
class TracedDaemon {
  public:
    TracedDaemon() {
        std::ofstream(script()) << "#!/bin/sh\nANDROID_LOG_TAGS=CorvidWifi:I exec " << kStrace
                                << " -D -f -qq -e signal=none -o " << calls_() << " "
                                << component::daemonPath() << "\n";
        chmod(script().c_str(), 0700);
    }

    std::string script() const { return folder_.file("daemon"); }

    /**
     * The calls until now, "THREAD NAME(ARGUMENTS", without those whose number depends on the time
     * (waits for a mutex or an answer, the look at the log's level once per second), and without
     * the nl80211 redirect's looks at each descriptor.
     */
    std::vector<std::string> calls() const {
        std::vector<std::string> calls;
        std::ifstream file(calls_());
        for (std::string line; std::getline(file, line);) {
            const auto has = [&](const char* text) { return line.find(text) != std::string::npos; };
            const bool isEnd = has(" <... ") || has(" +++ ");
            const bool isTimed = has("/log.tag.CorvidWifi") || has(" futex(") || has(" poll(") ||
                                 (has(" recvmsg(") && has(" = -1 EAGAIN"));
            const bool isRedirect = has(", \"\", ") || has(" fstat(");
            if (!isEnd && !isTimed && !isRedirect) {
                calls.push_back(line);
            }
        }
        return calls;
    }

  private:
    std::string calls_() const { return folder_.file("calls"); }

    const test::TempFolder folder_;
};

/** The first word of a call. */
std::string threadOf(const std::string& call) { return call.substr(0, call.find(' ')); }

/** Whether a process may be traced here; not in every container. */
bool canTrace() {
    return access(kStrace, X_OK) == 0 &&
           test::Program({kStrace, "-o", "/dev/null", "/bin/true"}).wait() == 0;
}

TEST(SystemCalls, ConnectionWithEveryFeatureOnTakesAtMostNinety) {
    if (CORVID_SANITIZED) {
        GTEST_SKIP() << "a sanitizer makes calls of its own";
    }
    if (!canTrace()) {
        GTEST_SKIP() << "strace cannot trace a program here";
    }
    const TracedDaemon daemon;
    Headset headset(daemon.script());
    headset.startWithEveryFeature();
    headset.settle();

    const size_t before = daemon.calls().size();
    headset.play("connect freq=5180MHz width=80MHz rssi=-45dBm");
    headset.settle();

    // Those of the thread that the event arrives on.
    std::vector<std::string> calls = daemon.calls();
    calls.erase(calls.begin(), calls.begin() + static_cast<ptrdiff_t>(before));
    const auto poll = std::find_if(calls.begin(), calls.end(), [](const std::string& call) {
        return call.find("\"SIGNAL_POLL\"") != std::string::npos;
    });
    ASSERT_NE(poll, calls.end());
    const std::string thread = threadOf(*poll);
    // From the first log line on. The settling event counts too, with about as many calls as came
    // before that line.
    std::string list;
    int count = 0;
    for (const std::string& call : calls) {
        const bool isFirstLine = count == 0 && call.find(" write(2, ") != std::string::npos;
        if (threadOf(call) == thread && (isFirstLine || count > 0)) {
            ++count;
            list += call.substr(0, 100) + "\n";
        }
    }
    EXPECT_LE(count, 90) << list;
    EXPECT_GE(count, 60) << "are all features on?\n" << list;
    RecordProperty("calls", count);
}

}  // namespace
