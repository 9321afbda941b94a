#include "muxer/Sha2.h"

#include <gtest/gtest.h>

#include <string>

namespace ambrel::testing {
namespace {

std::string hexOf(std::string_view bytes) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const char byte : bytes) {
        text.push_back(kDigits[static_cast<std::uint8_t>(byte) >> 4]);
        text.push_back(kDigits[static_cast<std::uint8_t>(byte) & 15]);
    }
    return text;
}

std::string repeated(std::uint8_t byte, std::size_t count) {
    return std::string(count, static_cast<char>(byte));
}

std::string counting(std::uint8_t first, std::uint8_t last) {
    std::string bytes;
    for (unsigned value = first; value <= last; ++value) {
        bytes.push_back(static_cast<char>(value));
    }
    return bytes;
}

// Bytes that differ with the length, so that no two lengths share a prefix.
std::string sample(std::size_t length) {
    std::string bytes;
    for (std::size_t index = 0; index < length; ++index) {
        bytes.push_back(static_cast<char>((index * 7 + length) % 256));
    }
    return bytes;
}

template <std::size_t Size> std::string asBytes(const std::array<std::uint8_t, Size>& digest) {
    return std::string(reinterpret_cast<const char*>(digest.data()), digest.size());
}

TEST(Sha2Test, HashesTheStandardsExamples) {
    EXPECT_EQ(hexOf(asBytes(sha256("abc"))),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(hexOf(asBytes(sha256("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"))),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
    EXPECT_EQ(hexOf(asBytes(sha512(""))),
              "cf83e1357eefb8bdf1542850d66d8007d620e4050b5715dc83f4a921d36ce9ce"
              "47d0d13c5d85f2b0ff8318d2877eec2f63b931bd47417a81a538327af927da3e");
    EXPECT_EQ(hexOf(asBytes(sha512("abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmn"
                                   "hijklmnoijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqrstu"))),
              "8e959b75dae313da8cf4f72814fc143f8f7779c6eb9f7fa17299aeadb6889018"
              "501d289e4900f7e4331b99dec4b5433ac7d329eeb6dd26545e96e55b874be909");
}

TEST(Sha2Test, HashesAMillionBytes) {
    const std::string million(1000000, 'a');
    EXPECT_EQ(hexOf(asBytes(sha256(million))),
              "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
    EXPECT_EQ(hexOf(asBytes(sha512(million))),
              "e718483d0ce769644e2e42c7bc15b4638e1f98b13b2044285632a803afa973eb"
              "de0ff244877ea60a4cb0432ce577c31beb009c5c2c49aa2e4eadb217ad8cc09b");
}

// Every length from 0 to 300 bytes crosses the padding's edges of both block sizes; the hash of
// all the digests in a row was worked out with another implementation.
TEST(Sha2Test, HashesEveryLengthAcrossTheBlockEdges) {
    std::string digests256;
    std::string digests512;
    for (std::size_t length = 0; length <= 300; ++length) {
        digests256 += asBytes(sha256(sample(length)));
        digests512 += asBytes(sha512(sample(length)));
    }
    EXPECT_EQ(hexOf(asBytes(sha256(digests256))),
              "60d63ff40b5558727a9b786ac0be9300f7ca58fd9ddd3b2f3681b369018a87dc");
    EXPECT_EQ(hexOf(asBytes(sha512(digests512))),
              "e1f2f7d5d8fc48db06ec2a0eed639593f549caffa40245747258761214a3ec07"
              "134903fde52ace6cfae161a82097ba01f33a97d48dd6a80d4521d96d7401357e");
}

TEST(Sha2Test, AuthenticatesTheHmacExamples) {
    EXPECT_EQ(hexOf(asBytes(hmacSha256(repeated(0x0b, 20), "Hi There"))),
              "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7");
    EXPECT_EQ(hexOf(asBytes(hmacSha512(repeated(0x0b, 20), "Hi There"))),
              "87aa7cdea5ef619d4ff0b4241a1d6cb02379f4e2ce4ec2787ad0b30545e17cde"
              "daa833b7d6b8a702038b274eaea3f4e4be9d914eeb61f1702e696c203a126854");
    EXPECT_EQ(hexOf(asBytes(hmacSha256("Jefe", "what do ya want for nothing?"))),
              "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
    EXPECT_EQ(hexOf(asBytes(hmacSha512("Jefe", "what do ya want for nothing?"))),
              "164b7a7bfcf819e2e395fbe73b56e0a387bd64222e831fd610270cd7ea250554"
              "9758bf75c05a994a6d034f65f8f0e6fdcaeab1a34d4a6b4b636e070a38bce737");
    // A key longer than a block is hashed first.
    const std::string longKey = repeated(0xaa, 131);
    const std::string message = "Test Using Larger Than Block-Size Key - Hash Key First";
    EXPECT_EQ(hexOf(asBytes(hmacSha256(longKey, message))),
              "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54");
    EXPECT_EQ(hexOf(asBytes(hmacSha512(longKey, message))),
              "80b24263c7c1a3ebb71493c1dd7be8b49b46d1f41b4aeec1121b013783f8f352"
              "6b56d037e05f2598bd0fd2215d6a1e5295e64f73f63f0aec8b915a985d786598");
}

// Keys of every length from 0 to 300 bytes, shorter, as long as and longer than either block.
TEST(Sha2Test, AuthenticatesWithKeysOfEveryLength) {
    std::string macs256;
    std::string macs512;
    for (std::size_t length = 0; length <= 300; ++length) {
        macs256 += asBytes(hmacSha256(sample(length), sample(300 - length)));
        macs512 += asBytes(hmacSha512(sample(length), sample(300 - length)));
    }
    EXPECT_EQ(hexOf(asBytes(sha256(macs256))),
              "829697780116da2255f34107a2102b155f638d2596fb23f56e11baff5c2f01b4");
    EXPECT_EQ(hexOf(asBytes(sha512(macs512))),
              "35a82b399fd62b5a589a7dfcd025be2e9dcdeed10a959aa98c12537b24e2771f"
              "936b6a09e816e4a55af3e1a02c1693e487e5581b32e8b9092808629007c0f633");
}

TEST(Sha2Test, DerivesTheHkdfExamples) {
    const std::string key = repeated(0x0b, 22);
    EXPECT_EQ(hexOf(hkdfSha256(counting(0x00, 0x0c), key, counting(0xf0, 0xf9), 42)),
              "3cb25f25faacd57a90434f64d0362f2a2d2d0a90cf1a5a4c"
              "5db02d56ecc4c5bf34007208d5b887185865");
    // No salt and no info.
    EXPECT_EQ(hexOf(hkdfSha256({}, key, {}, 42)), "8da4e775a563c18f715f802a063c5a31b8a11f5c5ee1879e"
                                                  "c3454e5f3c738d2d9d201395faa4b61a96c8");
    EXPECT_EQ(hexOf(hkdfSha512({}, key, {}, 42)), "f5fa02b18298a72a8c23898a8703472c6eb179dc204c0342"
                                                  "5c970e3b164bf90fff22d04836d0e2343bac");
}

TEST(Sha2Test, DerivesUpToTheLongestOutputAndNoFurther) {
    EXPECT_EQ(hkdfSha256({}, "key", {}, 255 * 32).size(), 255u * 32);
    EXPECT_EQ(hkdfSha256({}, "key", {}, 255 * 32 + 1), "");
    EXPECT_EQ(hkdfSha512({}, "key", {}, 255 * 64).size(), 255u * 64);
    EXPECT_EQ(hkdfSha512({}, "key", {}, 255 * 64 + 1), "");
    // A shorter output is the start of a longer one.
    EXPECT_EQ(hkdfSha512({}, "key", "info", 100).substr(0, 70), hkdfSha512({}, "key", "info", 70));
}

} // namespace
} // namespace ambrel::testing
