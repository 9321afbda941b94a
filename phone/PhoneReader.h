#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/Expected.h"
#include "phone/PhoneIssue.h"
#include "phone/PhoneReadTimeouts.h"
#include "phone/PhoneReading.h"
#include "platform/Clock.h"

namespace ambrel {
class ProcessLauncher;
}

namespace ambrel {

using PhoneReadResult = Expected<PhoneReading, PhoneIssue>;

namespace PhoneReader {

// At most this many listed devices are queried per pass.
inline constexpr std::size_t kMostCandidatesPerPass = 3;
// Key values longer than this (in characters) are not taken.
inline constexpr std::size_t kLongestKeyValue = 200;
// The stderr of the record made for a battery answer that holds no usable reading.
inline constexpr const char* kBatteryDataUnavailable = "Battery data unavailable";
// The name used when the phone's own cannot be read.
inline constexpr const char* kFallbackName = "iPhone";

// One attempt to read the phone's battery with the tools in `toolDirectory`, started through
// `launcher`: Wi-Fi devices first, then USB. `preferredID` (the udid read last time) is tried
// first; a remembered `identity` with the same udid spares the name and model reads. The
// snapshot is dated by `clock`. `timeouts` are the tool runs' limits (tests use short ones).
// Blocks for many seconds: worker threads only. Keeps no state; thread-safe as far as the
// launcher is.
PhoneReadResult readAttempt(const std::filesystem::path& toolDirectory,
                            const std::optional<std::string>& preferredID,
                            const std::optional<PhoneIdentity>& identity, const Clock& clock,
                            ProcessLauncher& launcher,
                            const PhoneReadTimeouts& timeouts = PhoneReadTimeouts{});

// Reads one lockdown value as plain text: `infoTool` with `base` + "-k", `key`, within
// `timeout`. Absent when the run fails, or its trimmed output is empty, longer than 200
// characters or more than one line.
std::optional<std::string> readKey(const std::string& key, const std::filesystem::path& infoTool,
                                   const std::vector<std::string>& base, ProcessLauncher& launcher,
                                   std::chrono::milliseconds timeout = PhoneReadTimeouts{}.key);

} // namespace PhoneReader

} // namespace ambrel
