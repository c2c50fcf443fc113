#include "KRCrypto/Derivation.hpp"

#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/Sizes.hpp"
#include "KRCrypto/internal/OpenSSL.hpp"

#include <openssl/core_names.h>
#include <openssl/kdf.h>
#include <openssl/params.h>

#include <array>

namespace KRCrypto {

namespace {

using Internal::require;

constexpr std::size_t mostOutput = 255 * std::tuple_size_v<Digest>;
constexpr std::size_t mostInfo = 32768; // the library's limit

// The library takes an address for an empty input, but not a null one.
ByteView present(ByteView bytes) {
    static constexpr std::array<std::uint8_t, 1> nothing{};
    return bytes.empty() ? ByteView(nothing).first(0) : bytes;
}

// The library reads its parameters but takes them as mutable.
OSSL_PARAM bytesParam(const char* name, ByteView bytes) {
    const ByteView given = present(bytes);
    return OSSL_PARAM_construct_octet_string(name, const_cast<std::uint8_t*>(given.data()), given.size());
}

OSSL_PARAM sha256Param() {
    static std::array<char, 7> name{"SHA256"};
    return OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, name.data(), 0);
}

void hmacInto(ByteView key, ByteView data, MutableBytes tag) {
    const std::array<OSSL_PARAM, 2> parameters{sha256Param(), OSSL_PARAM_construct_end()};
    const auto context = Internal::owned(EVP_MAC_CTX_new(Internal::hmac()));
    const ByteView usable = present(key);
    std::size_t written = 0;
    require(EVP_MAC_init(context.get(), usable.data(), usable.size(), parameters.data()) == 1 &&
            EVP_MAC_update(context.get(), data.data(), data.size()) == 1 &&
            EVP_MAC_final(context.get(), tag.data(), &written, tag.size()) == 1);
}

} // namespace

Digest hmacSHA256(ByteView key, ByteView data) {
    Digest tag{};
    hmacInto(key, data, tag);
    return tag;
}

// The first half is done here, because the library gives its copy of the salt back without wiping it, and
// under a link password the salt is secret.
SecretBytes hkdf(ByteView ikm, ByteView info, std::size_t length, ByteView salt) {
    if (length > mostOutput || info.size() > mostInfo) {
        throw KRCryptoError(KRCryptoError::SizeMismatch{});
    }
    SecretBytes output(length);
    if (length == 0) { // which the library refuses
        return output;
    }
    SecretBytes extracted(std::tuple_size_v<Digest>);
    hmacInto(salt, ikm, extracted.bytes());

    int mode = EVP_KDF_HKDF_MODE_EXPAND_ONLY;
    const std::array<OSSL_PARAM, 5> parameters{
        OSSL_PARAM_construct_int(OSSL_KDF_PARAM_MODE, &mode),
        sha256Param(),
        bytesParam(OSSL_KDF_PARAM_KEY, extracted),
        bytesParam(OSSL_KDF_PARAM_INFO, info),
        OSSL_PARAM_construct_end(),
    };
    const auto context = Internal::owned(EVP_KDF_CTX_new(Internal::hkdfAlgorithm()));
    require(EVP_KDF_derive(context.get(), output.bytes().data(), length, parameters.data()) == 1);
    return output;
}

SecretBytes hkdf(ByteView ikm, std::string_view info, std::size_t length, ByteView salt) {
    return hkdf(ikm, asBytes(info), length, salt);
}

SecretBytes subkey(ByteView parent, std::string_view label) {
    return hkdf(parent, label, keySize);
}

} // namespace KRCrypto
