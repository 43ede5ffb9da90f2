#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "client/CompositionRoot.h"

namespace test {

/** A composition root whose managers the test sets. It records the noted tasks. */
class FakeCompositionRoot final : public Ursa::OS::Wifi::CompositionRoot {
  public:
    void mapTaskToPid(const std::string& task, int pid) override {
        const std::lock_guard<std::mutex> lock(mutex_);
        tasks_[task] = pid;
    }

    /** The tasks noted so far, with their thread ids. Any thread. */
    std::map<std::string, int> tasks() const {
        const std::lock_guard<std::mutex> lock(mutex_);
        return tasks_;
    }
    bool ran(const std::string& task) const { return tasks().count(task) != 0; }

    std::shared_ptr<Ursa::OS::Wifi::StaManager> staManager() const override { return sta; }
    std::shared_ptr<Ursa::OS::Wifi::P2pManager> p2pManager() const override { return p2p; }
    std::shared_ptr<Ursa::OS::Wifi::CoexManager> coexManager() const override { return coex; }

    // Set them before you create the managers that look them up. Null: switched off.
    std::shared_ptr<Ursa::OS::Wifi::StaManager> sta;
    std::shared_ptr<Ursa::OS::Wifi::P2pManager> p2p;
    std::shared_ptr<Ursa::OS::Wifi::CoexManager> coex;

  private:
    mutable std::mutex mutex_;
    std::map<std::string, int> tasks_;
};

}  // namespace test
