#pragma once

#include <chrono>

#include "tools/CommandLine.h"
#include "tools/Methods.h"

namespace Ursa::OS::Wifi::Tools {

/**
 * Ends the process with kNoAnswer, and a line on standard error, when the service takes longer than
 * `limit` to answer: a call of it can't be given up otherwise. One at a time; 0: no limit. It uses
 * SIGALRM.
 */
class Deadline {
  public:
    explicit Deadline(std::chrono::milliseconds limit);
    ~Deadline();
    Deadline(const Deadline&) = delete;
    Deadline& operator=(const Deadline&) = delete;

    /** Counts from now on. */
    void start() const;
    /** Nothing is waited for. */
    void stop() const;

  private:
    const std::chrono::milliseconds limit_;
};

/**
 * The service. With --wait it is waited for, for --timeout at most. Throws ServiceError, which
 * tells a missing permission from a missing service.
 */
::android::sp<IWifi> findService(const CommandLine& line);

}  // namespace Ursa::OS::Wifi::Tools
