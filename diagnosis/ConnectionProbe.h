#pragma once

#include <optional>
#include <string>
#include <vector>

#include "model/Expected.h"
#include "phone/LockdownHelper.h"

namespace ambrel {

// A phone that paired with this computer, as its pair record (or what the program learned
// while it was on USB) knows it.
struct KnownWifiPhone {
    std::string udid;
    // Lower case.
    std::string wifiMac;
};

// The facts the connection check looks at, one question each. Every call may block for
// seconds (tools, sockets, avahi): never call one on the main thread.
class ConnectionProbe {
public:
    virtual ~ConnectionProbe() = default;

    // The phone tools and the helper that are not in the tool folder, by file name.
    virtual std::vector<std::string> missingTools() = 0;
    // The phones the system's usbmuxd lists; nothing when it does not answer.
    virtual std::optional<std::vector<PhoneOnMuxer>> systemMuxerPhones() = 0;
    // The helper's "info" for `udid` (networkOnly: over Wi-Fi alone).
    virtual Expected<PhoneDetails, LockdownError> details(const std::string& udid,
                                                          bool networkOnly) = 0;
    // Whether avahi-daemon answers on the system bus.
    virtual bool avahiDaemonRuns() = 0;
    // Whether usbmuxd and avahi-daemon are installed, for when they do not answer: Debian starts
    // usbmuxd only while an iPhone is plugged in, and avahi-daemon can be turned off.
    virtual bool usbmuxdInstalled() { return true; }
    virtual bool avahiDaemonInstalled() { return true; }
    // The Wi-Fi MACs (lower case) named by the `_apple-mobdev2._tcp` adverts on this network.
    virtual std::vector<std::string> advertisedMacs() = 0;
    // The phones this computer has a pair record for.
    virtual std::vector<KnownWifiPhone> knownPhones() = 0;
    // The battery level the phone gives over Wi-Fi, or the reason there is none.
    virtual Expected<int, std::string> wifiBatteryLevel(const std::string& udid) = 0;
};

} // namespace ambrel
