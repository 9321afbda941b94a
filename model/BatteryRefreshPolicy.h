#pragma once

namespace ambrel::BatteryRefreshPolicy {

// Delay, in seconds, from the end of one automatic phone read to the start of the next.
inline constexpr double phoneInterval = 300.0;
// A phone reading older than this many seconds is stale.
inline constexpr double phoneStaleAfter = 600.0;
// Period, in seconds, of this computer's battery refresh.
inline constexpr double macInterval = 60.0;
// Any reading but the phone's is stale once older than this many seconds.
inline constexpr double macStaleAfter = 180.0;

} // namespace ambrel::BatteryRefreshPolicy
