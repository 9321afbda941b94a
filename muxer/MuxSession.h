#pragma once

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "muxer/MuxChannel.h"
#include "muxer/NetworkPhoneSource.h"
#include "muxer/SystemDeviceWatch.h"

namespace ambrel {

// Serves one client of the muxer, from its first request until it hangs up: requests are
// answered one after another; after Listen the connection carries device events, after a
// successful Connect it carries the device's bytes both ways. Runs on the client's own thread
// and blocks it; every wait ends when the stop descriptor becomes readable.
class MuxSession {
public:
    struct Settings {
        std::string systemMuxerPath;
        NetworkPhoneSource* network = nullptr;
        std::chrono::milliseconds systemMuxerLimit{3000};
        std::chrono::milliseconds clientLimit{30000};
        std::chrono::milliseconds listenPeriod{1000};
        // May be null: every listing asks the system muxer.
        const SystemDeviceWatch* usbWatch = nullptr;
    };

    MuxSession(int clientFd, int stopFd, Settings settings);

    void run();

private:
    // False when the connection is done with (hung up, handed over, or broken).
    bool handle(const MuxFrame& frame);
    bool answer(const std::string& message);
    bool listDevices(const MuxFrame& frame);
    bool listen(const MuxFrame& frame);
    bool connect(const MuxFrame& frame, std::uint32_t deviceId, std::uint16_t port);
    bool readPairRecord(const MuxFrame& frame, const std::string& udid);
    bool readBuid(const MuxFrame& frame);
    bool forward(const MuxFrame& frame);

    // Sends `request` to the system muxer and reads its one reply; the connection stays in
    // `connection` when given. Nothing when it is absent, silent or answers garbage.
    std::optional<MuxFrame> askSystemMuxer(const MuxFrame& request,
                                           UniqueFd* connection = nullptr) const;
    std::vector<MuxDevice> networkDevices() const;
    std::vector<MuxDevice> usbDevicesByListening(const MuxFrame& frame) const;
    void relay(int deviceFd);

    int m_clientFd;
    int m_stopFd;
    Settings m_settings;
    MuxChannel m_client;
};

} // namespace ambrel
