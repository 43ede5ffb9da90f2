#pragma once

#include <mutex>
#include <string>

#include "client/History.h"
#include "os/Moment.h"
#include "os/StateTree.h"
#include "os/ValueMutex.h"

namespace Ursa::OS::Wifi {

/**
 * A manager's last call of another service, for reports: what was sent, when, and how it ended. One
 * thread notes its calls; any thread reads. No lock is held while the call runs.
 */
class LastCall {
  public:
    void begin(std::string text);
    /** `reason` tells of a failure why; may be empty. */
    void end(CommandOutcome outcome, std::string reason = {});

    /** Like the last command of a feature, and nothing before the first call. */
    StateTree describe() const;

  private:
    struct State {
        Moment at;  ///< when it began; never: no call yet
        int64_t durationNs = 0;
        CommandOutcome outcome = CommandOutcome::None;
        std::string text;
        std::string reason;
    };

    mutable ValueMutexBase<State, std::mutex> state_;
};

}  // namespace Ursa::OS::Wifi
