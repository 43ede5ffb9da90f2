/* A signal sample dealt with as a C program would, with the same steps as the daemon's. */
#pragma once

#include "bare_client.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Asks for one sample after the other: reads the signal from the reply, looks whether the file
 * `property` is there, chooses the power step by the default thresholds, writes a log line to
 * standard error, sends the step's command and logs the reply. Ends with the first reply to
 * SIGNAL_POLL that has no signal in it.
 */
void bare_sample(const struct bare_client* client, const char* property);

#ifdef __cplusplus
}
#endif
