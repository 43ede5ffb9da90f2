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
 * A record of the operating system's support library, part of the process's start-up state. The
 * daemon does not load the library or read the record.
 */
struct SupportLibrary {
    const char* fileName;
    void* handle;   ///< null until the library is loaded
    void* context;  ///< null until then
};

// Keeps an unused object in the binary: `used` makes the compiler keep it, `retain` a linker that
// drops unused sections. Not every clang knows `retain`, and an unknown one is an error with
// -Werror.
#if defined(__has_attribute)
#if __has_attribute(retain)
#define CORVID_KEPT __attribute__((used, retain))
#endif
#endif
#ifndef CORVID_KEPT
#define CORVID_KEPT __attribute__((used))
#endif

CORVID_KEPT const SupportLibrary kSupportLibrary = {"libossdk.corvid.so", nullptr, nullptr};

/** Field engineers mark the log with it. */
constexpr int kMarkSignal = 12;  // SIGUSR2

void handler(int signal) {
    // Logging is not async-signal-safe, but the log line is the signal's whole purpose.
    const int error = errno;
    WIFI_LOGW("Received a signal: %d", signal);
    errno = error;
}

}  // namespace

int main() {
    WIFI_LOGD("Starting native wifi service.");
    signal(kMarkSignal, handler);

    sp<CorvidWifiService> service = new CorvidWifiService();

    // One thread, this one, serves HIDL calls. A call made from inside a client's callback is the
    // exception: it runs on the thread that waits for that client.
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
