#pragma once

/** Logs a line at every level under "CorvidWifi" and under "Other". */
void logEveryLevel();

/** Logs `count` lines of a few hundred characters from each of four threads. */
void logStorm(int count);
