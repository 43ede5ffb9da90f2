#pragma once

#include "client/NetInterfaceType.h"
#include "os/Log.h"

/** Logs a line of one supplicant connection. It begins "[WPA-STA]", without the source's name. */
#define WPA_LOG(level, type, format, ...) \
    ALOG##level("[WPA-%s] " format, toString(type), ##__VA_ARGS__)
