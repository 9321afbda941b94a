#pragma once

#include <optional>

namespace ambrel {

// How worn a battery is, as far as its system tells: each part is absent when unknown, and
// nothing is guessed to fill it.
struct BatteryHealth {
    // The full charge as a share of the design capacity, in percent (rounded).
    std::optional<int> maximumCapacity;
    std::optional<int> cycleCount;
    // In degrees Celsius; only the phone reports it.
    std::optional<double> temperature;

    bool isEmpty() const { return !maximumCapacity && !cycleCount && !temperature; }
    friend bool operator==(const BatteryHealth&, const BatteryHealth&) = default;
};

// How long the computer's battery has left to full or to empty at the rate the kernel reports
// now, in minutes. At most one of them is set.
struct BatteryTimeLeft {
    std::optional<int> minutesToFull;
    std::optional<int> minutesToEmpty;

    friend bool operator==(const BatteryTimeLeft&, const BatteryTimeLeft&) = default;
};

} // namespace ambrel
