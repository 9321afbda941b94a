#pragma once

#include <filesystem>
#include <optional>

#include "model/BatteryDeviceSnapshot.h"

namespace ambrel::ReadingCache {

// Saves `snapshot` as compact JSON at `file`: missing folders are made with mode 0700 (existing
// ones keep theirs), the bytes go to a temporary file in the same folder that is flushed to disk,
// set to mode 0600 and renamed over the old file. A reader sees the old file or the new one,
// never a part, even if the process is killed mid-write. Every failure is silent and leaves what
// was on disk.
void save(const std::filesystem::path& file, const BatteryDeviceSnapshot& snapshot);

// The saved phone reading at `file`, if there is one worth showing at `now`: it is a regular
// file (symbolic links followed) of at most 64 KiB that decodes, its id is "iphone", its
// percentage is 0...100 and it is dated no later than now + 60 s. Silent.
std::optional<BatteryDeviceSnapshot> load(const std::filesystem::path& file, Date now);

// Readings dated further ahead than this many seconds come from a wrong clock.
inline constexpr double kFutureTolerance = 60.0;

} // namespace ambrel::ReadingCache
