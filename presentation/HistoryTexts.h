#pragma once

#include <optional>
#include <string>

#include "model/BatteryHealth.h"

namespace ambrel::HistoryTexts {

inline constexpr const char* kWindowTitle = "Battery History";
inline constexpr const char* kMenuItem = "Battery History…";

// "Maximum capacity 87 % · 412 cycles"; a part that is unknown is left out, and nothing known
// gives an empty text.
std::string healthLine(const BatteryHealth& health);

// "About 1 h 20 min to full", "About 45 min to empty", "About 3 h to empty". Whole minutes,
// at least one.
std::string timeLeftLine(int minutes, bool toFull);

// "5 min", "1 h", "1 h 20 min": a duration in whole minutes, as the history texts write it.
std::string durationText(int minutes);

} // namespace ambrel::HistoryTexts
