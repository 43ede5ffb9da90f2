#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/**
 * Client library of the headset's sensor service: the hand controllers' radio link and the cameras.
 *
 * Any call may block until the service answers. The caller may end the thread meanwhile, by SIGALRM
 * with a handler that calls pthread_exit: a call lets the signal in while it waits and when it
 * returns, and keeps it out while it computes, allocates or uses files (docs/hung-calls.md). Any
 * thread may call; one provider is used by one thread at a time.
 */
namespace Ursa::Sensors {

/** What the library does when the service can't be reached. The values are the library's own. */
enum class TransportErrorAction : int32_t {};

/** Sets that for the whole process. */
void setTransportErrorAction(TransportErrorAction action);

/** Frequencies that the controllers' radio link must not use, in MHz, both ends included. */
struct ControllerWirelessFreqBlocklist {
    uint16_t start;
    uint16_t end;
};

using ControllerWirelessFreqBlocklists = std::vector<ControllerWirelessFreqBlocklist>;

/** The hand controllers. Every operation returns whether it succeeded. */
class ControllerProvider {
  public:
    virtual ~ControllerProvider() = default;

    /** Replaces `blocklists` with the ranges that are blocked; on failure leaves it as it is. */
    virtual bool getWirelessFreqBlocklists(ControllerWirelessFreqBlocklists& blocklists) = 0;

    /** Blocks exactly these ranges. */
    virtual bool setWirelessFreqBlocklists(const ControllerWirelessFreqBlocklists& blocklists) = 0;

    /** Blocks nothing any more. */
    virtual bool clearWirelessFreqBlocklists() = 0;
};

/** Null when the service offers no controllers. */
std::unique_ptr<ControllerProvider> createControllerProvider();

/** The cameras. */
class CameraProvider {
  public:
    virtual ~CameraProvider() = default;

    /**
     * Has the camera of that name run its MIPI link on another clock: 0 is 384 MHz, 1 is 398 MHz.
     * Returns whether the service took it.
     */
    virtual bool notifyMipiClock(const std::string& cameraName, int32_t clock) = 0;
};

/** Null when the service offers no cameras. */
std::unique_ptr<CameraProvider> createCameraProvider();

}  // namespace Ursa::Sensors
