#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "os/Moment.h"
#include "os/StateTree.h"

namespace Ursa::OS::Wifi {

class CorvidWifiClient;
class CorvidWifiManager;

/**
 * Answers the platform's debug call: gathers what the daemon knows about itself and writes it as
 * text or as JSON (docs/debug.md). Asks nobody outside and takes no lock that is held across a
 * call, so that it answers while everything else hangs. Called on the HIDL thread.
 */
class DebugReport {
  public:
    /** Of JSON; counts up when a field goes or changes its meaning. */
    static constexpr int kSchema = 1;

    DebugReport(CorvidWifiClient& client, const CorvidWifiManager& managers);

    /** Options: "--json", "--help", names of sections; none: everything, as text. */
    std::string write(const std::vector<std::string>& options) const;

    /** What "--help" gives. */
    static std::string help();

  private:
    struct Section {
        const char* name;
        const char* content;
        StateTree (DebugReport::*describe)() const;
    };
    static const std::vector<Section>& sections_();

    StateTree describe_(const std::vector<std::string>& names) const;
    StateTree process_() const;
    StateTree features_(std::string_view section) const;
    StateTree feature_(size_t number) const;
    StateTree sta_() const { return features_("sta"); }
    StateTree p2p_() const { return features_("p2p"); }
    StateTree power_() const { return features_("power"); }
    StateTree coex_() const { return features_("coex"); }
    StateTree sockets_() const;
    StateTree netlink_() const;
    StateTree clients_() const;
    StateTree properties_() const;
    StateTree history_() const;
    StateTree threads_() const;

    CorvidWifiClient& client_;
    const CorvidWifiManager& managers_;
    const Moment started_ = Moment::now();
};

}  // namespace Ursa::OS::Wifi
