#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ambrel {

// An IP address and port of a phone on the network, as the muxer protocol carries it.
struct NetworkAddress {
    enum class Family { ipv4, ipv6 };

    Family family = Family::ipv4;
    // IPv4 uses the first 4 bytes.
    std::array<std::uint8_t, 16> bytes{};
    std::uint16_t port = 0;
    // The interface of an IPv6 link-local address; 0 otherwise.
    std::uint32_t scopeId = 0;

    friend bool operator==(const NetworkAddress&, const NetworkAddress&) = default;
};

// The address family numbers of the BSD socket address that libimobiledevice reads: the
// second byte is 0x02 for IPv4 and 0x1E (the BSD AF_INET6) for IPv6, whatever this system
// numbers them.
inline constexpr std::uint8_t kBsdInet = 0x02;
inline constexpr std::uint8_t kBsdInet6 = 0x1E;

// The BSD `struct sockaddr_in`/`sockaddr_in6` bytes of `address`: byte 0 the length (16 or 28),
// byte 1 the family, then the port in network order, then the address (IPv6: flow info 0, the
// 16 address bytes, the scope id in host order as the BSD structure keeps it). Pure.
std::string encodeSocketAddress(const NetworkAddress& address);

// The reverse of encodeSocketAddress; absent when the bytes are not one of the two layouts.
// Pure.
std::optional<NetworkAddress> decodeSocketAddress(std::string_view bytes);

// The text form ("192.168.1.20", "fe80::1%3" as a number scope) of `address`, for messages.
std::string toText(const NetworkAddress& address);

} // namespace ambrel
