#pragma once

#include <optional>
#include <string>
#include <vector>

#include "muxer/MuxDevice.h"

namespace ambrel {

// What the muxer knows beyond the system muxer: the phones reachable over Wi-Fi and the pair
// records for them. Every operation may be called from any of the muxer's threads at once and
// must return promptly (no network waits).
class NetworkPhoneSource {
public:
    virtual ~NetworkPhoneSource() = default;

    // The Wi-Fi phones to list now, with stable device IDs that no USB device uses. May wait
    // a moment right after the program started, until discovery has reported what it found
    // at once, so that a phone read at launch sees the Wi-Fi phones already there.
    virtual std::vector<MuxDevice> networkDevices() = 0;
    // The pair record (as the system muxer would give it) of the phone `udid`, when the system
    // muxer has none to give.
    virtual std::optional<std::string> pairRecord(const std::string& udid) = 0;
    // The host's BUID, when the system muxer does not answer.
    virtual std::optional<std::string> systemBuid() = 0;
    // What the system muxer told a client: its USB devices, and a pair record it handed out.
    virtual void noteUsbDevices(const std::vector<MuxDevice>& devices) = 0;
    virtual void notePairRecord(const std::string& udid, const std::string& record) = 0;
};

} // namespace ambrel
