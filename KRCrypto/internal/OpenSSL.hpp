#pragma once

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>

#include <memory>
#include <stdexcept>

// Ownership of OpenSSL's objects, and the algorithms, looked up once for the life of the process.
namespace KRCrypto::Internal {

struct OpenSSLDeleter {
    void operator()(EVP_CIPHER_CTX* context) const noexcept { EVP_CIPHER_CTX_free(context); }

    void operator()(EVP_MD_CTX* context) const noexcept { EVP_MD_CTX_free(context); }

    void operator()(EVP_MAC_CTX* context) const noexcept { EVP_MAC_CTX_free(context); }

    void operator()(EVP_KDF_CTX* context) const noexcept { EVP_KDF_CTX_free(context); }

    void operator()(EVP_PKEY* key) const noexcept { EVP_PKEY_free(key); }

    void operator()(EVP_PKEY_CTX* context) const noexcept { EVP_PKEY_CTX_free(context); }
};

template <class T>
using OpenSSLPtr = std::unique_ptr<T, OpenSSLDeleter>;

// For calls that fail only when memory is exhausted or the library is broken.
inline void require(bool done) {
    if (!done) {
        throw std::runtime_error("The cryptographic library failed");
    }
}

template <class T>
OpenSSLPtr<T> owned(T* made) {
    require(made != nullptr);
    return OpenSSLPtr<T>(made);
}

// Drops what failing calls in its scope leave in the thread's error queue, where other users of the library,
// TLS among them, would take it for theirs.
class ErrorQueueScope {
public:
    ErrorQueueScope() noexcept { ERR_set_mark(); }

    ~ErrorQueueScope() { ERR_pop_to_mark(); }

    ErrorQueueScope(const ErrorQueueScope&) = delete;
    ErrorQueueScope& operator=(const ErrorQueueScope&) = delete;
};

// Never freed: the library's own clean-up at exit may come first.
EVP_CIPHER* aes256Gcm();
EVP_MD* sha256Digest();
EVP_MAC* hmac();
EVP_KDF* hkdfAlgorithm();

} // namespace KRCrypto::Internal
