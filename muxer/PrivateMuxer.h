#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "muxer/AvahiDiscovery.h"
#include "muxer/MuxerServer.h"
#include "muxer/PairRecordStore.h"
#include "muxer/WifiPhoneDirectory.h"
#include "platform/Environment.h"

namespace ambrel {

// The program's own muxer, whole: the server on a private socket, the pair records, the Wi-Fi
// phones avahi finds. The phone tools reach it through USBMUXD_SOCKET_ADDRESS, which the
// program gives the launcher that starts them.
class PrivateMuxer {
public:
    struct Setup {
        std::filesystem::path socketPath;
        std::string systemMuxerPath = "/var/run/usbmuxd";
        std::filesystem::path systemRecordsFolder = "/var/lib/lockdown";
        // Where copies of pair records are kept (0700); empty for none.
        std::filesystem::path ownRecordsFolder;
        // Whether to look for Wi-Fi phones through avahi-daemon.
        bool discoverWifiPhones = true;
        // Told of every phone that is plugged in or whose advert arrives; may be none. Must
        // outlive the muxer.
        PhoneArrivalSink* arrivals = nullptr;
    };

    // "$XDG_RUNTIME_DIR/tovrin/usbmuxd"; without XDG_RUNTIME_DIR, "<temporary folder>/tovrin-
    // <uid>/usbmuxd", from `environment`. Only the path; nothing is made.
    static std::filesystem::path defaultSocketPath(const Environment& environment);

    explicit PrivateMuxer(Setup setup);
    ~PrivateMuxer();
    PrivateMuxer(const PrivateMuxer&) = delete;
    PrivateMuxer& operator=(const PrivateMuxer&) = delete;

    // Makes the socket's folder (0700, ours) and starts serving; without avahi the muxer serves
    // USB only. Returns without waiting for the system bus: discovery connects on its own
    // thread. The value for USBMUXD_SOCKET_ADDRESS ("UNIX:<path>"), also when another run of
    // the program already serves on that socket; nothing when no socket can be had.
    std::optional<std::string> start();
    void stop();

    // What start() returned: the value the phone tools' USBMUXD_SOCKET_ADDRESS is to have.
    const std::string& address() const { return m_address; }

    // Whether Wi-Fi discovery is connecting or runs; false once avahi could not be used.
    bool isDiscovering() const;

private:
    Setup m_setup;
    std::string m_address;
    PairRecordStore m_records;
    WifiPhoneDirectory m_directory;
    std::unique_ptr<AvahiDiscovery> m_discovery;
    std::unique_ptr<MuxerServer> m_server;
};

// The system usbmuxd's socket that the program's muxer passes USB through to: /var/run/usbmuxd,
// or the one TOVRIN_SYSTEM_USBMUXD names where the system's usbmuxd listens elsewhere (a
// container, a sandbox with the socket passed in, a usbmuxd of the user's own on the cable).
std::string systemMuxerSocketPath(const Environment& environment);

// Starts the program's muxer unless `environment` already names one in USBMUXD_SOCKET_ADDRESS
// (the user's muxer is then used). `dataFolder` is the program's own data folder (empty: no
// copies of pair records are kept). `arrivals` is told of the phones that appear. Nothing when
// the user's muxer is used or none could be started; the phone tools are then given no address
// of ours.
std::unique_ptr<PrivateMuxer> startPrivateMuxer(const Environment& environment,
                                                const std::filesystem::path& dataFolder,
                                                PhoneArrivalSink* arrivals = nullptr);

} // namespace ambrel
