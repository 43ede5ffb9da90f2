#pragma once

#include <csignal>

#include "tools/WakeFd.h"

namespace Ursa::OS::Wifi::Tools {

/**
 * Wakes on SIGINT and SIGTERM while it lives; one at a time. A second signal of the same kind ends
 * the process at once.
 */
class StopSignals {
  public:
    explicit StopSignals(const WakeFd& wakeUp);
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

  private:
    struct sigaction oldInt_ = {};
    struct sigaction oldTerm_ = {};
};

}  // namespace Ursa::OS::Wifi::Tools
