#include <cerrno>
#include <csignal>

#include <hidl/HidlTransportSupport.h>

#include "os/Log.h"
#include "service/CorvidWifiService.h"

using ::android::OK;
using ::android::sp;
using ::android::hardware::configureRpcThreadpool;
using ::android::hardware::joinRpcThreadpool;
using ::vendor::corvid::hardware::wifi::V1_0::implementation::CorvidWifiService;

namespace {

/**
 * The platform's support library, as every program of it begins: known by name, not loaded. It
 * stays so here, and nobody reads this; it is what a process of the platform looks like.
 */
struct SupportLibrary {
    const char* fileName;
    void* handle;
    void* context;
};

[[gnu::used, gnu::retain]] const SupportLibrary supportLibrary = {"libossdk.corvid.so", nullptr,
                                                                  nullptr};

/** Of field engineers' use: it only leaves a line in the log. */
constexpr int kMarkSignal = 12;  // SIGUSR2

void handler(int signal) {
    // A log line is more than a handler should do, but it is what the signal is for.
    const int error = errno;
    WIFI_LOGW("Received a signal: %d", signal);
    errno = error;
}

}  // namespace

int main() {
    WIFI_LOGD("Starting native wifi service.");
    signal(kMarkSignal, handler);

    sp<CorvidWifiService> service = new CorvidWifiService();

    // One thread, this one, serves every HIDL call: they never run at the same time.
    configureRpcThreadpool(1, true);
    if (service->registerAsService("default") != OK) {
        WIFI_LOGE("Failed to register as a service.");
        service.clear();
        return 1;
    }
    joinRpcThreadpool();
    service.clear();
    return 0;
}
