#pragma once

// The configured values of station and P2P power control. Each is read from its system property at
// its first use in the process and kept from then on, whatever is set later. Any thread.

namespace Ursa::OS::Wifi::TxPowerSettings {

bool staEnabled();
bool p2pEnabled();
/** Whether the station's power is limited per chain, in the place of its steps. */
bool perChain();

// Power steps in dBm; in half dBm when unitIsHalfDbm().
unsigned upper();
unsigned middle();
unsigned lower();
/** P2P power on 2.4 GHz. */
unsigned p2p();
bool unitIsHalfDbm();

// Signal thresholds of the station's steps, dBm.
int rssiUpper();
int rssiMiddleUpper();
int rssiMiddleLower();
int rssiLower();

// Of the limits per chain: the exclusive bounds of the low-signal range, dBm, and the limits of
// chain 0 and 1 outside and inside of it, dBm.
int perChainLowRssiLower();
int perChainLowRssiUpper();
unsigned perChainDefaultDbm0();
unsigned perChainDefaultDbm1();
unsigned perChainLowDbm0();
unsigned perChainLowDbm1();

}  // namespace Ursa::OS::Wifi::TxPowerSettings
