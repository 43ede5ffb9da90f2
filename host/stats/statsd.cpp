// corvid-statsd: the platform's statistics service on a host. Takes no arguments; prints "ready"
// once it is registered; ends with status 0 on SIGTERM and SIGINT, with 1 when it can't register.

#include <csignal>
#include <cstdio>

#include <hidl/HidlTransportSupport.h>
#include <hwbinder/ProcessState.h>
#include <utils/StrongPointer.h>

#include "HostRoot.h"
#include "Stats.h"

int main(int argc, char** argv) {
    if (argc > 1) {
        std::fprintf(stderr, "%s takes no arguments, got '%s'\n", argv[0], argv[1]);
        return 2;
    }
    // Blocked before the serving thread starts, so that they wait for sigwait below.
    sigset_t endSignals;
    sigemptyset(&endSignals);
    sigaddset(&endSignals, SIGTERM);
    sigaddset(&endSignals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &endSignals, nullptr);

    android::hardware::configureRpcThreadpool(1, false);
    const android::sp<host::Stats> stats = new host::Stats;
    if (stats->registerAsService("default") != android::OK) {
        std::fprintf(stderr,
                     "corvid-statsd: can't register android.frameworks.stats@1.0::IStats "
                     "\"default\": %s is missing, or another one runs there\n",
                     host::rootedPath("/dev/hwbinder").c_str());
        return 1;
    }
    android::hardware::ProcessState::self()->startThreadPool();
    std::puts("ready");
    std::fflush(stdout);

    int signal = 0;
    sigwait(&endSignals, &signal);
    return 0;
}
