#include "tests/muxer/FakeSystemMuxer.h"

#include <chrono>
#include <cstring>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "muxer/MuxMessage.h"

namespace ambrel::testing {

using namespace std::chrono_literals;
using namespace std::string_literals;

namespace {

MuxDevice usbDevice(std::uint32_t id, const std::string& serial) {
    MuxDevice device;
    device.deviceId = id;
    device.serialNumber = serial;
    device.connection = MuxDevice::Connection::usb;
    PlistNode properties(plist_new_dict());
    plist_dict_set_item(properties.get(), "ProductID", plist_new_uint(4776));
    plist_dict_set_item(properties.get(), "LocationID", plist_new_uint(0));
    device.properties = std::move(properties);
    return device;
}

} // namespace

FakeSystemMuxer::FakeSystemMuxer(std::filesystem::path socketPath, Behaviour behaviour)
    : m_path(std::move(socketPath)), m_behaviour(behaviour) {
    m_stopFd.reset(::eventfd(0, EFD_CLOEXEC));
    m_listenFd.reset(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, m_path.c_str(), sizeof address.sun_path - 1);
    if (::bind(m_listenFd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(m_listenFd.get(), 256) != 0) {
        m_listenFd.reset();
        return;
    }
    m_thread = std::thread([this] { acceptLoop(); });
}

FakeSystemMuxer::~FakeSystemMuxer() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = ::write(m_stopFd.get(), &one, sizeof one);
    if (m_thread.joinable()) {
        m_thread.join();
    }
    for (auto& client : m_clients) {
        client.join();
    }
    ::unlink(m_path.c_str());
}

void FakeSystemMuxer::addUsbDevice(std::uint32_t id, const std::string& serial) {
    const std::lock_guard lock(m_mutex);
    m_usb[id] = serial;
    tellListeners(encodeMuxAttached(0, usbDevice(id, serial)));
}

void FakeSystemMuxer::removeUsbDevice(std::uint32_t id) {
    const std::lock_guard lock(m_mutex);
    if (m_usb.erase(id) != 0) {
        tellListeners(encodeMuxDetached(0, id));
    }
}

void FakeSystemMuxer::tellListeners(const std::string& event) {
    for (const int fd : m_listeners) {
        MuxChannel(fd, m_stopFd.get()).writeAll(event, 5s);
    }
}

void FakeSystemMuxer::setPairRecord(const std::string& udid, const std::string& record) {
    const std::lock_guard lock(m_mutex);
    m_records[udid] = record;
}

void FakeSystemMuxer::setBuid(const std::string& buid) {
    const std::lock_guard lock(m_mutex);
    m_buid = buid;
}

int FakeSystemMuxer::requestsOf(const std::string& messageType) const {
    const std::lock_guard lock(m_mutex);
    const auto found = m_requests.find(messageType);
    return found == m_requests.end() ? 0 : found->second;
}

void FakeSystemMuxer::acceptLoop() {
    for (;;) {
        pollfd fds[2] = {{m_listenFd.get(), POLLIN, 0}, {m_stopFd.get(), POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0 || (fds[1].revents & POLLIN) != 0) {
            return;
        }
        const int fd = ::accept4(m_listenFd.get(), nullptr, nullptr, SOCK_CLOEXEC);
        if (fd >= 0) {
            m_clients.emplace_back([this, fd] { serve(fd); });
        }
    }
}

void FakeSystemMuxer::serve(int rawFd) {
    const UniqueFd fd(rawFd);
    const MuxChannel channel(fd.get(), m_stopFd.get());
    MuxFrame frame;
    while (channel.readFrame(frame, 30s) == ChannelStatus::ok) {
        const auto request = parseMuxRequest(frame.payload);
        if (!request) {
            return;
        }
        {
            const std::lock_guard lock(m_mutex);
            ++m_requests[request->messageType];
        }
        const auto tag = frame.header.tag;
        if (m_behaviour == Behaviour::silent) {
            // Until the client hangs up or the fake stops: a client that gets anywhere has
            // given up on its own.
            while (channel.waitReadable(30s) == ChannelStatus::timedOut) {
            }
            return;
        }
        if (m_behaviour == Behaviour::garbage) {
            channel.writeAll("\x23\0\0\0\x01\0\0\0\x08\0\0\0\x01\0\0\0not a property list"s, 5s);
            return;
        }
        std::unique_lock lock(m_mutex);
        std::vector<MuxDevice> devices;
        for (const auto& [id, serial] : m_usb) {
            devices.push_back(usbDevice(id, serial));
        }
        switch (request->type) {
        case MuxRequestType::listDevices:
            lock.unlock();
            if (m_behaviour == Behaviour::refusesListDevices) {
                channel.writeAll(encodeMuxResult(tag, MuxResult::badCommand), 5s);
            } else {
                channel.writeAll(encodeMuxDeviceList(tag, devices), 5s);
            }
            break;
        case MuxRequestType::listen: {
            // As usbmuxd does: the devices there are now right after the result, and every
            // change queued to each listener before the one who made it goes on.
            channel.writeAll(encodeMuxResult(tag, MuxResult::ok), 5s);
            for (const auto& device : devices) {
                channel.writeAll(encodeMuxAttached(0, device), 5s);
            }
            m_listeners.insert(fd.get());
            lock.unlock();
            while (channel.waitReadable(30s) == ChannelStatus::timedOut) {
            }
            lock.lock();
            m_listeners.erase(fd.get());
            return;
        }
        case MuxRequestType::connect: {
            const bool known = m_usb.count(request->deviceId) != 0;
            lock.unlock();
            if (!known) {
                channel.writeAll(encodeMuxResult(tag, MuxResult::badDevice), 5s);
                break;
            }
            channel.writeAll(encodeMuxResult(tag, MuxResult::ok), 5s);
            // The device end: echoes every byte, its first answer prefixed with the port it
            // was asked for.
            std::string prefix = std::to_string(request->port) + ":";
            char buffer[4096];
            while (channel.waitReadable(30s) == ChannelStatus::ok) {
                const auto got = ::recv(fd.get(), buffer, sizeof buffer, 0);
                if (got <= 0) {
                    return;
                }
                channel.writeAll(prefix + std::string(buffer, static_cast<std::size_t>(got)), 5s);
                prefix.clear();
            }
            return;
        }
        case MuxRequestType::readPairRecord: {
            const auto found = m_records.find(request->pairRecordId);
            const auto reply = found != m_records.end()
                                   ? encodeMuxPairRecord(tag, found->second)
                                   : encodeMuxResult(tag, MuxResult::badDevice);
            lock.unlock();
            channel.writeAll(reply, 5s);
            break;
        }
        case MuxRequestType::readBuid: {
            const auto reply = encodeMuxBuid(tag, m_buid);
            lock.unlock();
            channel.writeAll(reply, 5s);
            break;
        }
        default:
            lock.unlock();
            channel.writeAll(encodeMuxResult(tag, MuxResult::ok), 5s);
            break;
        }
    }
}

} // namespace ambrel::testing
