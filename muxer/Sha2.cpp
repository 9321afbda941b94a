#include "muxer/Sha2.h"

namespace ambrel {

namespace {

// The round constants and starting values of SHA-256 and SHA-512: the first 32 or 64 bits of the
// fractional parts of the cube roots of the first 64 or 80 primes, and of the square roots of the
// first eight.
constexpr std::array<std::uint32_t, 64> kRound256{{
    0x428a2f98U, 0x71374491U, 0xb5c0fbcfU, 0xe9b5dba5U, 0x3956c25bU, 0x59f111f1U, 0x923f82a4U,
    0xab1c5ed5U, 0xd807aa98U, 0x12835b01U, 0x243185beU, 0x550c7dc3U, 0x72be5d74U, 0x80deb1feU,
    0x9bdc06a7U, 0xc19bf174U, 0xe49b69c1U, 0xefbe4786U, 0x0fc19dc6U, 0x240ca1ccU, 0x2de92c6fU,
    0x4a7484aaU, 0x5cb0a9dcU, 0x76f988daU, 0x983e5152U, 0xa831c66dU, 0xb00327c8U, 0xbf597fc7U,
    0xc6e00bf3U, 0xd5a79147U, 0x06ca6351U, 0x14292967U, 0x27b70a85U, 0x2e1b2138U, 0x4d2c6dfcU,
    0x53380d13U, 0x650a7354U, 0x766a0abbU, 0x81c2c92eU, 0x92722c85U, 0xa2bfe8a1U, 0xa81a664bU,
    0xc24b8b70U, 0xc76c51a3U, 0xd192e819U, 0xd6990624U, 0xf40e3585U, 0x106aa070U, 0x19a4c116U,
    0x1e376c08U, 0x2748774cU, 0x34b0bcb5U, 0x391c0cb3U, 0x4ed8aa4aU, 0x5b9cca4fU, 0x682e6ff3U,
    0x748f82eeU, 0x78a5636fU, 0x84c87814U, 0x8cc70208U, 0x90befffaU, 0xa4506cebU, 0xbef9a3f7U,
    0xc67178f2U,
}};
constexpr std::array<std::uint32_t, 8> kStart256{{
    0x6a09e667U,
    0xbb67ae85U,
    0x3c6ef372U,
    0xa54ff53aU,
    0x510e527fU,
    0x9b05688cU,
    0x1f83d9abU,
    0x5be0cd19U,
}};
constexpr std::array<std::uint64_t, 80> kRound512{{
    0x428a2f98d728ae22ULL, 0x7137449123ef65cdULL, 0xb5c0fbcfec4d3b2fULL, 0xe9b5dba58189dbbcULL,
    0x3956c25bf348b538ULL, 0x59f111f1b605d019ULL, 0x923f82a4af194f9bULL, 0xab1c5ed5da6d8118ULL,
    0xd807aa98a3030242ULL, 0x12835b0145706fbeULL, 0x243185be4ee4b28cULL, 0x550c7dc3d5ffb4e2ULL,
    0x72be5d74f27b896fULL, 0x80deb1fe3b1696b1ULL, 0x9bdc06a725c71235ULL, 0xc19bf174cf692694ULL,
    0xe49b69c19ef14ad2ULL, 0xefbe4786384f25e3ULL, 0x0fc19dc68b8cd5b5ULL, 0x240ca1cc77ac9c65ULL,
    0x2de92c6f592b0275ULL, 0x4a7484aa6ea6e483ULL, 0x5cb0a9dcbd41fbd4ULL, 0x76f988da831153b5ULL,
    0x983e5152ee66dfabULL, 0xa831c66d2db43210ULL, 0xb00327c898fb213fULL, 0xbf597fc7beef0ee4ULL,
    0xc6e00bf33da88fc2ULL, 0xd5a79147930aa725ULL, 0x06ca6351e003826fULL, 0x142929670a0e6e70ULL,
    0x27b70a8546d22ffcULL, 0x2e1b21385c26c926ULL, 0x4d2c6dfc5ac42aedULL, 0x53380d139d95b3dfULL,
    0x650a73548baf63deULL, 0x766a0abb3c77b2a8ULL, 0x81c2c92e47edaee6ULL, 0x92722c851482353bULL,
    0xa2bfe8a14cf10364ULL, 0xa81a664bbc423001ULL, 0xc24b8b70d0f89791ULL, 0xc76c51a30654be30ULL,
    0xd192e819d6ef5218ULL, 0xd69906245565a910ULL, 0xf40e35855771202aULL, 0x106aa07032bbd1b8ULL,
    0x19a4c116b8d2d0c8ULL, 0x1e376c085141ab53ULL, 0x2748774cdf8eeb99ULL, 0x34b0bcb5e19b48a8ULL,
    0x391c0cb3c5c95a63ULL, 0x4ed8aa4ae3418acbULL, 0x5b9cca4f7763e373ULL, 0x682e6ff3d6b2b8a3ULL,
    0x748f82ee5defb2fcULL, 0x78a5636f43172f60ULL, 0x84c87814a1f0ab72ULL, 0x8cc702081a6439ecULL,
    0x90befffa23631e28ULL, 0xa4506cebde82bde9ULL, 0xbef9a3f7b2c67915ULL, 0xc67178f2e372532bULL,
    0xca273eceea26619cULL, 0xd186b8c721c0c207ULL, 0xeada7dd6cde0eb1eULL, 0xf57d4f7fee6ed178ULL,
    0x06f067aa72176fbaULL, 0x0a637dc5a2c898a6ULL, 0x113f9804bef90daeULL, 0x1b710b35131c471bULL,
    0x28db77f523047d84ULL, 0x32caab7b40c72493ULL, 0x3c9ebe0a15c9bebcULL, 0x431d67c49c100d4cULL,
    0x4cc5d4becb3e42b6ULL, 0x597f299cfc657e2aULL, 0x5fcb6fab3ad6faecULL, 0x6c44198c4a475817ULL,
}};
constexpr std::array<std::uint64_t, 8> kStart512{{
    0x6a09e667f3bcc908ULL,
    0xbb67ae8584caa73bULL,
    0x3c6ef372fe94f82bULL,
    0xa54ff53a5f1d36f1ULL,
    0x510e527fade682d1ULL,
    0x9b05688c2b3e6c1fULL,
    0x1f83d9abfb41bd6bULL,
    0x5be0cd19137e2179ULL,
}};

template <typename Word> constexpr Word rotateRight(Word value, unsigned bits) {
    return static_cast<Word>((value >> bits) | (value << (sizeof(Word) * 8 - bits)));
}

struct Sha256Shape {
    using Word = std::uint32_t;
    static constexpr std::size_t kBlockBytes = 64;
    static constexpr std::size_t kLengthBytes = 8;
    static constexpr const auto& kRound = kRound256;
    static constexpr const auto& kStart = kStart256;
    static Word bigSigma0(Word x) {
        return rotateRight(x, 2) ^ rotateRight(x, 13) ^ rotateRight(x, 22);
    }
    static Word bigSigma1(Word x) {
        return rotateRight(x, 6) ^ rotateRight(x, 11) ^ rotateRight(x, 25);
    }
    static Word smallSigma0(Word x) { return rotateRight(x, 7) ^ rotateRight(x, 18) ^ (x >> 3); }
    static Word smallSigma1(Word x) { return rotateRight(x, 17) ^ rotateRight(x, 19) ^ (x >> 10); }
};

struct Sha512Shape {
    using Word = std::uint64_t;
    static constexpr std::size_t kBlockBytes = 128;
    static constexpr std::size_t kLengthBytes = 16;
    static constexpr const auto& kRound = kRound512;
    static constexpr const auto& kStart = kStart512;
    static Word bigSigma0(Word x) {
        return rotateRight(x, 28) ^ rotateRight(x, 34) ^ rotateRight(x, 39);
    }
    static Word bigSigma1(Word x) {
        return rotateRight(x, 14) ^ rotateRight(x, 18) ^ rotateRight(x, 41);
    }
    static Word smallSigma0(Word x) { return rotateRight(x, 1) ^ rotateRight(x, 8) ^ (x >> 7); }
    static Word smallSigma1(Word x) { return rotateRight(x, 19) ^ rotateRight(x, 61) ^ (x >> 6); }
};

template <typename Shape>
using DigestOf = std::array<std::uint8_t, 8 * sizeof(typename Shape::Word)>;

template <typename Shape> DigestOf<Shape> digest(std::string_view message) {
    using Word = typename Shape::Word;
    constexpr std::size_t kWordBytes = sizeof(Word);
    constexpr std::size_t kRounds = Shape::kRound.size();

    // The message, a one bit, zeros, and its length in bits, to a whole number of blocks.
    std::string padded(message);
    padded.push_back(static_cast<char>(0x80));
    while ((padded.size() + Shape::kLengthBytes) % Shape::kBlockBytes != 0) {
        padded.push_back('\0');
    }
    const std::uint64_t bits = static_cast<std::uint64_t>(message.size()) * 8;
    for (std::size_t byte = Shape::kLengthBytes; byte-- > 0;) {
        padded.push_back(byte < 8 ? static_cast<char>((bits >> (8 * byte)) & 0xff) : '\0');
    }

    auto state = Shape::kStart;
    std::array<Word, kRounds> schedule{};
    for (std::size_t offset = 0; offset < padded.size(); offset += Shape::kBlockBytes) {
        for (std::size_t t = 0; t < 16; ++t) {
            Word word = 0;
            for (std::size_t byte = 0; byte < kWordBytes; ++byte) {
                word = static_cast<Word>((word << 8) | static_cast<std::uint8_t>(
                                                           padded[offset + t * kWordBytes + byte]));
            }
            schedule[t] = word;
        }
        for (std::size_t t = 16; t < kRounds; ++t) {
            schedule[t] = Shape::smallSigma1(schedule[t - 2]) + schedule[t - 7] +
                          Shape::smallSigma0(schedule[t - 15]) + schedule[t - 16];
        }
        Word a = state[0], b = state[1], c = state[2], d = state[3];
        Word e = state[4], f = state[5], g = state[6], h = state[7];
        for (std::size_t t = 0; t < kRounds; ++t) {
            const Word choose = (e & f) ^ (~e & g);
            const Word majority = (a & b) ^ (a & c) ^ (b & c);
            const Word first = h + Shape::bigSigma1(e) + choose + Shape::kRound[t] + schedule[t];
            const Word second = Shape::bigSigma0(a) + majority;
            h = g;
            g = f;
            f = e;
            e = d + first;
            d = c;
            c = b;
            b = a;
            a = first + second;
        }
        state[0] += a;
        state[1] += b;
        state[2] += c;
        state[3] += d;
        state[4] += e;
        state[5] += f;
        state[6] += g;
        state[7] += h;
    }

    DigestOf<Shape> out{};
    for (std::size_t index = 0; index < out.size(); ++index) {
        const Word word = state[index / kWordBytes];
        out[index] = static_cast<std::uint8_t>(word >> (8 * (kWordBytes - 1 - index % kWordBytes)));
    }
    return out;
}

template <std::size_t Size> std::string bytes(const std::array<std::uint8_t, Size>& value) {
    return std::string(reinterpret_cast<const char*>(value.data()), value.size());
}

template <typename Shape> DigestOf<Shape> hmac(std::string_view key, std::string_view message) {
    // A key longer than a block is hashed first; any key is then padded with zeros to a block.
    std::string block =
        key.size() > Shape::kBlockBytes ? bytes(digest<Shape>(key)) : std::string(key);
    block.resize(Shape::kBlockBytes, '\0');
    std::string inner = block;
    std::string outer = block;
    for (std::size_t index = 0; index < block.size(); ++index) {
        inner[index] = static_cast<char>(inner[index] ^ 0x36);
        outer[index] = static_cast<char>(outer[index] ^ 0x5c);
    }
    inner.append(message);
    outer.append(bytes(digest<Shape>(inner)));
    return digest<Shape>(outer);
}

template <typename Shape>
std::string hkdf(std::string_view salt, std::string_view key, std::string_view info,
                 std::size_t length) {
    constexpr std::size_t kHashBytes = 8 * sizeof(typename Shape::Word);
    if (length > 255 * kHashBytes) {
        return {};
    }
    const std::string zeros(kHashBytes, '\0');
    const std::string pseudorandomKey = bytes(hmac<Shape>(salt.empty() ? zeros : salt, key));
    std::string output;
    std::string previous;
    for (unsigned counter = 1; output.size() < length; ++counter) {
        std::string input = previous;
        input.append(info);
        input.push_back(static_cast<char>(counter));
        previous = bytes(hmac<Shape>(pseudorandomKey, input));
        output += previous;
    }
    output.resize(length);
    return output;
}

} // namespace

Sha256Digest sha256(std::string_view message) {
    return digest<Sha256Shape>(message);
}

Sha512Digest sha512(std::string_view message) {
    return digest<Sha512Shape>(message);
}

Sha256Digest hmacSha256(std::string_view key, std::string_view message) {
    return hmac<Sha256Shape>(key, message);
}

Sha512Digest hmacSha512(std::string_view key, std::string_view message) {
    return hmac<Sha512Shape>(key, message);
}

std::string hkdfSha256(std::string_view salt, std::string_view key, std::string_view info,
                       std::size_t length) {
    return hkdf<Sha256Shape>(salt, key, info, length);
}

std::string hkdfSha512(std::string_view salt, std::string_view key, std::string_view info,
                       std::size_t length) {
    return hkdf<Sha512Shape>(salt, key, info, length);
}

} // namespace ambrel
