#pragma once

#include <chrono>

#include "tools/CommandLine.h"
#include "tools/Methods.h"

namespace Ursa::OS::Wifi::Tools {

/**
 * Ends the process with a line on standard error and kNoAnswer (kNoService while findService
 * waits), if the service does not answer within `limit` (0: no limit); a hung call cannot be
 * cancelled otherwise. Uses SIGALRM, so there is one object at a time.
 */
class Deadline {
  public:
    explicit Deadline(std::chrono::milliseconds limit);
    ~Deadline();
    Deadline(const Deadline&) = delete;
    Deadline& operator=(const Deadline&) = delete;

    /** Starts the time limit. */
    void start() const;
    /** Stops it: the call was answered. */
    void stop() const;

  private:
    const std::chrono::milliseconds limit_;
};

/**
 * Finds the service; with --wait waits for it until the Deadline ends the process. Throws
 * ServiceError, whose text distinguishes a missing permission from a missing service.
 */
::android::sp<IWifi> findService(const CommandLine& line);

}  // namespace Ursa::OS::Wifi::Tools
