#pragma once

#include <optional>

#include "phone/CommandOutput.h"
#include "phone/PhoneIssue.h"

namespace ambrel::PhoneIssueClassifier {

// The messages a phone read can end with.
inline constexpr const char* kMissingTools = "iPhone helper is missing. Reinstall Tovrin.";
inline constexpr const char* kLocked = "Unlock your iPhone, then refresh its battery reading.";
inline constexpr const char* kTrust =
    "Unlock your iPhone, connect it by USB and tap Trust. Enable Finder\u2019s Wi-Fi option for "
    "wireless checks.";
inline constexpr const char* kTimedOut =
    "iPhone didn\u2019t respond. Keep it on the same Wi-Fi, then try again.";
inline constexpr const char* kTemporarilyUnavailable =
    "iPhone is temporarily unavailable. Keep it on the same Wi-Fi and refresh, or wait for the "
    "next check.";
inline constexpr const char* kNotFound =
    "iPhone not found. Pair once by USB, enable Finder\u2019s Wi-Fi option, and use the same "
    "Wi-Fi.";
inline constexpr const char* kServiceUnreachable =
    "Couldn\u2019t reach the iPhone service. Reconnect your phone or reopen Tovrin.";

// Turns what a failed read attempt observed into the issue shown to the user. `lastFailure` is
// the latest failed (or unusable) tool result; `sawCandidates`: some pass listed devices and all
// were tried without success; `triedWiFi`: a battery query was made over the network.
PhoneIssue classify(const std::optional<CommandOutput>& lastFailure, bool sawCandidates,
                    bool triedWiFi);

} // namespace ambrel::PhoneIssueClassifier
