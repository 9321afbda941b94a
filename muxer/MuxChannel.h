#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "muxer/MuxMessage.h"

namespace ambrel {

// An owned file descriptor, closed with the object.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : m_fd(fd) {}
    ~UniqueFd();
    UniqueFd(UniqueFd&& other) noexcept;
    UniqueFd& operator=(UniqueFd&& other) noexcept;
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    int get() const { return m_fd; }
    bool isValid() const { return m_fd >= 0; }
    void reset(int fd = -1);

private:
    int m_fd = -1;
};

// One whole message as it came: its header, its payload, and all of its bytes (to pass it on
// unchanged).
struct MuxFrame {
    MuxHeader header;
    std::string payload;
    std::string bytes;
};

// How a read or write on a channel ended.
enum class ChannelStatus { ok, closed, timedOut, refused, stopped };

// Blocking socket I/O with a time limit that also ends at once when `stopFd` (an eventfd or
// pipe, -1 for none) becomes readable. Never raises SIGPIPE. Each call is independent; any
// thread may use its own channel.
class MuxChannel {
public:
    MuxChannel(int fd, int stopFd) : m_fd(fd), m_stopFd(stopFd) {}

    // Writes all of `bytes`.
    ChannelStatus writeAll(std::string_view bytes, std::chrono::milliseconds limit) const;
    // Reads one message: `closed` at end of file before a header, `refused` when the header is
    // outside the protocol (isAcceptableMuxHeader) or the peer ends mid-message.
    ChannelStatus readFrame(MuxFrame& frame, std::chrono::milliseconds limit) const;
    // Reads exactly `count` bytes onto the end of `into`; `closed` when the peer ends first.
    ChannelStatus readBytes(std::string& into, std::size_t count,
                            std::chrono::milliseconds limit) const;
    // Waits until the socket is readable (data or end of file).
    ChannelStatus waitReadable(std::chrono::milliseconds limit) const;

private:
    enum class WaitFirst { no, yes };
    ChannelStatus readExactly(std::string& into, std::size_t count,
                              std::chrono::steady_clock::time_point deadline,
                              WaitFirst waitFirst) const;
    ChannelStatus waitFor(short events, std::chrono::steady_clock::time_point deadline) const;

    int m_fd;
    int m_stopFd;
};

// A connected stream socket to the UNIX socket at `path`; invalid when nothing listens there.
UniqueFd connectUnixSocket(const std::string& path);

// A TCP connection to `address`, within `limit`; invalid on failure.
UniqueFd connectTcp(const NetworkAddress& address, std::chrono::milliseconds limit);

} // namespace ambrel
