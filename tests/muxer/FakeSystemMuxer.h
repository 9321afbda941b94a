#pragma once

#include <atomic>
#include <filesystem>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "muxer/MuxChannel.h"
#include "muxer/MuxDevice.h"

namespace ambrel::testing {

// A stand-in for the system's usbmuxd on a UNIX socket, on a thread of its own: lists its USB
// devices, answers Listen with them, Connect with an echo of every byte, ReadPairRecord from
// its records and ReadBUID with its BUID. Counts the requests it got.
class FakeSystemMuxer {
public:
    enum class Behaviour {
        normal,
        // accepts and reads, never answers, and keeps the connection until the client goes
        silent,
        // answers every request with bytes that are no message
        garbage,
        // answers ListDevices with Result 1 (clients then list by Listen)
        refusesListDevices,
    };

    explicit FakeSystemMuxer(std::filesystem::path socketPath,
                             Behaviour behaviour = Behaviour::normal);
    ~FakeSystemMuxer();

    void addUsbDevice(std::uint32_t id, const std::string& serial);
    void removeUsbDevice(std::uint32_t id);
    void setPairRecord(const std::string& udid, const std::string& record);
    void setBuid(const std::string& buid);

    const std::filesystem::path& socketPath() const { return m_path; }
    int requestsOf(const std::string& messageType) const;

private:
    void acceptLoop();
    void serve(int fd);
    // With m_mutex held.
    void tellListeners(const std::string& event);

    std::filesystem::path m_path;
    Behaviour m_behaviour;
    UniqueFd m_listenFd;
    UniqueFd m_stopFd;
    mutable std::mutex m_mutex;
    std::map<std::uint32_t, std::string> m_usb;
    std::map<std::string, std::string> m_records;
    std::string m_buid = "FAKE-SYSTEM-BUID";
    std::map<std::string, int> m_requests;
    // The connections that sent Listen; told of every change before it returns.
    std::set<int> m_listeners;
    std::thread m_thread;
    std::vector<std::thread> m_clients;
};

} // namespace ambrel::testing
