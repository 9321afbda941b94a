#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "diagnosis/ConnectionProbe.h"
#include "phone/LockdownHelper.h"
#include "platform/ProcessLauncher.h"

namespace ambrel {

// The connection check's facts on this computer: the tool folder, the system's usbmuxd socket,
// avahi-daemon on the system bus, the pair records, and the phone through the helper and
// ideviceinfo (which reach Wi-Fi phones through the muxer in USBMUXD_SOCKET_ADDRESS).
class SystemConnectionProbe final : public ConnectionProbe {
public:
    struct Setup {
        std::filesystem::path toolDirectory;
        // The system muxer's UNIX socket; absent when it is only reachable as the tools reach it
        // (a TCP muxer the user chose): then the helper asks through USBMUXD_SOCKET_ADDRESS.
        std::optional<std::filesystem::path> systemMuxerSocket;
        std::filesystem::path systemRecordsFolder = "/var/lib/lockdown";
        // The program's own copies of pair records; empty for none.
        std::filesystem::path ownRecordsFolder;
        // Runs the helper and the tools: the program's own launcher, so that quitting stops them.
        std::shared_ptr<ProcessLauncher> launcher;
        // Where Debian installs the two daemons, to tell "not installed" from "not running".
        std::filesystem::path usbmuxdProgram = "/usr/sbin/usbmuxd";
        std::filesystem::path avahiDaemonProgram = "/usr/sbin/avahi-daemon";
    };

    // How long the system muxer gets to answer, as libusbmuxd gives it.
    static constexpr std::chrono::milliseconds kMuxerLimit{5000};
    // How long avahi gets to report the adverts that are there.
    static constexpr std::chrono::milliseconds kDiscoveryLimit{5000};
    static constexpr std::chrono::milliseconds kBatteryTimeout{15000};

    explicit SystemConnectionProbe(Setup setup);

    std::vector<std::string> missingTools() override;
    std::optional<std::vector<PhoneOnMuxer>> systemMuxerPhones() override;
    Expected<PhoneDetails, LockdownError> details(const std::string& udid,
                                                  bool networkOnly) override;
    bool avahiDaemonRuns() override;
    bool usbmuxdInstalled() override;
    bool avahiDaemonInstalled() override;
    std::vector<std::string> advertisedMacs() override;
    std::vector<KnownWifiPhone> knownPhones() override;
    // Whether this computer has a pair record for `udid`: the program's own copy, else the
    // system muxer's answer to ReadPairRecord. Absent when that cannot be told (no socket to
    // ask, or no answer). Talks to no phone.
    std::optional<bool> isPaired(const std::string& udid);
    Expected<int, std::string> wifiBatteryLevel(const std::string& udid) override;

private:
    Setup m_setup;
    LockdownHelper m_helper;
};

} // namespace ambrel
