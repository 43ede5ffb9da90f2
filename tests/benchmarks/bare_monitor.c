/*
 * bare_monitor WAIT_MS PATH...: waits, attaches to each control socket, and follows their events.
 * The least that a program in the daemon's place could be.
 */
#include "bare_client.h"

int main(int argc, char** argv) { return bare_monitor(argc, argv); }
