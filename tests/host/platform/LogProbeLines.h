#pragma once

/** Logs a line at every level under "CorvidWifi" and under "Other". */
void logEveryLevel();

/** Logs `count` lines of a few hundred characters from each of four threads. */
void logStorm(int count);

/** Logs the second's number, again and again until two seconds have begun. */
void logSeconds();

/**
 * Logs "PID TID" of the writer, twice at a time: from the first thread before and after its fork,
 * the fork and a thread of the fork, and from a second thread before and after its fork, and the
 * fork.
 */
void logIds();

/** Logs lines of 1900 to 2100 'x', and one of 10,000. */
void logLengths();

/** Logs a line with a source file and line number. */
void logWithPlace();
