#pragma once

namespace ambrel::testing::expected {

// The texts the program must show, written out here rather than taken from the program, so that
// a change of wording in the program is caught.
inline constexpr const char* kMissingTools = "iPhone helper is missing. Reinstall Tovrin.";
inline constexpr const char* kLocked = "Unlock your iPhone, then refresh its battery reading.";
inline constexpr const char* kTrust = "Unlock your iPhone, connect it by USB and tap Trust. "
                                      "Enable Finder\u2019s Wi-Fi option for wireless checks.";
inline constexpr const char* kTimedOut =
    "iPhone didn\u2019t respond. Keep it on the same Wi-Fi, then try again.";
inline constexpr const char* kTemporarilyUnavailable =
    "iPhone is temporarily unavailable. Keep it on the same Wi-Fi and refresh, or wait for the "
    "next check.";
inline constexpr const char* kNotFound = "iPhone not found. Pair once by USB, enable "
                                         "Finder\u2019s Wi-Fi option, and use the same Wi-Fi.";
inline constexpr const char* kServiceUnreachable =
    "Couldn\u2019t reach the iPhone service. Reconnect your phone or reopen Tovrin.";

inline constexpr const char* kConnectedOverWiFi = "Connected over Wi-Fi \u00b7 checks every 5 min";
inline constexpr const char* kConnectedByUsb = "Connected by USB \u00b7 unplug to test Wi-Fi";
inline constexpr const char* kCheckingPhone = "Checking iPhone\u2026";
inline constexpr const char* kCheckingForIphone = "Checking for your iPhone\u2026";
inline constexpr const char* kSavedReading = "Saved reading \u00b7 checking connection\u2026";

} // namespace ambrel::testing::expected
