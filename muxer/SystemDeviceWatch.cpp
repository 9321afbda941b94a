#include "muxer/SystemDeviceWatch.h"

#include <algorithm>
#include <cerrno>
#include <poll.h>

#include "muxer/MuxChannel.h"
#include "muxer/MuxMessage.h"

namespace ambrel {

SystemDeviceWatch::SystemDeviceWatch(std::string systemMuxerPath, int stopFd,
                                     std::chrono::milliseconds systemMuxerLimit)
    : m_systemMuxerPath(std::move(systemMuxerPath)), m_stopFd(stopFd),
      m_systemMuxerLimit(systemMuxerLimit) {}

SystemDeviceWatch::~SystemDeviceWatch() {
    join();
}

void SystemDeviceWatch::start() {
    if (!m_thread.joinable()) {
        m_thread = std::thread([this] { run(); });
    }
}

void SystemDeviceWatch::join() {
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

std::optional<std::vector<MuxDevice>> SystemDeviceWatch::usbDevices() const {
    const std::lock_guard lock(m_mutex);
    if (m_listenFd < 0 || !m_settled || m_reading) {
        return std::nullopt;
    }
    // An event still unread, or the system muxer's hang-up, may change the list: the system
    // muxer queues its events before it answers anyone who asks after the change.
    pollfd pending{m_listenFd, POLLIN, 0};
    if (::poll(&pending, 1, 0) != 0) {
        return std::nullopt;
    }
    return m_devices;
}

bool SystemDeviceWatch::stopped(std::chrono::milliseconds wait) const {
    pollfd stop{m_stopFd, POLLIN, 0};
    const int ready = ::poll(&stop, 1, static_cast<int>(wait.count()));
    return ready > 0 && (stop.revents & POLLIN) != 0;
}

void SystemDeviceWatch::run() {
    for (;;) {
        stand();
        if (stopped(kRetry)) {
            return;
        }
    }
}

void SystemDeviceWatch::stand() {
    UniqueFd system = connectUnixSocket(m_systemMuxerPath);
    if (!system.isValid()) {
        return;
    }
    const MuxChannel channel(system.get(), m_stopFd);
    const auto request = encodeMuxMessage(
        1, muxRequestDictionary({MuxRequestType::listen, "Listen", 0, 0, ""}, "tovrin"));
    MuxFrame frame;
    if (channel.writeAll(request, m_systemMuxerLimit) != ChannelStatus::ok ||
        channel.readFrame(frame, m_systemMuxerLimit) != ChannelStatus::ok) {
        return;
    }
    const auto accepted = parseMuxReply(frame.payload);
    if (!accepted || accepted->kind != MuxReply::Kind::result || accepted->number != 0) {
        return;
    }
    {
        const std::lock_guard lock(m_mutex);
        m_listenFd = system.get();
        m_settled = false;
        m_reading = false;
        m_devices.clear();
    }
    auto settleAt = std::chrono::steady_clock::now() + kSettle;
    bool settled = false;
    for (;;) {
        int wait = -1;
        if (!settled) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(
                settleAt - std::chrono::steady_clock::now());
            wait = static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
        }
        pollfd fds[2] = {{system.get(), POLLIN, 0}, {m_stopFd, POLLIN, 0}};
        const int ready = ::poll(fds, 2, wait);
        if (ready < 0 && errno != EINTR) {
            break;
        }
        if ((fds[1].revents & POLLIN) != 0) {
            break;
        }
        if (ready == 0) {
            if (!settled && std::chrono::steady_clock::now() >= settleAt) {
                settled = true;
                const std::lock_guard lock(m_mutex);
                m_settled = true;
            }
            continue;
        }
        if (fds[0].revents == 0) {
            continue;
        }
        {
            const std::lock_guard lock(m_mutex);
            m_reading = true;
        }
        const bool read = channel.readFrame(frame, m_systemMuxerLimit) == ChannelStatus::ok;
        auto event = read ? parseMuxReply(frame.payload) : std::nullopt;
        if (!event) {
            break;
        }
        {
            const std::lock_guard lock(m_mutex);
            const auto id = event->deviceId;
            const auto known = std::find_if(m_devices.begin(), m_devices.end(),
                                            [&](const MuxDevice& d) { return d.deviceId == id; });
            if (event->kind == MuxReply::Kind::attached) {
                if (known != m_devices.end()) {
                    *known = std::move(*event->device);
                } else {
                    m_devices.push_back(std::move(*event->device));
                }
            } else if (event->kind == MuxReply::Kind::detached && known != m_devices.end()) {
                m_devices.erase(known);
            }
            m_reading = false;
        }
        if (!settled) {
            settleAt = std::chrono::steady_clock::now() + kSettle;
        }
    }
    const std::lock_guard lock(m_mutex);
    m_listenFd = -1;
    m_settled = false;
    m_reading = false;
    m_devices.clear();
}

} // namespace ambrel
