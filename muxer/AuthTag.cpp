#include "muxer/AuthTag.h"

#include "muxer/Sha2.h"

namespace ambrel {

namespace {

constexpr std::size_t kKeyBytes = 32;
constexpr std::size_t kTagBytes = 8;

std::string base64(const std::uint8_t* data, std::size_t size) {
    static constexpr std::string_view kAlphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t index = 0; index < size; index += 3) {
        const std::size_t left = size - index;
        const std::uint32_t group = (std::uint32_t{data[index]} << 16) |
                                    (left > 1 ? std::uint32_t{data[index + 1]} << 8 : 0) |
                                    (left > 2 ? std::uint32_t{data[index + 2]} : 0);
        text.push_back(kAlphabet[(group >> 18) & 63]);
        text.push_back(kAlphabet[(group >> 12) & 63]);
        text.push_back(left > 1 ? kAlphabet[(group >> 6) & 63] : '=');
        text.push_back(left > 2 ? kAlphabet[group & 63] : '=');
    }
    return text;
}

} // namespace

std::string authTagFor(const std::string& hostId, const std::string& identifier) {
    // Without a salt HKDF takes one of zeros as long as the hash; there is no info.
    const std::string key = hkdfSha512({}, hostId, {}, kKeyBytes);
    const Sha256Digest mac = hmacSha256(key, identifier);
    return base64(mac.data(), kTagBytes);
}

} // namespace ambrel
