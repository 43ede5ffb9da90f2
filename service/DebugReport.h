#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "os/Moment.h"
#include "os/StateTree.h"

namespace Ursa::OS::Wifi {

class CorvidWifiClient;
class CorvidWifiManager;
struct PropertyState;

/**
 * Answers the platform's debug call: collects the daemon's state and writes it as text or JSON
 * (docs/debug.md). Does not query other processes, nor take a lock that is held across a call, so
 * that it answers while everything else hangs. Called on the HIDL thread.
 */
class DebugReport {
  public:
    /** Version of the JSON; incremented if a field is removed or changes its meaning. */
    static constexpr int kSchema = 1;

    DebugReport(CorvidWifiClient& client, const CorvidWifiManager& managers);

    /** Takes a piece of the report; returns false if it does not want the rest. */
    using Sink = std::function<bool(std::string_view piece)>;

    /**
     * Options are "--json", "--help" and names of sections; without any, everything as text. The
     * sections are collected and given to `sink` one after the other: all at once would take six
     * times the memory that the daemon has in use otherwise.
     */
    void write(const std::vector<std::string>& options, const Sink& sink) const;

    /** The text for "--help". */
    static std::string help();

  private:
    struct Section {
        const char* name;
        const char* content;
        StateTree (DebugReport::*describe)() const;
    };
    static const std::vector<Section>& sections_();

    StateTree schema_() const { return kSchema; }
    StateTree build_() const;
    StateTree process_() const;
    StateTree features_(std::string_view section) const;
    StateTree feature_(size_t number, const std::vector<PropertyState>& properties) const;
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
