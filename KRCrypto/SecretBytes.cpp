#include "KRCrypto/SecretBytes.hpp"

#include <openssl/crypto.h>

#include <algorithm>
#include <utility>

namespace KRCrypto {

void wipe(MutableBytes bytes) noexcept {
    if (!bytes.empty()) {
        OPENSSL_cleanse(bytes.data(), bytes.size());
    }
}

void wipe(std::string& text) noexcept {
    OPENSSL_cleanse(text.data(), text.size());
    text.clear();
}

SecretBytes::SecretBytes(std::size_t size)
    : storage_(size == 0 ? nullptr : new std::uint8_t[size]()), size_(size) {}

SecretBytes SecretBytes::copyOf(ByteView bytes) {
    SecretBytes copy(bytes.size());
    std::ranges::copy(bytes, copy.storage_.get());
    return copy;
}

SecretBytes::SecretBytes(const SecretBytes& other) : SecretBytes(copyOf(other.view())) {}

SecretBytes::SecretBytes(SecretBytes&& other) noexcept
    : storage_(std::move(other.storage_)), size_(std::exchange(other.size_, 0)) {}

SecretBytes& SecretBytes::operator=(const SecretBytes& other) {
    if (this != &other) {
        SecretBytes copy(other);
        swap(copy);
    }
    return *this;
}

SecretBytes& SecretBytes::operator=(SecretBytes&& other) noexcept {
    SecretBytes taken(std::move(other));
    swap(taken);
    return *this;
}

SecretBytes::~SecretBytes() {
    wipe(bytes());
}

void SecretBytes::resize(std::size_t size) {
    SecretBytes resized(size);
    std::copy_n(storage_.get(), std::min(size, size_), resized.storage_.get());
    swap(resized);
}

bool operator==(const SecretBytes& a, const SecretBytes& b) noexcept {
    if (a.size_ != b.size_) {
        return false;
    }
    return a.size_ == 0 || CRYPTO_memcmp(a.storage_.get(), b.storage_.get(), a.size_) == 0;
}

void SecretBytes::swap(SecretBytes& other) noexcept {
    std::swap(storage_, other.storage_);
    std::swap(size_, other.size_);
}

} // namespace KRCrypto
