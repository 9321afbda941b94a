#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "model/BatteryDeviceSnapshot.h"
#include "model/BatteryHealth.h"
#include "platform/HostInfo.h"
#include "platform/PowerSourceProvider.h"

namespace ambrel {

// What one look at this computer's battery found: always a status line, and a snapshot when a
// built-in battery was read.
struct MacBatteryOutcome {
    std::optional<BatteryDeviceSnapshot> snapshot;
    std::string status;
    // With a snapshot: what the system tells of the battery's wear and of the time left.
    BatteryHealth health;
    BatteryTimeLeft timeLeft;
};

namespace MacBatteryReader {

inline constexpr const char* kStatusUnavailable = "Mac battery is unavailable";
inline constexpr const char* kStatusNoBattery = "No built-in battery found";
inline constexpr const char* kStatusOnBattery = "On battery";
inline constexpr const char* kStatusCharging = "Charging";
inline constexpr const char* kStatusConnected = "Connected to power";
inline constexpr const char* kFallbackName = "MacBook";

// Takes the first power source that is a present, internal battery with a usable capacity and
// builds its snapshot, dated `now`. Main thread; cheap.
MacBatteryOutcome read(PowerSourceProvider& powerSources, const HostInfo& host, Date now);

// current / max * 100, rounded half away from zero and clamped to 0...100. Absent only when
// the ratio is not a number at all.
std::optional<std::int64_t> percentage(double current, double max);

// The full charge as a share of the design capacity, rounded. Absent when either is not a
// positive number, or when the share is beyond what a real battery reports (over 150 %): a
// driver's wrong unit, not a battery.
std::optional<int> maximumCapacity(double full, double design);

// The model identifier as the system stores it: the bytes up to the first zero byte; absent
// when unreadable or shorter than two bytes.
std::optional<std::string> modelIdentifier(const HostInfo& host);

} // namespace MacBatteryReader

} // namespace ambrel
