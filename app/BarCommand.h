#pragma once

#include <optional>
#include <string>
#include <vector>

#include "monitor/BarState.h"
#include "monitor/BatteryMonitor.h"

namespace ambrel::BarCommand {

// Whether the arguments ask for "--bar" (anywhere after the program path).
bool isRequested(const std::vector<std::string>& arguments);

// What a status bar shows now: the running widget's state when one runs, else the saved phone
// reading and the computer's reading held by `monitor` (which never reads the phone here).
BarState currentState(const BatteryMonitor& monitor);

// "--bar waybar|polybar|i3blocks [--follow]": prints one line for the bar at once, never
// waiting for the phone, and exits with the format's code (i3blocks: 33 when a battery is
// critical). With "--follow" it keeps running and prints a new line whenever what the bar shows
// changes (i3blocks then prints only the full text, as its persistent mode reads it). An
// unknown or missing format prints a hint on standard error and exits 2.
int run(int argc, char** argv, const std::vector<std::string>& arguments);

// Exit code for a missing or unknown bar format.
inline constexpr int kUsageExitCode = 2;

} // namespace ambrel::BarCommand
