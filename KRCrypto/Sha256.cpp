#include "KRCrypto/Sha256.hpp"

#include "KRCrypto/internal/OpenSSL.hpp"

namespace KRCrypto {

using Internal::require;

void Sha256::Deleter::operator()(evp_md_ctx_st* context) const noexcept {
    EVP_MD_CTX_free(context);
}

Sha256::Sha256() : context_(EVP_MD_CTX_new()) {
    require(context_ != nullptr &&
            EVP_DigestInit_ex2(context_.get(), Internal::sha256Digest(), nullptr) == 1);
}

Sha256::Sha256(const Sha256& other) : context_(EVP_MD_CTX_new()) {
    require(context_ != nullptr && EVP_MD_CTX_copy_ex(context_.get(), other.context_.get()) == 1);
}

Sha256& Sha256::operator=(const Sha256& other) {
    if (this != &other) {
        *this = Sha256(other);
    }
    return *this;
}

void Sha256::update(ByteView data) {
    require(EVP_DigestUpdate(context_.get(), data.data(), data.size()) == 1);
}

Digest Sha256::digest() const {
    const Sha256 copy(*this);
    Digest digest{};
    require(EVP_DigestFinal_ex(copy.context_.get(), digest.data(), nullptr) == 1);
    return digest;
}

Digest sha256(ByteView data) {
    Digest digest{};
    require(EVP_Digest(data.data(), data.size(), digest.data(), nullptr, Internal::sha256Digest(), nullptr) ==
            1);
    return digest;
}

} // namespace KRCrypto
