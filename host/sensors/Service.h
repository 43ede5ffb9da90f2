#pragma once

#include <signal.h>

#include <cstdint>
#include <memory>
#include <string>

#include <vrsensors/Sensors.h>

namespace Ursa::Sensors {

/** What the service does with a call. */
enum class Answer { Success, Failure, Hang };

/**
 * Reads the answer from a system property: "hang", `failure`, or success for anything else ("ok" or
 * not set; other values are logged as errors).
 */
Answer answerOf(const char* property, const char* failure);

// The rest reads and writes the service's state files. Returns false, and logs, if that fails.

bool readBlocklist(ControllerWirelessFreqBlocklists& blocklists);
bool writeBlocklist(const ControllerWirelessFreqBlocklists& blocklists);
bool writeClock(const std::string& cameraName, int32_t clock);
void writeTransportErrorAction(TransportErrorAction action);

class HostControllerProvider : public ControllerProvider {
  public:
    bool getWirelessFreqBlocklists(ControllerWirelessFreqBlocklists& blocklists) override;
    bool setWirelessFreqBlocklists(const ControllerWirelessFreqBlocklists& blocklists) override;
    bool clearWirelessFreqBlocklists() override;
};

class HostCameraProvider : public CameraProvider {
  public:
    bool notifyMipiClock(const std::string& cameraName, int32_t clock) override;
};

// These take a SIGALRM that has come meanwhile, where it releases the provider.
std::unique_ptr<ControllerProvider> makeControllerProvider(const sigset_t& callersMask);
std::unique_ptr<CameraProvider> makeCameraProvider(const sigset_t& callersMask);

/** With SIGALRM blocked: lets the handler of one that has come run, and blocks it again. */
void takePendingAlarm(const sigset_t& callersMask);

}  // namespace Ursa::Sensors
