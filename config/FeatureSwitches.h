#pragma once

namespace Ursa::OS::Wifi {

/** The features, one per manager, in the order in which the managers are built. */
enum Feature : unsigned long {
    kFeatureSta = 0,
    kFeatureP2p = 1,
    kFeatureAssocStarted = 2,
    kFeatureChannelSwitch = 3,
    kFeatureNoa = 4,
    kFeatureMccTime = 5,
    kFeatureElnaBypass = 6,
    kFeatureRegdom = 7,
    kFeatureScs = 8,
    kFeatureTxChain = 9,
    kFeatureTxPower = 10,
    kFeatureDevParams = 11,
    kFeaturePowerJumpDetect = 12,
    kFeatureTelemetry = 13,
    kFeatureCoex = 14,
    kFeatureMipiClock = 15,
    kFeatureFrequencyBlock = 16,
};

/**
 * Whether the feature is switched on, read from the system properties at each call. A switch only
 * ever turns features off: the always-on ones and unknown numbers answer true. Any thread.
 */
bool IsFeatureEnabled(unsigned long feature);

}  // namespace Ursa::OS::Wifi
