#pragma once

#include <string>

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
};

}  // namespace Ursa::OS::Wifi
