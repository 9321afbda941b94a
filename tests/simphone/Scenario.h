#pragma once

#include <string>

#include <nlohmann/json.hpp>

// The pieces of a simulated iPhone scenario (see simphone.py) that its tests build from.
namespace ambrel::testing {

// The simulated phone's serial, and the form the tools show and take for a 24-character one.
inline const std::string kSerial = "00008110001A2B3C4D5E6F70";
inline const std::string kUdid = "00008110-001A2B3C4D5E6F70";

// The simulated phone on `connection` ("usb", "network" or "both"), with `extra` settings.
inline nlohmann::json phone(const std::string& connection,
                            const nlohmann::json& extra = nlohmann::json::object()) {
    nlohmann::json device = {{"udid", kSerial}, {"connection", connection}};
    device.update(extra);
    return device;
}

// A phone answers lockdown over Wi-Fi only with its Wi-Fi connections on.
inline const nlohmann::json kWifiOn = {{"wifiConnections", true}};

inline nlohmann::json withDevices(const nlohmann::json& devices) {
    return nlohmann::json{{"devices", devices}};
}

} // namespace ambrel::testing
