#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace ambrel {

// SHA-256 and SHA-512 (FIPS 180-4), their HMACs (RFC 2104) and HKDF (RFC 5869): the whole of
// the cryptography the program needs, to recognise its phones' network adverts. Written here
// rather than linking a cryptography library, whose loading alone cost the widget 1.4 MiB of
// resident memory for a few hashes of short strings. Pure; bytes travel in std::string.

using Sha256Digest = std::array<std::uint8_t, 32>;
using Sha512Digest = std::array<std::uint8_t, 64>;

Sha256Digest sha256(std::string_view message);
Sha512Digest sha512(std::string_view message);

Sha256Digest hmacSha256(std::string_view key, std::string_view message);
Sha512Digest hmacSha512(std::string_view key, std::string_view message);

// Extract, then expand to `length` bytes; an empty salt stands for a hash length of zeros.
// Empty when more than 255 hash lengths are asked for, which HKDF cannot give.
std::string hkdfSha256(std::string_view salt, std::string_view key, std::string_view info,
                       std::size_t length);
std::string hkdfSha512(std::string_view salt, std::string_view key, std::string_view info,
                       std::size_t length);

} // namespace ambrel
