#pragma once

// A connection probe whose every answer a test sets: by default those of a phone read over
// Wi-Fi without a fault; a test spoils one.

#include <optional>
#include <string>
#include <vector>

#include "diagnosis/ConnectionProbe.h"

namespace ambrel::testing {

inline const std::string kProbeUdid = "00008110-001A2B3C4D5E6F70";
inline const std::string kProbeMac = "f0:99:bf:10:20:30";

class FakeConnectionProbe final : public ConnectionProbe {
public:
    FakeConnectionProbe() {
        phone.udid = kProbeUdid;
        phone.name = "Sim iPhone";
        phone.model = "iPhone14,2";
        phone.wifiAddress = "F0:99:BF:10:20:30";
        phone.trusted = true;
        phone.wifiConnections = true;
        wifiPhone = phone;
        wifiPhone.link = PhoneLink::wifi;
    }

    std::vector<std::string> missingTools() override { return missing; }
    std::optional<std::vector<PhoneOnMuxer>> systemMuxerPhones() override { return muxerPhones; }
    Expected<PhoneDetails, LockdownError> details(const std::string& udid,
                                                  bool networkOnly) override {
        asked.push_back(udid + (networkOnly ? " network" : " usb"));
        if (networkOnly) {
            if (wifiError) {
                return unexpected(*wifiError);
            }
            return wifiPhone;
        }
        if (usbError) {
            return unexpected(*usbError);
        }
        return phone;
    }
    bool avahiDaemonRuns() override { return avahi; }
    bool usbmuxdInstalled() override { return usbmuxdThere; }
    bool avahiDaemonInstalled() override { return avahiThere; }
    std::vector<std::string> advertisedMacs() override { return adverts; }
    std::vector<KnownWifiPhone> knownPhones() override { return known; }
    Expected<int, std::string> wifiBatteryLevel(const std::string& udid) override {
        asked.push_back(udid + " battery");
        if (!battery) {
            return unexpected(std::string("ERROR: Could not connect to lockdownd"));
        }
        return *battery;
    }

    std::vector<std::string> missing;
    std::optional<std::vector<PhoneOnMuxer>> muxerPhones =
        std::vector<PhoneOnMuxer>{{kProbeUdid, PhoneLink::usb}};
    PhoneDetails phone;
    PhoneDetails wifiPhone;
    std::optional<LockdownError> usbError;
    std::optional<LockdownError> wifiError;
    bool avahi = true;
    bool usbmuxdThere = true;
    bool avahiThere = true;
    std::vector<std::string> adverts{kProbeMac};
    std::vector<KnownWifiPhone> known;
    std::optional<int> battery = 87;
    std::vector<std::string> asked;
};

} // namespace ambrel::testing
