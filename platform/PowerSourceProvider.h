#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace ambrel {

// One value of a power source's description: a boolean, an integer, a floating-point number
// or a text, as the system reports it.
using PowerSourceValue = std::variant<bool, std::int64_t, double, std::string>;

// The description of one power source. Keys read by this program: "Current Capacity",
// "Max Capacity" (numbers), "Is Present" (boolean), "Transport Type" (text),
// "Power Source State" (text: "AC Power" or "Battery Power"), "Is Charging" (boolean); for the
// battery's health "Design Capacity" (in the unit of "Max Capacity") and "Cycle Count"; and
// "Time to Empty", "Time to Full Charge" (minutes, at the rate the system reports now).
using PowerSourceDescription = std::map<std::string, PowerSourceValue>;

// All power sources of this computer, in a stable order. An entry is absent when its
// description could not be had.
using PowerSourceList = std::vector<std::optional<PowerSourceDescription>>;

class PowerSourceProvider {
public:
    virtual ~PowerSourceProvider() = default;
    // Main thread. Absent when the system has no power-source information to give at all.
    virtual std::optional<PowerSourceList> copyPowerSources() = 0;
};

} // namespace ambrel
