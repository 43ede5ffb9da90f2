#include "managers/PerChainTxPower.h"

#include <utility>

#include "client/CorvidWifiClient.h"
#include "managers/support/WifiBand.h"

namespace Ursa::OS::Wifi {

namespace {

std::string toString(const ChainLimits& limits) {
    return std::to_string(limits[0]) + ", " + std::to_string(limits[1]);
}

}  // namespace

PerChainTxPower::PerChainTxPower(std::shared_ptr<CorvidWifiClient> client)
    : client_(std::move(client)) {}

void PerChainTxPower::setParameters(int lowRssiLower, int lowRssiUpper, unsigned defaultDbm0,
                                    unsigned defaultDbm1, unsigned lowDbm0, unsigned lowDbm1) {
    lowRssiBoundLower_ = lowRssiLower;
    lowRssiBoundUpper_ = lowRssiUpper;
    defaultDbm_ = {defaultDbm0, defaultDbm1};
    lowRssiDbm_ = {lowDbm0, lowDbm1};
}

const ChainLimits& PerChainTxPower::chooseLimits(int rssi, int freq) const {
    const bool lowRssi = lowRssiBoundLower_ < rssi && rssi < lowRssiBoundUpper_;
    const bool is2Ghz = freq >= 1 && freq < kFirst5GhzFrequency;
    return lowRssi && is2Ghz ? lowRssiDbm_ : defaultDbm_;
}

void PerChainTxPower::update(int rssi, int freq) {
    const ChainLimits& target = chooseLimits(rssi, freq);
    for (size_t chain = 0; chain < target.size(); ++chain) {
        std::atomic<unsigned>& current = currentDbm_[chain];
        if (current != target[chain] && setSingleChainLimit_(current, static_cast<int>(chain))) {
            current = target[chain];
        }
    }
}

bool PerChainTxPower::setSingleChainLimit_(unsigned dbm, int chain) {
    if (client_ == nullptr) {
        return true;
    }
    const std::string command = "DRIVER SET_PER_CHAIN_TX_PWR_LIMIT band 0 chain " +
                                std::to_string(chain) + " power " + std::to_string(dbm);
    std::string reply;
    return client_->sendWpaCtrlCmd(command, reply, NetInterfaceType::STA);
}

StateTree PerChainTxPower::describe() const {
    const auto limits = [](const ChainLimits& dbm) {
        StateTree list = StateTree::list();
        for (const unsigned limit : dbm) {
            list.add(limit);
        }
        return list;
    };
    StateTree state = StateTree::parts();
    state.set("lowRssiLower", lowRssiBoundLower_);
    state.set("lowRssiUpper", lowRssiBoundUpper_);
    state.set("default", limits(defaultDbm_));
    state.set("low", limits(lowRssiDbm_));
    state.set("current", limits(current_()));
    return state;
}

std::string PerChainTxPower::dump(const std::string& prefix) const {
    return prefix + "PerChainTxPower: enabled\n" +                                          //
           prefix + "  kLowRssiBoundLower: " + std::to_string(lowRssiBoundLower_) + "\n" +  //
           prefix + "  kLowRssiBoundUpper: " + std::to_string(lowRssiBoundUpper_) + "\n" +  //
           prefix + "  kPowerLimitDefaultDbmArray: " + toString(defaultDbm_) + "\n" +       //
           prefix + "  kPowerLimitLowRssiDbmArray: " + toString(lowRssiDbm_) + "\n" +       //
           prefix + "  currentDbmArray: " + toString(current_()) + "\n";
}

}  // namespace Ursa::OS::Wifi
