#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/Expected.h"
#include "phone/PhoneIssue.h"
#include "phone/PhoneReading.h"
#include "platform/Clock.h"

namespace ambrel {

using PhoneReadResult = Expected<PhoneReading, PhoneIssue>;

namespace PhoneReader {

// One attempt to read the phone's battery with the tools in `toolDirectory`: Wi-Fi devices
// first, then USB. `preferredID` (the udid read last time) is tried first; a remembered
// `identity` with the same udid spares the name and model reads. The snapshot is dated by
// `clock`. Blocks for many seconds: worker threads only. Stateless and thread-safe.
PhoneReadResult readAttempt(const std::filesystem::path& toolDirectory,
                            const std::optional<std::string>& preferredID,
                            const std::optional<PhoneIdentity>& identity, const Clock& clock);

// Reads one lockdown value as plain text: `infoTool` with `base` + "-k", `key`.
std::optional<std::string> readKey(const std::string& key, const std::filesystem::path& infoTool,
                                   const std::vector<std::string>& base);

} // namespace PhoneReader

} // namespace ambrel
