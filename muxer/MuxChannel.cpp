#include "muxer/MuxChannel.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace ambrel {

UniqueFd::~UniqueFd() {
    reset();
}

UniqueFd::UniqueFd(UniqueFd&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}

UniqueFd& UniqueFd::operator=(UniqueFd&& other) noexcept {
    if (this != &other) {
        reset(std::exchange(other.m_fd, -1));
    }
    return *this;
}

void UniqueFd::reset(int fd) {
    if (m_fd >= 0) {
        ::close(m_fd);
    }
    m_fd = fd;
}

namespace {

int remainingMilliseconds(std::chrono::steady_clock::time_point deadline) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    return left.count() < 0 ? 0 : static_cast<int>(left.count());
}

} // namespace

ChannelStatus MuxChannel::waitFor(short events,
                                  std::chrono::steady_clock::time_point deadline) const {
    for (;;) {
        pollfd fds[2] = {{m_fd, events, 0}, {m_stopFd, POLLIN, 0}};
        const int count = ::poll(fds, m_stopFd >= 0 ? 2 : 1, remainingMilliseconds(deadline));
        if (count < 0) {
            if (errno == EINTR) {
                continue;
            }
            return ChannelStatus::closed;
        }
        if (m_stopFd >= 0 && (fds[1].revents & POLLIN) != 0) {
            return ChannelStatus::stopped;
        }
        if (count == 0) {
            if (std::chrono::steady_clock::now() >= deadline) {
                return ChannelStatus::timedOut;
            }
            continue;
        }
        return ChannelStatus::ok;
    }
}

ChannelStatus MuxChannel::waitReadable(std::chrono::milliseconds limit) const {
    return waitFor(POLLIN, std::chrono::steady_clock::now() + limit);
}

ChannelStatus MuxChannel::writeAll(std::string_view bytes, std::chrono::milliseconds limit) const {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    // A socket almost always has room for a message: send first and wait only when it has not.
    while (!bytes.empty()) {
        const auto sent = ::send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0) {
            if (errno == EINTR) {
                continue;
            }
            if (errno != EAGAIN && errno != EWOULDBLOCK) {
                return ChannelStatus::closed;
            }
            if (const auto ready = waitFor(POLLOUT, deadline); ready != ChannelStatus::ok) {
                return ready;
            }
            continue;
        }
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return ChannelStatus::ok;
}

ChannelStatus MuxChannel::readExactly(std::string& into, std::size_t count,
                                      std::chrono::steady_clock::time_point deadline,
                                      WaitFirst waitFirst) const {
    const std::size_t target = into.size() + count;
    char buffer[16384];
    bool wait = waitFirst == WaitFirst::yes;
    while (into.size() < target) {
        if (wait) {
            if (const auto ready = waitFor(POLLIN, deadline); ready != ChannelStatus::ok) {
                return ready;
            }
        }
        const std::size_t wanted = std::min(sizeof buffer, target - into.size());
        const auto got = ::recv(m_fd, buffer, wanted, MSG_DONTWAIT);
        if (got < 0) {
            if (errno != EINTR && errno != EAGAIN && errno != EWOULDBLOCK) {
                return ChannelStatus::closed;
            }
            wait = errno != EINTR;
            continue;
        }
        if (got == 0) {
            return ChannelStatus::closed;
        }
        into.append(buffer, static_cast<std::size_t>(got));
        wait = true;
    }
    return ChannelStatus::ok;
}

ChannelStatus MuxChannel::readBytes(std::string& into, std::size_t count,
                                    std::chrono::milliseconds limit) const {
    return readExactly(into, count, std::chrono::steady_clock::now() + limit, WaitFirst::yes);
}

ChannelStatus MuxChannel::readFrame(MuxFrame& frame, std::chrono::milliseconds limit) const {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    frame = MuxFrame{};
    // The wait for a header also notices a stop; the rest of a message usually came with it.
    const auto headerStatus = readExactly(frame.bytes, kMuxHeaderSize, deadline, WaitFirst::yes);
    if (headerStatus != ChannelStatus::ok) {
        // End of file inside a header is a hang-up mid-message.
        return headerStatus == ChannelStatus::closed && !frame.bytes.empty()
                   ? ChannelStatus::refused
                   : headerStatus;
    }
    const auto header = decodeMuxHeader(frame.bytes);
    if (!header || !isAcceptableMuxHeader(*header)) {
        return ChannelStatus::refused;
    }
    frame.header = *header;
    const auto bodyStatus =
        readExactly(frame.bytes, header->length - kMuxHeaderSize, deadline, WaitFirst::no);
    if (bodyStatus != ChannelStatus::ok) {
        return bodyStatus == ChannelStatus::closed ? ChannelStatus::refused : bodyStatus;
    }
    frame.payload = frame.bytes.substr(kMuxHeaderSize);
    return ChannelStatus::ok;
}

UniqueFd connectUnixSocket(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) {
        return {};
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd.isValid()) {
        return {};
    }
    if (::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return {};
    }
    return fd;
}

UniqueFd connectTcp(const NetworkAddress& address, std::chrono::milliseconds limit) {
    sockaddr_storage storage{};
    socklen_t length = 0;
    if (address.family == NetworkAddress::Family::ipv4) {
        auto* inet = reinterpret_cast<sockaddr_in*>(&storage);
        inet->sin_family = AF_INET;
        inet->sin_port = htons(address.port);
        std::memcpy(&inet->sin_addr, address.bytes.data(), 4);
        length = sizeof(sockaddr_in);
    } else {
        auto* inet6 = reinterpret_cast<sockaddr_in6*>(&storage);
        inet6->sin6_family = AF_INET6;
        inet6->sin6_port = htons(address.port);
        std::memcpy(&inet6->sin6_addr, address.bytes.data(), 16);
        inet6->sin6_scope_id = address.scopeId;
        length = sizeof(sockaddr_in6);
    }
    UniqueFd fd(::socket(storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd.isValid()) {
        return {};
    }
    if (::connect(fd.get(), reinterpret_cast<const sockaddr*>(&storage), length) != 0) {
        if (errno != EINPROGRESS) {
            return {};
        }
        pollfd pending{fd.get(), POLLOUT, 0};
        if (::poll(&pending, 1, static_cast<int>(limit.count())) != 1) {
            return {};
        }
        int error = 0;
        socklen_t size = sizeof error;
        if (::getsockopt(fd.get(), SOL_SOCKET, SO_ERROR, &error, &size) != 0 || error != 0) {
            return {};
        }
    }
    const int flags = ::fcntl(fd.get(), F_GETFL);
    ::fcntl(fd.get(), F_SETFL, flags & ~O_NONBLOCK);
    return fd;
}

} // namespace ambrel
