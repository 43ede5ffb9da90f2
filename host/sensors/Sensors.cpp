// The library's own functions. A caller may end its thread by SIGALRM while one of them hangs, and
// the signal may come at any time: each function blocks it before it does anything else, so that
// none is met inside the allocator, a destructor or a function that must not throw. See
// docs/hung-calls.md.

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <vrsensors/Sensors.h>

#include "Service.h"

#if defined(__EXCEPTIONS)
#error "A function of this file has something to destroy: see CMakeLists.txt."
#endif

namespace Ursa::Sensors {
namespace {

sigset_t blockAlarm() {
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &alarm, &before);
    return before;
}

void restore(const sigset_t& mask) { pthread_sigmask(SIG_SETMASK, &mask, nullptr); }

/** Until the thread is ended by a signal that the caller lets in. */
[[noreturn]] void hang(const sigset_t& callersMask) {
    restore(callersMask);
    while (true) {
        pause();
    }
}

/** Plays one call of the service, which does what the property says. */
template <typename Call>
auto callService(const char* property, const char* failure, Call call) {
    const sigset_t callersMask = blockAlarm();
    const Answer answer = answerOf(property, failure);
    if (answer == Answer::Hang) {
        hang(callersMask);
    }
    auto result = call(answer == Answer::Success, callersMask);
    restore(callersMask);
    return result;
}

}  // namespace

void takePendingAlarm(const sigset_t& callersMask) {
    restore(callersMask);
    blockAlarm();
}

void setTransportErrorAction(TransportErrorAction action) {
    const sigset_t callersMask = blockAlarm();
    writeTransportErrorAction(action);
    restore(callersMask);
}

std::unique_ptr<ControllerProvider> createControllerProvider() {
    return callService("debug.sensors.controller.create", "null",
                       [](bool works, const sigset_t& mask) {
                           return works ? makeControllerProvider(mask) : nullptr;
                       });
}

bool HostControllerProvider::getWirelessFreqBlocklists(
    ControllerWirelessFreqBlocklists& blocklists) {
    return callService("debug.sensors.controller.get", "fail", [&](bool works, const sigset_t&) {
        return works && readBlocklist(blocklists);
    });
}

bool HostControllerProvider::setWirelessFreqBlocklists(
    const ControllerWirelessFreqBlocklists& blocklists) {
    return callService("debug.sensors.controller.set", "fail", [&](bool works, const sigset_t&) {
        return works && writeBlocklist(blocklists);
    });
}

bool HostControllerProvider::clearWirelessFreqBlocklists() {
    return callService("debug.sensors.controller.clear", "fail",
                       [](bool works, const sigset_t&) { return works && writeBlocklist({}); });
}

std::unique_ptr<CameraProvider> createCameraProvider() {
    return callService("debug.sensors.camera.create", "null", [](bool works, const sigset_t& mask) {
        return works ? makeCameraProvider(mask) : nullptr;
    });
}

bool HostCameraProvider::notifyMipiClock(const std::string& cameraName, int32_t clock) {
    return callService("debug.sensors.camera.notify", "", [&](bool works, const sigset_t&) {
        return works && writeClock(cameraName, clock);
    });
}

}  // namespace Ursa::Sensors
