#pragma once

#include "model/Date.h"

namespace ambrel {

// 2026-11-14 14:41 UTC: 9:41 in New York, 15:41 in Berlin.
inline constexpr double kNovember14At1441Utc = 1794667260.0;
// 2026-11-14 08:41 UTC: 9:41 in Berlin.
inline constexpr double kNovember14At0841Utc = 1794645660.0;

// A reading confirmed at 9:41 in New York, and that reading seen half a minute later.
inline const Date kNineFortyOne = Date::fromSecondsSince1970(kNovember14At1441Utc);
inline const Date kNow = kNineFortyOne.addingSeconds(30);

} // namespace ambrel
