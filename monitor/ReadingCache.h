#pragma once

#include <filesystem>
#include <optional>

#include "model/BatteryDeviceSnapshot.h"

namespace ambrel::ReadingCache {

// Saves `snapshot` as compact JSON at `file`: missing folders are made with mode 0700 (existing
// ones keep theirs), the bytes go to a temporary file in the same folder that is flushed to disk
// and renamed over the old file, then the file is set to 0600. A reader sees the old file or the
// new one, never a part. Every failure is silent and leaves what was on disk.
void save(const std::filesystem::path& file, const BatteryDeviceSnapshot& snapshot);

// The saved phone reading at `file`, if there is one worth showing at `now`: it decodes, its id
// is "iphone", its percentage is 0...100 and it is dated no later than now + 60 s. Silent.
std::optional<BatteryDeviceSnapshot> load(const std::filesystem::path& file, Date now);

// Readings dated further ahead than this many seconds come from a wrong clock.
inline constexpr double kFutureTolerance = 60.0;

} // namespace ambrel::ReadingCache
