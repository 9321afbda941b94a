#include "muxer/MuxDevice.h"

#include "muxer/MuxMessage.h"

namespace ambrel {

PlistNode devicePropertiesOf(const MuxDevice& device) {
    PlistNode properties(device.properties &&
                                 plist_get_node_type(device.properties.get()) == PLIST_DICT
                             ? plist_copy(device.properties.get())
                             : plist_new_dict());
    const plist_t raw = properties.get();
    const bool isNetwork = device.connection == MuxDevice::Connection::network;
    plist_dict_set_item(raw, "ConnectionType", plist_new_string(isNetwork ? "Network" : "USB"));
    plist_dict_set_item(raw, "DeviceID", plist_new_uint(device.deviceId));
    plist_dict_set_item(raw, "SerialNumber", plist_new_string(device.serialNumber.c_str()));
    if (isNetwork && device.address) {
        const auto bytes = encodeSocketAddress(*device.address);
        plist_dict_set_item(raw, "NetworkAddress", plist_new_data(bytes.data(), bytes.size()));
        plist_dict_set_item(raw, "EscapedFullServiceName",
                            plist_new_string(device.serviceName.c_str()));
        plist_dict_set_item(raw, "InterfaceIndex", plist_new_uint(device.interfaceIndex));
    }
    return properties;
}

std::optional<MuxDevice> deviceFromProperties(plist_t properties) {
    if (properties == nullptr || plist_get_node_type(properties) != PLIST_DICT) {
        return std::nullopt;
    }
    MuxDevice device;
    const auto deviceId = integerIn(properties, "DeviceID");
    auto serial = stringIn(properties, "SerialNumber");
    const auto type = stringIn(properties, "ConnectionType");
    // libusbmuxd copies the serial as a C string: one with a NUL inside, or an empty one, is
    // no identifier.
    if (!deviceId || *deviceId == 0 || *deviceId > 0xFFFFFFFFu || !serial || serial->empty() ||
        serial->find('\0') != std::string::npos || !type) {
        return std::nullopt;
    }
    device.deviceId = static_cast<std::uint32_t>(*deviceId);
    device.serialNumber = std::move(*serial);
    if (*type == "USB") {
        device.connection = MuxDevice::Connection::usb;
    } else if (*type == "Network") {
        device.connection = MuxDevice::Connection::network;
        const auto bytes = dataIn(properties, "NetworkAddress");
        // libusbmuxd keeps at most 199 bytes and needs the first (the length) non-zero.
        if (!bytes || bytes->empty() || bytes->size() >= 200 || (*bytes)[0] == '\0') {
            return std::nullopt;
        }
        device.address = decodeSocketAddress(*bytes);
        device.serviceName = stringIn(properties, "EscapedFullServiceName").value_or("");
        device.interfaceIndex =
            static_cast<std::uint32_t>(integerIn(properties, "InterfaceIndex").value_or(0));
    } else {
        return std::nullopt;
    }
    device.properties = PlistNode(plist_copy(properties));
    return device;
}

} // namespace ambrel
