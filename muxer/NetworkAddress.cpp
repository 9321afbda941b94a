#include "muxer/NetworkAddress.h"

#include <arpa/inet.h>
#include <cstring>
#include <netinet/in.h>

namespace ambrel {

namespace {

constexpr std::size_t kInetLength = 16;
constexpr std::size_t kInet6Length = 28;

} // namespace

std::string encodeSocketAddress(const NetworkAddress& address) {
    const bool isV6 = address.family == NetworkAddress::Family::ipv6;
    std::string bytes(isV6 ? kInet6Length : kInetLength, '\0');
    bytes[0] = static_cast<char>(bytes.size());
    bytes[1] = static_cast<char>(isV6 ? kBsdInet6 : kBsdInet);
    bytes[2] = static_cast<char>(address.port >> 8);
    bytes[3] = static_cast<char>(address.port & 0xFF);
    if (isV6) {
        std::memcpy(bytes.data() + 8, address.bytes.data(), 16);
        std::memcpy(bytes.data() + 24, &address.scopeId, 4);
    } else {
        std::memcpy(bytes.data() + 4, address.bytes.data(), 4);
    }
    return bytes;
}

std::optional<NetworkAddress> decodeSocketAddress(std::string_view bytes) {
    if (bytes.size() < 2 || static_cast<std::uint8_t>(bytes[0]) != bytes.size()) {
        return std::nullopt;
    }
    NetworkAddress address;
    const auto family = static_cast<std::uint8_t>(bytes[1]);
    if (family == kBsdInet && bytes.size() == kInetLength) {
        address.family = NetworkAddress::Family::ipv4;
        std::memcpy(address.bytes.data(), bytes.data() + 4, 4);
    } else if (family == kBsdInet6 && bytes.size() == kInet6Length) {
        address.family = NetworkAddress::Family::ipv6;
        std::memcpy(address.bytes.data(), bytes.data() + 8, 16);
        std::memcpy(&address.scopeId, bytes.data() + 24, 4);
    } else {
        return std::nullopt;
    }
    address.port = static_cast<std::uint16_t>((static_cast<std::uint8_t>(bytes[2]) << 8) |
                                              static_cast<std::uint8_t>(bytes[3]));
    return address;
}

std::string toText(const NetworkAddress& address) {
    char text[INET6_ADDRSTRLEN] = {};
    const bool isV6 = address.family == NetworkAddress::Family::ipv6;
    if (inet_ntop(isV6 ? AF_INET6 : AF_INET, address.bytes.data(), text, sizeof text) == nullptr) {
        return {};
    }
    std::string result(text);
    if (isV6 && address.scopeId != 0) {
        result += "%" + std::to_string(address.scopeId);
    }
    return result;
}

} // namespace ambrel
