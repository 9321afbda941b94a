#include "muxer/MuxSession.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <memory>
#include <poll.h>
#include <sys/socket.h>
#include <vector>

namespace ambrel {

namespace {

using namespace std::chrono_literals;

// A client gets its answers within this; libusbmuxd waits 5 s for each.
constexpr auto kAnswerLimit = 5s;
// How long one chunk of a tunnel may wait for the other side to take it.
constexpr auto kRelayWriteLimit = 60s;
constexpr std::size_t kRelayChunk = 65536;
// How soon a listening client's connection to the system muxer is tried again after it
// failed: Debian's usbmuxd only runs while a phone is plugged in.
constexpr auto kSystemMuxerRetry = 2s;
constexpr std::uint16_t kLockdownPort = 62078;
// A system muxer that refuses ListDevices is asked by Listen, and its announcements are
// complete once none came for this long.
constexpr auto kListenQuiet = 100ms;

} // namespace

MuxSession::MuxSession(int clientFd, int stopFd, Settings settings)
    : m_clientFd(clientFd), m_stopFd(stopFd), m_settings(std::move(settings)),
      m_client(clientFd, stopFd) {}

void MuxSession::run() {
    for (;;) {
        MuxFrame frame;
        if (m_client.readFrame(frame, m_settings.clientLimit) != ChannelStatus::ok) {
            return;
        }
        if (!handle(frame)) {
            return;
        }
    }
}

bool MuxSession::answer(const std::string& message) {
    return m_client.writeAll(message, kAnswerLimit) == ChannelStatus::ok;
}

bool MuxSession::handle(const MuxFrame& frame) {
    const auto request = parseMuxRequest(frame.payload);
    if (!request) {
        // As usbmuxd does with a payload it cannot read: no answer, the connection ends.
        return false;
    }
    switch (request->type) {
    case MuxRequestType::listDevices:
        return listDevices(frame);
    case MuxRequestType::listen:
        return listen(frame);
    case MuxRequestType::connect:
        return connect(frame, request->deviceId, request->port);
    case MuxRequestType::readPairRecord:
        return readPairRecord(frame, request->pairRecordId);
    case MuxRequestType::readBuid:
        return readBuid(frame);
    case MuxRequestType::savePairRecord:
    case MuxRequestType::deletePairRecord:
    case MuxRequestType::other:
        return forward(frame);
    }
    return false;
}

std::optional<MuxFrame> MuxSession::askSystemMuxer(const MuxFrame& request,
                                                   UniqueFd* connection) const {
    UniqueFd fd = connectUnixSocket(m_settings.systemMuxerPath);
    if (!fd.isValid()) {
        return std::nullopt;
    }
    const MuxChannel channel(fd.get(), m_stopFd);
    if (channel.writeAll(request.bytes, m_settings.systemMuxerLimit) != ChannelStatus::ok) {
        return std::nullopt;
    }
    MuxFrame reply;
    if (channel.readFrame(reply, m_settings.systemMuxerLimit) != ChannelStatus::ok ||
        !parseMuxReply(reply.payload)) {
        return std::nullopt;
    }
    if (connection != nullptr) {
        *connection = std::move(fd);
    }
    return reply;
}

std::vector<MuxDevice> MuxSession::networkDevices() const {
    return m_settings.network != nullptr ? m_settings.network->networkDevices()
                                         : std::vector<MuxDevice>{};
}

std::vector<MuxDevice> MuxSession::usbDevicesByListening(const MuxFrame& frame) const {
    MuxFrame listen = frame;
    const auto payload =
        muxRequestDictionary({MuxRequestType::listen, "Listen", 0, 0, ""}, "tovrin");
    listen.bytes = encodeMuxMessage(frame.header.tag, payload);
    UniqueFd system;
    const auto reply = askSystemMuxer(listen, &system);
    const auto parsed = reply ? parseMuxReply(reply->payload) : std::nullopt;
    std::vector<MuxDevice> devices;
    if (!parsed || parsed->kind != MuxReply::Kind::result || parsed->number != 0) {
        return devices;
    }
    // As libusbmuxd lists by listening: the devices announced until none came for a moment.
    const MuxChannel channel(system.get(), m_stopFd);
    const auto deadline = std::chrono::steady_clock::now() + m_settings.systemMuxerLimit;
    MuxFrame event;
    while (std::chrono::steady_clock::now() < deadline &&
           channel.readFrame(event, kListenQuiet) == ChannelStatus::ok) {
        auto attached = parseMuxReply(event.payload);
        if (!attached || attached->kind != MuxReply::Kind::attached) {
            break;
        }
        devices.push_back(std::move(*attached->device));
    }
    return devices;
}

bool MuxSession::listDevices(const MuxFrame& frame) {
    std::vector<MuxDevice> devices;
    if (auto standing =
            m_settings.usbWatch != nullptr ? m_settings.usbWatch->usbDevices() : std::nullopt) {
        devices = std::move(*standing);
    } else if (const auto reply = askSystemMuxer(frame)) {
        const auto parsed = parseMuxReply(reply->payload);
        if (auto usb = deviceListOf(*parsed)) {
            devices = std::move(*usb);
        } else if (parsed->kind == MuxReply::Kind::result) {
            devices = usbDevicesByListening(frame);
        }
    }
    if (m_settings.network != nullptr) {
        m_settings.network->noteUsbDevices(devices);
    }
    for (auto& device : networkDevices()) {
        const bool taken = std::any_of(devices.begin(), devices.end(), [&](const MuxDevice& d) {
            return d.deviceId == device.deviceId;
        });
        if (!taken) {
            devices.push_back(std::move(device));
        }
    }
    return answer(encodeMuxDeviceList(frame.header.tag, devices));
}

bool MuxSession::listen(const MuxFrame& frame) {
    if (!answer(encodeMuxResult(frame.header.tag, MuxResult::ok))) {
        return false;
    }
    UniqueFd system;
    auto nextTry = std::chrono::steady_clock::now();
    std::set<std::uint32_t> usbShown;
    std::map<std::uint32_t, MuxDevice> networkShown;
    for (;;) {
        const auto now = std::chrono::steady_clock::now();
        if (!system.isValid() && now >= nextTry) {
            nextTry = now + kSystemMuxerRetry;
            const auto reply = askSystemMuxer(frame, &system);
            const auto parsed = reply ? parseMuxReply(reply->payload) : std::nullopt;
            if (!parsed || parsed->kind != MuxReply::Kind::result || parsed->number != 0) {
                system.reset();
            }
        }

        std::map<std::uint32_t, MuxDevice> current;
        for (auto& device : networkDevices()) {
            if (usbShown.count(device.deviceId) == 0) {
                current.emplace(device.deviceId, std::move(device));
            }
        }
        for (const auto& [id, device] : networkShown) {
            if (current.count(id) == 0 && !answer(encodeMuxDetached(0, id))) {
                return false;
            }
        }
        for (const auto& [id, device] : current) {
            if (networkShown.count(id) == 0 && !answer(encodeMuxAttached(0, device))) {
                return false;
            }
        }
        networkShown = std::move(current);

        pollfd fds[3] = {{m_clientFd, POLLIN, 0}, {m_stopFd, POLLIN, 0}, {system.get(), POLLIN, 0}};
        const int count = ::poll(fds, system.isValid() ? 3 : 2,
                                 static_cast<int>(m_settings.listenPeriod.count()));
        if (count < 0 && errno != EINTR) {
            return false;
        }
        if ((fds[1].revents & POLLIN) != 0) {
            return false;
        }
        if (fds[0].revents != 0) {
            // A listening client has nothing more to say: anything it sends ends it, as does
            // its hang-up.
            return false;
        }
        if (system.isValid() && fds[2].revents != 0) {
            MuxFrame event;
            const MuxChannel channel(system.get(), m_stopFd);
            const auto status = channel.readFrame(event, m_settings.systemMuxerLimit);
            const auto parsed =
                status == ChannelStatus::ok ? parseMuxReply(event.payload) : std::nullopt;
            if (!parsed) {
                system.reset();
                for (const auto id : usbShown) {
                    if (!answer(encodeMuxDetached(0, id))) {
                        return false;
                    }
                }
                usbShown.clear();
                continue;
            }
            if (parsed->kind == MuxReply::Kind::attached) {
                usbShown.insert(parsed->deviceId);
                if (networkShown.erase(parsed->deviceId) != 0 &&
                    !answer(encodeMuxDetached(0, parsed->deviceId))) {
                    return false;
                }
            } else if (parsed->kind == MuxReply::Kind::detached) {
                usbShown.erase(parsed->deviceId);
            }
            if (!answer(event.bytes)) {
                return false;
            }
        }
    }
}

bool MuxSession::connect(const MuxFrame& frame, std::uint32_t deviceId, std::uint16_t port) {
    for (const auto& device : networkDevices()) {
        if (device.deviceId != deviceId || !device.address) {
            continue;
        }
        NetworkAddress address = *device.address;
        address.port = port != 0 ? port : kLockdownPort;
        UniqueFd phone = connectTcp(address, kAnswerLimit - 1s);
        if (!phone.isValid()) {
            answer(encodeMuxResult(frame.header.tag, MuxResult::connectionRefused));
            return true;
        }
        if (!answer(encodeMuxResult(frame.header.tag, MuxResult::ok))) {
            return false;
        }
        relay(phone.get());
        return false;
    }

    UniqueFd system;
    const auto reply = askSystemMuxer(frame, &system);
    if (!reply) {
        return answer(encodeMuxResult(frame.header.tag, MuxResult::badDevice));
    }
    if (!answer(reply->bytes)) {
        return false;
    }
    const auto parsed = parseMuxReply(reply->payload);
    if (parsed->kind != MuxReply::Kind::result || parsed->number != 0) {
        return true;
    }
    relay(system.get());
    return false;
}

bool MuxSession::readPairRecord(const MuxFrame& frame, const std::string& udid) {
    const auto reply = askSystemMuxer(frame);
    const auto parsed = reply ? parseMuxReply(reply->payload) : std::nullopt;
    if (parsed && parsed->kind == MuxReply::Kind::answer) {
        if (const auto record = dataIn(parsed->dictionary.get(), "PairRecordData");
            record && !record->empty()) {
            if (m_settings.network != nullptr) {
                m_settings.network->notePairRecord(udid, *record);
            }
            return answer(reply->bytes);
        }
    }
    if (m_settings.network != nullptr) {
        if (const auto record = m_settings.network->pairRecord(udid)) {
            return answer(encodeMuxPairRecord(frame.header.tag, *record));
        }
    }
    // Never Result 0 without a record: the client would read a null record and crash.
    if (parsed && parsed->kind == MuxReply::Kind::result && parsed->number != 0) {
        return answer(reply->bytes);
    }
    return answer(encodeMuxResult(frame.header.tag, MuxResult::badDevice));
}

bool MuxSession::readBuid(const MuxFrame& frame) {
    const auto reply = askSystemMuxer(frame);
    const auto parsed = reply ? parseMuxReply(reply->payload) : std::nullopt;
    if (parsed && parsed->kind == MuxReply::Kind::answer &&
        stringIn(parsed->dictionary.get(), "BUID")) {
        return answer(reply->bytes);
    }
    if (m_settings.network != nullptr) {
        if (const auto buid = m_settings.network->systemBuid()) {
            return answer(encodeMuxBuid(frame.header.tag, *buid));
        }
    }
    if (reply) {
        return answer(reply->bytes);
    }
    return answer(encodeMuxResult(frame.header.tag, MuxResult::badCommand));
}

bool MuxSession::forward(const MuxFrame& frame) {
    const auto reply = askSystemMuxer(frame);
    if (!reply) {
        return answer(encodeMuxResult(frame.header.tag, MuxResult::badCommand));
    }
    return answer(reply->bytes);
}

void MuxSession::relay(int deviceFd) {
    // Each direction holds at most one chunk; while it waits to be written, its source is not
    // read. Neither direction ever blocks the other, so a peer that writes while it is being
    // written to cannot stall the tunnel. A chunk is passed on as soon as it is read: the other
    // side nearly always takes it at once, and only then is there something to wait for.
    struct Direction {
        int from;
        int to;
        std::unique_ptr<char[]> buffer;
        std::size_t size = 0;
        std::size_t written = 0;

        // False when the receiving side is gone.
        bool push() {
            while (written < size) {
                const auto sent =
                    ::send(to, buffer.get() + written, size - written, MSG_NOSIGNAL | MSG_DONTWAIT);
                if (sent < 0) {
                    if (errno == EINTR) {
                        continue;
                    }
                    return errno == EAGAIN || errno == EWOULDBLOCK;
                }
                written += static_cast<std::size_t>(sent);
            }
            size = 0;
            written = 0;
            return true;
        }
    };
    Direction directions[2] = {
        {m_clientFd, deviceFd, std::make_unique_for_overwrite<char[]>(kRelayChunk)},
        {deviceFd, m_clientFd, std::make_unique_for_overwrite<char[]>(kRelayChunk)},
    };
    auto lastProgress = std::chrono::steady_clock::now();
    for (;;) {
        pollfd fds[3];
        for (int d = 0; d < 2; ++d) {
            fds[d] = directions[d].size == 0 ? pollfd{directions[d].from, POLLIN, 0}
                                             : pollfd{directions[d].to, POLLOUT, 0};
        }
        fds[2] = {m_stopFd, POLLIN, 0};
        const int ready = ::poll(fds, 3, 1000);
        if (ready < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        if ((fds[2].revents & POLLIN) != 0) {
            return;
        }
        const auto now = std::chrono::steady_clock::now();
        if (ready == 0) {
            // A peer that takes nothing for this long is gone.
            if (now - lastProgress > kRelayWriteLimit &&
                (directions[0].size != 0 || directions[1].size != 0)) {
                return;
            }
            continue;
        }
        for (int d = 0; d < 2; ++d) {
            auto& direction = directions[d];
            if (fds[d].revents == 0) {
                continue;
            }
            if (direction.size == 0) {
                const auto got =
                    ::recv(direction.from, direction.buffer.get(), kRelayChunk, MSG_DONTWAIT);
                if (got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR)) {
                    return;
                }
                if (got < 0) {
                    continue;
                }
                direction.size = static_cast<std::size_t>(got);
            }
            const std::size_t before = direction.written;
            if (!direction.push()) {
                return;
            }
            if (direction.size == 0 || direction.written != before) {
                lastProgress = now;
            }
        }
    }
}

} // namespace ambrel
