#include "KRCrypto/Derivation.hpp"

#include "KRCrypto/KRCryptoError.hpp"
#include "KRCrypto/Sizes.hpp"
#include "KRCrypto/internal/OpenSSL.hpp"

#include <openssl/core_names.h>
#include <openssl/params.h>

#include <algorithm>
#include <array>
#include <initializer_list>

namespace KRCrypto {

namespace {

using Internal::require;

constexpr std::size_t hashSize = std::tuple_size_v<Digest>;
constexpr std::size_t mostBlocks = 255;

void hmacInto(ByteView key, std::initializer_list<ByteView> pieces, std::span<std::uint8_t, hashSize> out) {
    // HMAC fills short keys up with zeros, so the empty key, which the library refuses, equals one zero byte.
    static constexpr std::array<std::uint8_t, 1> emptyKey{};
    const ByteView usable = key.empty() ? ByteView(emptyKey) : key;

    std::array<char, 7> digestName{"SHA256"};
    const std::array<OSSL_PARAM, 2> parameters{
        OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digestName.data(), 0),
        OSSL_PARAM_construct_end(),
    };
    const auto context = Internal::owned(EVP_MAC_CTX_new(Internal::hmac()));
    require(EVP_MAC_init(context.get(), usable.data(), usable.size(), parameters.data()) == 1);
    for (const ByteView piece : pieces) {
        require(EVP_MAC_update(context.get(), piece.data(), piece.size()) == 1);
    }
    std::size_t written = 0;
    require(EVP_MAC_final(context.get(), out.data(), &written, out.size()) == 1);
}

} // namespace

Digest hmacSHA256(ByteView key, ByteView data) {
    Digest tag{};
    hmacInto(key, {data}, tag);
    return tag;
}

// Written over the library's HMAC, because the library's own HKDF limits the length of the info.
SecretBytes hkdf(ByteView ikm, ByteView info, std::size_t length, ByteView salt) {
    if (length > mostBlocks * hashSize) {
        throw KRCryptoError(KRCryptoError::SizeMismatch{});
    }
    SecretBytes extracted(hashSize);
    hmacInto(salt, {ikm}, extracted.bytes().first<hashSize>());

    SecretBytes output(length);
    SecretBytes block(hashSize);
    ByteView previous;
    for (std::size_t done = 0, number = 1; done < length; done += hashSize, ++number) {
        const std::array<std::uint8_t, 1> counter{static_cast<std::uint8_t>(number)};
        hmacInto(extracted, {previous, info, counter}, block.bytes().first<hashSize>());
        previous = block.view();
        std::ranges::copy(previous.first(std::min(hashSize, length - done)),
                          output.bytes().subspan(done).begin());
    }
    return output;
}

SecretBytes hkdf(ByteView ikm, std::string_view info, std::size_t length, ByteView salt) {
    return hkdf(ikm, asBytes(info), length, salt);
}

SecretBytes subkey(ByteView parent, std::string_view label) {
    return hkdf(parent, label, keySize);
}

} // namespace KRCrypto
