#include "muxer/NetworkAddress.h"

#include <gtest/gtest.h>

namespace ambrel {
namespace {

using namespace std::string_literals;

TEST(NetworkAddressTest, Ipv4IsTheSixteenByteBsdLayout) {
    NetworkAddress address;
    address.bytes = {192, 168, 1, 20};
    address.port = 62078;
    const auto bytes = encodeSocketAddress(address);
    EXPECT_EQ(bytes, "\x10\x02\xF2\x7E\xC0\xA8\x01\x14\0\0\0\0\0\0\0\0"s);
    EXPECT_EQ(decodeSocketAddress(bytes), address);
    EXPECT_EQ(toText(address), "192.168.1.20");
}

TEST(NetworkAddressTest, Ipv6IsTheTwentyEightByteBsdLayoutWithFamily0x1E) {
    NetworkAddress address;
    address.family = NetworkAddress::Family::ipv6;
    address.bytes = {0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    address.port = 62078;
    address.scopeId = 3;
    const auto bytes = encodeSocketAddress(address);
    ASSERT_EQ(bytes.size(), 28u);
    EXPECT_EQ(bytes.substr(0, 8), "\x1C\x1E\xF2\x7E\0\0\0\0"s);
    EXPECT_EQ(bytes.substr(8, 16), "\xfe\x80\0\0\0\0\0\0\0\0\0\0\0\0\0\x01"s);
    EXPECT_EQ(bytes.substr(24), "\x03\0\0\0"s);
    EXPECT_EQ(decodeSocketAddress(bytes), address);
    EXPECT_EQ(toText(address), "fe80::1%3");
}

TEST(NetworkAddressTest, OtherLayoutsAreRefused) {
    EXPECT_FALSE(decodeSocketAddress(""));
    EXPECT_FALSE(decodeSocketAddress("\x10"s));
    // Linux's own AF_INET6 (10) is not what the protocol carries.
    EXPECT_FALSE(decodeSocketAddress("\x1C\x0A"s + std::string(26, '\0')));
    // The length byte must match.
    EXPECT_FALSE(decodeSocketAddress("\x1C\x02"s + std::string(14, '\0')));
    EXPECT_FALSE(decodeSocketAddress("\x10\x1E"s + std::string(14, '\0')));
}

} // namespace
} // namespace ambrel
