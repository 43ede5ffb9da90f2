#pragma once

#include <memory>
#include <string>

namespace Ursa::OS::Wifi {

class CoexManager;
class P2pManager;
class StaManager;

/**
 * What a manager may ask of the object that created it. It is the only way from one manager to
 * another; the three that others build on are named here. One whose feature is switched off is
 * null, with a warning in the log. A manager may look up those above it in config/FeatureList.h
 * from its constructor on.
 */
class CompositionRoot {
  public:
    /**
     * Notes that `task` (class, dot, handler: "TxPowerManager.onStaConnected") last ran on thread
     * `pid`, for the dump. Any thread.
     */
    virtual void mapTaskToPid(const std::string& task, int pid) = 0;

    virtual std::shared_ptr<StaManager> staManager() const = 0;
    virtual std::shared_ptr<P2pManager> p2pManager() const = 0;
    virtual std::shared_ptr<CoexManager> coexManager() const = 0;

  protected:
    ~CompositionRoot() = default;
};

}  // namespace Ursa::OS::Wifi
