#pragma once

namespace ambrel::LockdownHelperProtocol {

// The phone settings helper, a program of ours beside the phone tools. Usage:
//   tovrin-lockdown list                   the phones the muxer knows
//   tovrin-lockdown info UDID [--network]  name, model, connection, trust, Wi-Fi setting
//   tovrin-lockdown wifi UDID [on|off]     reads, or sets, "EnableWifiConnections" over USB
// It prints one line of JSON and exits with one of the codes below. A failure's line carries
// "error": the lockdown error's name ("InvalidHostID", "SetProhibited", …) or one of the
// names below.
inline constexpr const char* kFileName = "tovrin-lockdown";

inline constexpr int kExitOk = 0;
inline constexpr int kExitUsage = 1;
// No phone with that UDID on the asked connection ("NoDevice").
inline constexpr int kExitNoDevice = 2;
// The muxer did not answer ("MuxerUnavailable").
inline constexpr int kExitMuxerUnavailable = 3;
// This computer is not trusted: no pair record, or the phone does not know it.
inline constexpr int kExitNotTrusted = 4;
// The phone answered with another lockdown error, or the connection broke.
inline constexpr int kExitLockdownError = 5;

inline constexpr const char* kWirelessDomain = "com.apple.mobile.wireless_lockdown";
inline constexpr const char* kWifiKey = "EnableWifiConnections";

} // namespace ambrel::LockdownHelperProtocol
