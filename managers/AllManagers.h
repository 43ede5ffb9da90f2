#pragma once

// The feature managers, for whoever creates or calls them all.

#include "managers/AssocStartedManager.h"
#include "managers/ChannelSwitchManager.h"
#include "managers/CoexManager.h"
#include "managers/DevParamsManager.h"
#include "managers/ElnaBypassManager.h"
#include "managers/FrequencyBlockManager.h"
#include "managers/MccTimeManager.h"
#include "managers/MipiClockManager.h"
#include "managers/NoaManager.h"
#include "managers/P2pManager.h"
#include "managers/PowerJumpDetectManager.h"
#include "managers/RegdomManager.h"
#include "managers/ScsManager.h"
#include "managers/StaManager.h"
#include "managers/TelemetryManager.h"
#include "managers/TxChainManager.h"
#include "managers/TxPowerManager.h"
