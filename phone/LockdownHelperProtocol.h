#pragma once

namespace ambrel::LockdownHelperProtocol {

// The phone settings helper, a program of ours beside the phone tools. Usage:
//   tovrin-lockdown list                   the phones the muxer knows
//   tovrin-lockdown info UDID [--network]  name, model, iOS version, connection, trust,
//                                          Wi-Fi setting
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

// The commands and their words.
inline constexpr const char* kListCommand = "list";
inline constexpr const char* kInfoCommand = "info";
inline constexpr const char* kWifiCommand = "wifi";
inline constexpr const char* kNetworkOption = "--network";
inline constexpr const char* kOn = "on";
inline constexpr const char* kOff = "off";

// The keys of the JSON line.
inline constexpr const char* kDevicesKey = "devices";
inline constexpr const char* kUdidKey = "udid";
inline constexpr const char* kConnectionKey = "connection";
inline constexpr const char* kNameKey = "name";
inline constexpr const char* kModelKey = "model";
// The phone's "ProductVersion" ("17.5.1"), empty when it gives none; an older helper's line
// has no such key.
inline constexpr const char* kOsVersionKey = "osVersion";
inline constexpr const char* kWifiAddressKey = "wifiAddress";
inline constexpr const char* kTrustedKey = "trusted";
inline constexpr const char* kTrustErrorKey = "trustError";
inline constexpr const char* kWifiConnectionsKey = "wifiConnections";
inline constexpr const char* kErrorKey = "error";

// The values of "connection".
inline constexpr const char* kUsbConnection = "usb";
inline constexpr const char* kNetworkConnection = "network";

// The helper's own error names, beside the lockdown errors' names.
inline constexpr const char* kNoDeviceError = "NoDevice";
inline constexpr const char* kMuxerUnavailableError = "MuxerUnavailable";
inline constexpr const char* kInvalidResponseError = "InvalidResponse";

} // namespace ambrel::LockdownHelperProtocol
