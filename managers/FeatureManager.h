#pragma once

#include <string>

namespace Ursa::OS::Wifi {

/**
 * What every feature manager is: built by the composition root from the shared client (it
 * subscribes in its constructor), and able to describe itself in the dump.
 */
class FeatureManager {
  public:
    virtual ~FeatureManager() = default;

    /**
     * Appends the manager's state, a tab before each line, and returns whether it wrote any. Most
     * have nothing to tell. Called on the HIDL thread.
     */
    virtual bool dumpInfo(std::string& /*out*/) { return false; }
};

}  // namespace Ursa::OS::Wifi
