#pragma once

#include "client/NetInterfaceType.h"
#include "os/Log.h"

/** A log line of one supplicant connection: begins with the interface kind, not the source name. */
#define WPA_LOG(level, type, format, ...) \
    ALOG##level("[WPA-%s] " format, toString(type), ##__VA_ARGS__)
