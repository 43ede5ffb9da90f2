#pragma once

#include <memory>
#include <string>

namespace Ursa::OS::Wifi {

class CoexManager;
class P2pManager;
class StaManager;

/**
 * What a manager may ask of the object that created it, and its only way to another manager. The
 * getters return null, with a warning in the log, if the manager's feature is switched off. A
 * constructor may look up the managers above its own in config/FeatureList.h, which exist already.
 * Any thread.
 */
class CompositionRoot {
  public:
    /**
     * Notes for the dump that `task` ("TxPowerManager.onStaConnected") last ran on the thread with
     * this Linux thread id.
     */
    virtual void mapTaskToPid(const std::string& task, int pid) = 0;

    virtual std::shared_ptr<StaManager> staManager() const = 0;
    virtual std::shared_ptr<P2pManager> p2pManager() const = 0;
    virtual std::shared_ptr<CoexManager> coexManager() const = 0;

  protected:
    ~CompositionRoot() = default;
};

}  // namespace Ursa::OS::Wifi
