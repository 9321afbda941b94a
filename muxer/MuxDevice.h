#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "muxer/NetworkAddress.h"
#include "muxer/PlistNode.h"

namespace ambrel {

// One device entry of the muxer protocol: what ListDevices lists and Attached announces.
struct MuxDevice {
    enum class Connection { usb, network };

    // Greater than 0: libusbmuxd ends its device array at the first 0.
    std::uint32_t deviceId = 0;
    // The UDID as the muxer gives it (libusbmuxd adds the dash of 24-character ones).
    std::string serialNumber;
    Connection connection = Connection::usb;
    // Network only: where the phone is, and the service it advertised.
    std::optional<NetworkAddress> address;
    std::string serviceName;
    std::uint32_t interfaceIndex = 0;
    // A USB entry keeps every property it came with, so that it is passed on unchanged.
    PlistNode properties;
};

// The Properties dictionary of `device`: for a USB entry the properties it came with (or
// the essential ones); for a network entry ConnectionType "Network", DeviceID, SerialNumber,
// NetworkAddress (BSD socket address bytes), EscapedFullServiceName and InterfaceIndex. Pure.
PlistNode devicePropertiesOf(const MuxDevice& device);

// The device in a Properties dictionary, by libusbmuxd's rules: a string SerialNumber, a
// ConnectionType of exactly "USB" or "Network", and for Network a NetworkAddress whose first
// byte is not 0. A DeviceID that is missing or 0 also makes it unusable, since a 0 would hide
// the device and everything after it. Pure.
std::optional<MuxDevice> deviceFromProperties(plist_t properties);

} // namespace ambrel
