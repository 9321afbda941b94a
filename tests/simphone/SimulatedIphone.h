#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "tests/fakes/ChildProcess.h"

namespace ambrel::testing {

// The simulated iPhone service (simphone.py) run for one test: a usbmuxd socket in `folder`
// and the devices of a scenario (see the script for its format), for the real libimobiledevice
// tools to talk to through USBMUXD_SOCKET_ADDRESS.
class SimulatedIphone {
public:
    // Starts the service and waits until it listens. `lifetime` bounds how long it runs even if
    // the test never stops it. Check isReady() (and failure() for why not).
    SimulatedIphone(const std::filesystem::path& folder, const nlohmann::json& scenario,
                    std::chrono::seconds lifetime = std::chrono::seconds(60));
    ~SimulatedIphone();
    SimulatedIphone(const SimulatedIphone&) = delete;
    SimulatedIphone& operator=(const SimulatedIphone&) = delete;

    bool isReady() const { return m_ready; }
    // What went wrong while starting, with the service's own error output.
    std::string failure() const;

    // The value for USBMUXD_SOCKET_ADDRESS.
    std::string socketAddress() const { return "UNIX:" + m_socket.string(); }
    const std::filesystem::path& socketPath() const { return m_socket; }

    // The loopback address a Wi-Fi device of the scenario listens on ("" if none).
    std::string addressOf(const std::string& udid) const;

    // The request counts as the service last wrote them (an empty object if unreadable):
    // {"usbmuxd": {"connections", "requests": {type: n}},
    //  "devices": {udid: {"connections", "usbConnections", "networkConnections",
    //                     "connectRequests", "requests": {name: n}, "getValue": {query: n},
    //                     "setValue": {query: n}, "wifiConnections": bool}},
    //  "addresses": {udid: address}, "pairRecordsSaved": [record id], "unplugged": true once
    //  unplug() took effect}
    nlohmann::json stats() const;

    // Number of lockdown connections the device with `udid` has received, over any transport.
    int connectionsTo(const std::string& udid) const;

    // Pulls the cable: the USB entries and the usbmuxd socket go (open exchanges close), Wi-Fi
    // lockdown stays, the phones keep their pairing and settings. True once that took effect.
    bool unplug();

    // Puts the Wi-Fi of every phone with an advert to sleep, or wakes it (SIGUSR2); true once
    // every such phone's stats say `asleep`.
    bool setWifiAsleep(bool asleep);

    // The line the service printed once it listened (see simphone.py).
    const nlohmann::json& readyLine() const { return m_readyLine; }

    // Ends the service now (it also ends by itself after its lifetime).
    void stop();

private:
    std::filesystem::path m_folder;
    std::filesystem::path m_socket;
    std::filesystem::path m_statsFile;
    std::filesystem::path m_logFile;
    std::unique_ptr<ChildProcess> m_process;
    nlohmann::json m_readyLine;
    bool m_ready = false;
    std::string m_failure;
};

} // namespace ambrel::testing
