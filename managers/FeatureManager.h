#pragma once

#include <string>

#include "os/StateTree.h"

namespace Ursa::OS::Wifi {

/**
 * Base of the feature managers. The composition root constructs each from the shared client; it
 * subscribes to events in its constructor.
 */
class FeatureManager {
  public:
    virtual ~FeatureManager() = default;

    /**
     * Appends the manager's state to the dump, a tab before each line; returns whether there is
     * any. Called on the HIDL thread, while events run on others: state that it reads needs a lock
     * or is atomic.
     */
    virtual bool dumpInfo(std::string& /*out*/) { return false; }

    /**
     * The state for a report, as named parts. Must not query other processes, nor take a lock that
     * is held across a command or a call, so that it answers while the manager hangs. Any thread.
     */
    virtual StateTree describe() const { return StateTree::parts(); }
};

}  // namespace Ursa::OS::Wifi
