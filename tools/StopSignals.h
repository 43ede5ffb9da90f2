#pragma once

#include <csignal>

#include "tools/Service.h"
#include "tools/WakeFd.h"

namespace Ursa::OS::Wifi::Tools {

/**
 * Wakes on SIGINT and SIGTERM while it lives; one at a time. A second signal of the same kind ends
 * the process at once; so does `deadline`, if there is one, which counts from the first.
 */
class StopSignals {
  public:
    explicit StopSignals(const WakeFd& wakeUp, const Deadline* deadline = nullptr);
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

  private:
    struct sigaction oldInt_ = {};
    struct sigaction oldTerm_ = {};
};

}  // namespace Ursa::OS::Wifi::Tools
