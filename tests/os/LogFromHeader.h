#pragma once

#include "os/Log.h"

inline void logFromHeader() { WIFI_LOGW("from a header"); }
