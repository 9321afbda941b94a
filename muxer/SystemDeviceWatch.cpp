#include "muxer/SystemDeviceWatch.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <poll.h>
#include <pthread.h>
#include <sys/inotify.h>
#include <unistd.h>

#include "muxer/MuxChannel.h"
#include "muxer/MuxMessage.h"
#include "muxer/PairRecordStore.h"

namespace ambrel {

SystemDeviceWatch::SystemDeviceWatch(std::string systemMuxerPath, int stopFd,
                                     std::chrono::milliseconds systemMuxerLimit,
                                     PhoneArrivalSink* arrivals)
    : m_systemMuxerPath(std::move(systemMuxerPath)), m_stopFd(stopFd),
      m_systemMuxerLimit(systemMuxerLimit), m_arrivals(arrivals) {}

SystemDeviceWatch::~SystemDeviceWatch() {
    join();
}

void SystemDeviceWatch::start() {
    if (!m_thread.joinable()) {
        m_thread = std::thread([this] {
            ::pthread_setname_np(::pthread_self(), "usb-watch");
            run();
        });
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

namespace {

// An inotify descriptor that reports names made, moved in or changed in the folder of `path`
// (the socket's file is made by bind() and then given its mode); invalid if the folder cannot be
// watched.
UniqueFd watchFolderOf(const std::string& path) {
    UniqueFd watch(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    const auto folder = std::filesystem::path(path).parent_path();
    if (!watch.isValid() || folder.empty() ||
        ::inotify_add_watch(watch.get(), folder.c_str(), IN_CREATE | IN_MOVED_TO | IN_ATTRIB) < 0) {
        return UniqueFd();
    }
    return watch;
}

// Reads every waiting event; true when one names `name`.
bool takeEvents(int watch, const std::string& name) {
    bool named = false;
    alignas(inotify_event) char buffer[4096];
    for (;;) {
        const ssize_t size = ::read(watch, buffer, sizeof buffer);
        if (size <= 0) {
            return named;
        }
        for (ssize_t at = 0; at < size;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
            if (event->len > 0 && name == event->name) {
                named = true;
            }
            at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
    }
}

} // namespace

SystemDeviceWatch::Wake SystemDeviceWatch::waitFor(std::optional<std::chrono::milliseconds> wait,
                                                   int folderWatch) const {
    const std::string name = std::filesystem::path(m_systemMuxerPath).filename().string();
    const auto until =
        std::chrono::steady_clock::now() + wait.value_or(std::chrono::milliseconds(0));
    for (;;) {
        int timeout = -1;
        if (wait) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(
                until - std::chrono::steady_clock::now());
            timeout = static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
        }
        pollfd fds[2] = {{m_stopFd, POLLIN, 0}, {folderWatch, POLLIN, 0}};
        const int ready = ::poll(fds, folderWatch >= 0 ? 2 : 1, timeout);
        if (ready > 0 && (fds[0].revents & POLLIN) != 0) {
            return Wake::stop;
        }
        if (ready == 0) {
            return Wake::timeUp;
        }
        if (ready > 0 && (fds[1].revents & POLLIN) != 0 && takeEvents(folderWatch, name)) {
            return Wake::socketChanged;
        }
    }
}

void SystemDeviceWatch::run() {
    // Watched before the first try, so that a socket made right after a failed connect is seen.
    const UniqueFd folderWatch = watchFolderOf(m_systemMuxerPath);
    int quickTries = 0;
    for (;;) {
        if (folderWatch.isValid()) {
            takeEvents(folderWatch.get(), {});
        }
        const Stand outcome = stand();
        // With nothing at the path, the next try is worth making only once something is put
        // there, and then soon: a socket's file exists a moment before it accepts. A folder that
        // cannot be watched is looked at again after kRetry.
        std::optional<std::chrono::milliseconds> wait = kRetry;
        if (outcome == Stand::unreachable && folderWatch.isValid()) {
            wait = std::nullopt;
            if (quickTries > 0) {
                --quickTries;
                wait = kSettle;
            }
        }
        const Wake wake = waitFor(wait, folderWatch.get());
        if (wake == Wake::stop) {
            return;
        }
        if (wake == Wake::socketChanged) {
            quickTries = kQuickTries;
        } else if (outcome != Stand::unreachable) {
            quickTries = 0;
        }
    }
}

SystemDeviceWatch::Stand SystemDeviceWatch::stand() {
    UniqueFd system = connectUnixSocket(m_systemMuxerPath);
    if (!system.isValid()) {
        // A full backlog, or a shortage of descriptors, passes by itself: worth a retry.
        const bool nobodyThere = errno == ENOENT || errno == ECONNREFUSED || errno == EACCES ||
                                 errno == EPERM || errno == ENOTDIR;
        return nobodyThere ? Stand::unreachable : Stand::ended;
    }
    const MuxChannel channel(system.get(), m_stopFd);
    const auto request = encodeMuxMessage(
        1, muxRequestDictionary({MuxRequestType::listen, "Listen", 0, 0, ""}, "tovrin"));
    MuxFrame frame;
    if (channel.writeAll(request, m_systemMuxerLimit) != ChannelStatus::ok ||
        channel.readFrame(frame, m_systemMuxerLimit) != ChannelStatus::ok) {
        return Stand::ended;
    }
    const auto accepted = parseMuxReply(frame.payload);
    if (!accepted || accepted->kind != MuxReply::Kind::result || accepted->number != 0) {
        return Stand::ended;
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
        std::optional<std::string> attached;
        if (event->kind == MuxReply::Kind::attached && event->device) {
            attached = udidOfSerial(event->device->serialNumber);
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
        if (attached && m_arrivals != nullptr) {
            m_arrivals->phoneAppeared(*attached, false);
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
    return Stand::ended;
}

} // namespace ambrel
