#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "model/BatteryHealth.h"
#include "model/PhoneLink.h"

namespace ambrel {
class ProcessLauncher;
}

namespace ambrel::PhoneHealthReader {

inline constexpr const char* kTool = "idevicediagnostics";
// The registry entry of the phone's battery gauge.
inline constexpr const char* kBatteryEntry = "AppleSmartBattery";
inline constexpr std::chrono::seconds kTimeLimit{20};
// A battery entry runs to tens of kilobytes; more than this is not one.
inline constexpr std::size_t kLargestOutput = 512 * 1024;

// The health in the battery entry `idevicediagnostics ioregentry AppleSmartBattery` printed:
// the cycle count, the full charge the gauge measures (NominalChargeCapacity, else
// AppleRawMaxCapacity) against DesignCapacity, and the temperature (hundredths of a degree).
// Keys missing at the top are looked for in the entry's BatteryData. Absent when the output is
// no registry entry or tells none of them. Pure.
std::optional<BatteryHealth> parse(std::string_view toolOutput);

// Runs the tool in `toolDirectory` for the phone `udid` over `link` and parses what it prints.
// Absent when the tool is missing, fails, hangs past kTimeLimit or prints nothing usable.
// Blocks: worker threads only.
std::optional<BatteryHealth> read(const std::filesystem::path& toolDirectory,
                                  const std::string& udid, PhoneLink link,
                                  ProcessLauncher& launcher,
                                  std::chrono::milliseconds timeout = kTimeLimit);

} // namespace ambrel::PhoneHealthReader
