#pragma once

#include "client/NetInterfaceType.h"
#include "os/Log.h"

/** A log line of one supplicant connection. It begins with "[WPA-STA]", not with the source name.
 */
#define WPA_LOG(level, type, format, ...) \
    ALOG##level("[WPA-%s] " format, toString(type), ##__VA_ARGS__)
