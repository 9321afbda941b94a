#pragma once

#include <string>

#include "monitor/BatteryMonitor.h"

namespace ambrel::ReadingsCommand {

// The one-line report of "--readings": compact JSON, keys sorted, snapshots in their JSON form:
// {"mac":…,"macStatus":…,"phone":…,"phoneSetupState":…,"phoneStatus":…}
std::string report(const BatteryMonitor& monitor);

// Builds the monitor as a normal run would, reads both batteries once, waits for the phone
// read to end, prints the report and returns the exit code (0). Needs no display.
int run(int argc, char** argv);

} // namespace ambrel::ReadingsCommand
