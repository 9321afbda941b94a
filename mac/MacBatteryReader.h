#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "model/BatteryDeviceSnapshot.h"
#include "platform/HostInfo.h"
#include "platform/PowerSourceProvider.h"

namespace ambrel {

// What one look at this computer's battery found: always a status line, and a snapshot when a
// built-in battery was read.
struct MacBatteryOutcome {
    std::optional<BatteryDeviceSnapshot> snapshot;
    std::string status;
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

// The model identifier as the system stores it: the bytes up to the first zero byte; absent
// when unreadable or shorter than two bytes.
std::optional<std::string> modelIdentifier(const HostInfo& host);

} // namespace MacBatteryReader

} // namespace ambrel
