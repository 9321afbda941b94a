#include "muxer/AuthTag.h"

#include <array>
#include <memory>

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/kdf.h>

namespace ambrel {

namespace {

constexpr std::size_t kKeyBytes = 32;
constexpr std::size_t kTagBytes = 8;

struct ContextFree {
    void operator()(EVP_PKEY_CTX* context) const { EVP_PKEY_CTX_free(context); }
};

} // namespace

std::string authTagFor(const std::string& hostId, const std::string& identifier) {
    std::array<unsigned char, kKeyBytes> key{};
    std::size_t keyLength = key.size();
    const std::unique_ptr<EVP_PKEY_CTX, ContextFree> context(
        EVP_PKEY_CTX_new_id(EVP_PKEY_HKDF, nullptr));
    // Without a salt HKDF takes one of zeros as long as the hash; there is no info.
    if (!context || EVP_PKEY_derive_init(context.get()) <= 0 ||
        EVP_PKEY_CTX_set_hkdf_md(context.get(), EVP_sha512()) <= 0 ||
        EVP_PKEY_CTX_set1_hkdf_key(context.get(),
                                   reinterpret_cast<const unsigned char*>(hostId.data()),
                                   static_cast<int>(hostId.size())) <= 0 ||
        EVP_PKEY_derive(context.get(), key.data(), &keyLength) <= 0 || keyLength != key.size()) {
        return {};
    }
    std::array<unsigned char, EVP_MAX_MD_SIZE> mac{};
    unsigned int macLength = 0;
    if (HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()),
             reinterpret_cast<const unsigned char*>(identifier.data()), identifier.size(),
             mac.data(), &macLength) == nullptr ||
        macLength < kTagBytes) {
        return {};
    }
    // Base64 of 8 bytes: 12 characters with one "=", and the terminating zero.
    std::array<unsigned char, 13> text{};
    const int written = EVP_EncodeBlock(text.data(), mac.data(), static_cast<int>(kTagBytes));
    return std::string(reinterpret_cast<const char*>(text.data()),
                       static_cast<std::size_t>(written));
}

} // namespace ambrel
