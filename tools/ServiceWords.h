#pragma once

#include "tools/CommandLine.h"

// The subcommands that call the service and print its answer.

namespace Ursa::OS::Wifi::Tools {

int runCall(const CommandLine& line);
int runDebug(const CommandLine& line);
int runDump(const CommandLine& line);
int runMonitor(const CommandLine& line);
int runP2p(const CommandLine& line);
int runRecord(const CommandLine& line);
int runSta(const CommandLine& line);

}  // namespace Ursa::OS::Wifi::Tools
